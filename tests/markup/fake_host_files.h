#pragma once

#include "markup/host_files.h"

#include <map>
#include <string>
#include <vector>

namespace corvid::test {

// Files in memory under a made-up host folder; installed for the life of the object.
class FakeHostFiles : public HostFiles {
public:
    FakeHostFiles() { InstallHostFiles(this); }
    ~FakeHostFiles() override { InstallHostFiles(nullptr); }
    FakeHostFiles(const FakeHostFiles&) = delete;
    FakeHostFiles& operator=(const FakeHostFiles&) = delete;

    std::string HostFolder() const override { return "C:\\Tarvo"; }
    std::optional<std::string> ReadFile(const std::string& path) const override {
        asked.push_back(path);
        auto it = files.find(path);
        if (it == files.end()) {
            return std::nullopt;
        }
        return it->second;
    }

    std::map<std::string, std::string> files;
    mutable std::vector<std::string> asked;
};

} // namespace corvid::test
