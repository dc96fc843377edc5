#pragma once

// The "Network" options page as a model: what it shows when it opens, read from
// "Config\NetWork.ini" (section NetWork) and the plug-in's settings, and what it writes back when
// the user applies it. The Windows page only moves these values into and out of its controls.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvid::network {

inline constexpr char kNetworkSection[] = "NetWork";

// A profile (INI) file: one string per key of a section. Read gives nothing for a missing key.
class ProfilePort {
public:
    virtual ~ProfilePort() = default;
    virtual std::optional<std::string> Read(const char* section, const char* key) const = 0;
    // Failures are not reported: the page has nowhere to show them.
    virtual void Write(const char* section, const char* key, const std::string& value) = 0;
};

// The plug-in's own settings of section "P2P View" by name: "AutoOnline" and the download
// settings' "AutoResume" (whether the download list resumes its items at start, 1 by default).
class SettingsPort {
public:
    virtual ~SettingsPort() = default;
    virtual std::optional<int> Read(const char* name) const = 0;
    virtual void Write(const char* name, int value) = 0;
};

inline constexpr char kAutoOnlineSetting[] = "AutoOnline";
inline constexpr char kAutoResumeSetting[] = "AutoResume";

// The six number fields in the order they are read when the page is applied.
enum NumberField : int {
    kFieldPort = 0,
    kFieldUploadPort,
    kFieldPeerMax,
    kFieldUltraPeerMax,
    kFieldUltraPeerMin,
    kFieldLeafPeerMax,
    kNumberFieldCount,
};

// What the page's controls hold.
struct NetworkPageValues {
    bool autoOnline = true;
    bool autoResume = true;
    bool behindFirewall = true;
    int nodeMode = 0; // index into the four node types
    std::array<std::uint32_t, kNumberFieldCount> numbers = {6346, 6347, 3, 6, 2, 100};

    bool operator==(const NetworkPageValues&) const = default;
};

// What the page shows when it opens. Missing keys take their defaults; the upload port shown is
// always Port + 1 (the file's UploadPort is written but never read back); a BehindFirewall outside
// 0-2 shows unchecked; numbers are taken as unsigned; a NodeMode outside the four types shows the
// first.
NetworkPageValues LoadNetworkPage(const ProfilePort& profile, const SettingsPort& settings);

// A number field's text read as an unsigned decimal: blanks around it allowed, nothing else; no
// value when it holds no number or one beyond 32 bits.
std::optional<std::uint32_t> ReadUnsignedField(std::string_view text);

// The page's controls as text, ready to apply.
struct NetworkPageInput {
    bool autoOnline = true;
    bool autoResume = true;
    bool behindFirewall = true;
    int nodeMode = 0;
    std::array<std::string, kNumberFieldCount> numbers;
};

// Applies the page: reads the number fields in order and, when all hold numbers, stores
// AutoOnline (and the resume choice) in the settings and writes the file's keys as decimal text.
// Otherwise nothing is written and the first field without a number is returned.
std::optional<NumberField> ApplyNetworkPage(const NetworkPageInput& input, ProfilePort& profile,
                                            SettingsPort& settings);

} // namespace corvid::network
