// Any bytes as a skin file, read into the global skin record.

#include "markup/skin.h"
#include "memory_host_files.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const corvid::fuzz::MemoryHostFiles files(
        std::string(reinterpret_cast<const char*>(data), size));
    corvid::InstallHostFiles(&files);
    corvid::ApplySkin("Fuzz", true);
    corvid::InstallHostFiles(nullptr);
    return 0;
}
