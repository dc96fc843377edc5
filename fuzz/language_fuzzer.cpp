// Any bytes as a language file: load it, then ask for texts, names, numbers and dialog changes.

#include "markup/language_table.h"
#include "memory_host_files.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const corvid::fuzz::MemoryHostFiles files(
        std::string(reinterpret_cast<const char*>(data), size));
    corvid::InstallHostFiles(&files);
    corvid::LanguageTable table;
    table.Load("pt-br");
    std::string text;
    for (std::uint32_t id :
         {0u, 1u, 7u, 219u, 1001u, 32949u, 32950u, 33001u, 33024u, 0xFFFFFFFFu}) {
        table.LoadText(id, text);
        table.ChangesForDialog(static_cast<int>(id));
    }
    for (const char* name : {"", "A", "IDS_A", "IDC_X", "IDD_D"}) {
        table.FindNumber(name);
    }
    corvid::InstallHostFiles(nullptr);
    return 0;
}
