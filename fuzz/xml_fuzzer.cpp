// Parse any bytes with the readers' mask, with every flag and with none, then write the tree back
// and parse that again. With the readers' mask every value must come out trimmed and normalised.

#include "markup/xml.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string_view>
#include <vector>

namespace {

void CheckNormalised(const char* value) {
    if (!value) {
        return;
    }
    const std::string_view text(value);
    if (text.empty()) {
        return;
    }
    if (text.front() == ' ' || text.back() == ' ' || text.find("  ") != std::string_view::npos) {
        std::abort();
    }
    for (unsigned char c : text) {
        if (c >= 1 && c < 32) {
            std::abort();
        }
    }
}

void CheckTree(corvid::XmlNode* root) {
    std::vector<corvid::XmlNode*> pending{root};
    while (!pending.empty()) {
        corvid::XmlNode* node = pending.back();
        pending.pop_back();
        if (node->kind != corvid::kXmlDocType) {
            CheckNormalised(node->value);
        }
        if (node->kind == corvid::kXmlElement || node->kind == corvid::kXmlProcessingInstruction) {
            for (std::uint32_t i = 0; i < node->attributeCount; ++i) {
                CheckNormalised(node->attributes[i]->value);
            }
        }
        for (std::uint32_t i = 0; i < node->childCount; ++i) {
            pending.push_back(node->children[i]);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (std::uint32_t options : {corvid::kXmlStandardReader, 0xFFFFu, 0x0u}) {
        corvid::XmlDocument document;
        document.ParseCopy(text, options);
        if (options == corvid::kXmlStandardReader) {
            CheckTree(document.Root().node());
        }
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
