#pragma once

#include <optional>
#include <string>

namespace corvid {

// What the skin and language readers need from the machine: the running host's folder and whole
// files. The Windows face installs one over the module's path and CreateFile; tests install fakes.
class HostFiles {
public:
    virtual ~HostFiles() = default;
    // The folder of the running host executable, without a trailing backslash.
    virtual std::string HostFolder() const = 0;
    // The whole file, or nothing when it cannot be opened or fewer bytes than its size arrive.
    virtual std::optional<std::string> ReadFile(const std::string& path) const = 0;
};

// Reads files through the C library, refusing any larger than kMaxHostFileSize.
class StdioHostFiles : public HostFiles {
public:
    explicit StdioHostFiles(std::string hostFolder) : hostFolder_(std::move(hostFolder)) {}
    std::string HostFolder() const override { return hostFolder_; }
    std::optional<std::string> ReadFile(const std::string& path) const override;

private:
    std::string hostFolder_;
};

// Skin and language files are small; anything beyond this is not one of them.
inline constexpr long kMaxHostFileSize = 64L * 1024 * 1024;

// The files the plug-in reads through. Until something is installed, a StdioHostFiles over the
// current folder answers. The caller keeps an installed object alive while it is installed.
const HostFiles& CurrentHostFiles();
void InstallHostFiles(const HostFiles* files);

} // namespace corvid
