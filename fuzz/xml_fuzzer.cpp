// Parse any bytes with the readers' mask and with every flag, then write the tree back.

#include "markup/xml.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (std::uint32_t options : {corvid::kXmlStandardReader, 0xFFFFu, 0x0u}) {
        corvid::XmlDocument document;
        document.ParseCopy(text, options);
        std::ostringstream out;
        document.Write(out, '\t', true);
        corvid::XmlDocument again;
        again.ParseCopy(out.str(), options);
        std::ostringstream flat;
        again.Write(flat, 0, false);
        again.Root().FindFirst("*[a-z]?");
    }
    return 0;
}
