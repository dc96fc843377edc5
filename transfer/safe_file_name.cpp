#include "transfer/safe_file_name.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace corvid::transfer {
namespace {

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::toupper(static_cast<unsigned char>(x)) ==
                      std::toupper(static_cast<unsigned char>(y));
           });
}

// Longer "extensions" are not kept apart from the rest of the name when it is cut or numbered.
constexpr std::size_t kMaxExtensionLength = 16;

bool IsBlankOrDot(char c) {
    return c == ' ' || c == '.';
}

// Windows opens a device instead of a file for these base names, whatever the extension.
bool IsDeviceName(std::string_view name) {
    auto base = name.substr(0, name.find('.'));
    while (!base.empty() && base.back() == ' ')
        base.remove_suffix(1);
    static constexpr std::array<std::string_view, 6> kDevices = {"CON", "PRN",    "AUX",
                                                                 "NUL", "CONIN$", "CONOUT$"};
    for (auto device : kDevices)
        if (EqualsIgnoringCase(base, device))
            return true;
    if (base.size() == 4 && (EqualsIgnoringCase(base.substr(0, 3), "COM") ||
                             EqualsIgnoringCase(base.substr(0, 3), "LPT")))
        return base[3] >= '0' && base[3] <= '9';
    return false;
}

std::pair<std::string_view, std::string_view> SplitExtension(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return {name, {}};
    return {name.substr(0, dot), name.substr(dot)};
}

} // namespace

// The name comes from a remote peer, so before it becomes part of a path:
// - every byte below 0x20, 0x7F and every character Windows reserves (< > : " / \ | ? *) becomes
//   '_': no separators, so no sub-folder, parent ("..\"), drive ("C:") or UNC ("\\host") prefix
//   and no alternate data stream survive;
// - leading blanks and trailing blanks and dots are dropped (Windows drops the trailing ones
//   itself, which would make two names one), so "." and ".." come out empty;
// - a device name (CON, PRN, AUX, NUL, COM0-9, LPT0-9, CONIN$, CONOUT$, with any extension) gets a
//   leading '_';
// - the name is cut to kMaxFileNameLength bytes, keeping a short extension;
// - an empty result becomes "download".
// Bytes from 0x80 up are kept: they are the peer's ANSI code page text.
std::string SafeFileName(std::string_view peerName) {
    std::string name;
    name.reserve(peerName.size());
    for (char c : peerName) {
        const auto byte = static_cast<unsigned char>(c);
        const bool reserved = std::string_view("<>:\"/\\|?*").find(c) != std::string_view::npos;
        name.push_back(byte < 0x20 || byte == 0x7F || reserved ? '_' : c);
    }
    const auto first = name.find_first_not_of(' ');
    name.erase(0, first == std::string::npos ? name.size() : first);
    while (!name.empty() && IsBlankOrDot(name.back()))
        name.pop_back();
    if (name.empty())
        return "download";
    if (IsDeviceName(name))
        name = "_" + name;
    if (name.size() > kMaxFileNameLength) {
        // An extension longer than a real one is cut with the rest of the name.
        auto [stem, extension] = SplitExtension(name);
        if (extension.size() > kMaxExtensionLength)
            name.resize(kMaxFileNameLength);
        else
            name = std::string(stem.substr(0, kMaxFileNameLength - extension.size())) +
                   std::string(extension);
        while (!name.empty() && IsBlankOrDot(name.back()))
            name.pop_back();
        if (name.empty())
            return "download";
    }
    return name;
}

std::string JoinFolder(std::string_view folder, std::string_view name) {
    const bool slashes =
        folder.find('/') != std::string_view::npos && folder.find('\\') == std::string_view::npos;
    const char separator = slashes ? '/' : '\\';
    std::string path(folder);
    if (!path.empty() && path.back() != separator)
        path.push_back(separator);
    path.append(name);
    return path;
}

bool IsFullFolderPath(std::string_view folder) {
    const auto slash = [](char c) { return c == '\\' || c == '/'; };
    if (folder.size() >= 3 && std::isalpha(static_cast<unsigned char>(folder[0])) &&
        folder[1] == ':' && slash(folder[2]))
        return true;
    return folder.size() >= 3 && folder[0] == '\\' && folder[1] == '\\' && !slash(folder[2]);
}

std::string DefaultDownloadFolder(std::string_view base) {
    return JoinFolder(base, "download");
}

std::string DefaultTempFolder(std::string_view base) {
    return JoinFolder(base, "temp");
}

std::string UniquePath(std::string_view folder, std::string_view safeName,
                       const std::function<bool(const std::string&)>& taken) {
    auto path = JoinFolder(folder, safeName);
    auto [stem, extension] = SplitExtension(safeName);
    if (extension.size() > kMaxExtensionLength) {
        stem = safeName;
        extension = {};
    }
    for (int copy = 2; taken(path); ++copy) {
        const auto suffix = " (" + std::to_string(copy) + ")";
        const auto room = static_cast<std::ptrdiff_t>(kMaxFileNameLength) -
                          static_cast<std::ptrdiff_t>(extension.size() + suffix.size());
        const auto cut =
            stem.substr(0, static_cast<std::size_t>(std::max<std::ptrdiff_t>(room, 0)));
        path = JoinFolder(folder, std::string(cut) + suffix + std::string(extension));
    }
    return path;
}

} // namespace corvid::transfer
