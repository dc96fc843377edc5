#pragma once

#include "markup/host_files.h"

#include <string>

namespace corvid::fuzz {

// One file in memory: whatever path is asked for, under a made-up host folder.
class MemoryHostFiles : public HostFiles {
public:
    explicit MemoryHostFiles(std::string contents) : contents_(std::move(contents)) {}
    std::string HostFolder() const override { return "C:\\Tarvo"; }
    std::optional<std::string> ReadFile(const std::string&) const override { return contents_; }

private:
    std::string contents_;
};

} // namespace corvid::fuzz
