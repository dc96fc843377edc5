#pragma once

// The Windows stores behind the Network page: the profile file and the plug-in's settings.

#include "network/network_options.h"

#include <string>

namespace corvid::network {

// A Windows profile (INI) file. Writing creates the file's folder first.
class ProfileFile : public ProfilePort {
public:
    explicit ProfileFile(std::string path) : path_(std::move(path)) {}
    std::optional<std::string> Read(const char* section, const char* key) const override;
    void Write(const char* section, const char* key, const std::string& value) override;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// The plug-in's settings of section "P2P View", kept where the host keeps its sections: values
// of HKEY_CURRENT_USER\Software\Tarvo Explorer\P2P View (REG_DWORD).
class RegistrySettings : public SettingsPort {
public:
    std::optional<int> Read(const char* name) const override;
    void Write(const char* name, int value) override;
};

} // namespace corvid::network
