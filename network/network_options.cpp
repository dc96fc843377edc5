#include "network/network_options.h"

#include "search/tag_scanner.h"

#include <charconv>

namespace corvid::network {

namespace {

// As the system's profile reader does: the leading decimal number of the value, the default when
// the key is missing.
std::uint32_t ReadNumber(const ProfilePort& profile, const char* key, std::uint32_t fallback) {
    const std::optional<std::string> text = profile.Read(kNetworkSection, key);
    return text ? static_cast<std::uint32_t>(ParseDecimal(*text)) : fallback;
}

constexpr std::array<const char*, kNumberFieldCount> kKeys = {"Port",
                                                              "UploadPort",
                                                              "PeerMaxCount",
                                                              "UltraPeerMaxCount",
                                                              "UltraPeerMinCount",
                                                              "LeafPeerMaxCount"};

} // namespace

NetworkPageValues LoadNetworkPage(const ProfilePort& profile, const SettingsPort& settings) {
    NetworkPageValues values;
    values.autoOnline = settings.Read(kAutoOnlineSetting).value_or(1) != 0;
    values.autoResume = settings.Read(kAutoResumeSetting).value_or(1) != 0;
    const std::uint32_t port = ReadNumber(profile, "Port", 6346);
    const std::uint32_t nodeMode = ReadNumber(profile, "NodeMode", 0);
    const std::uint32_t firewall = ReadNumber(profile, "BehindFirewall", 1);
    values.nodeMode = nodeMode <= 3 ? static_cast<int>(nodeMode) : 0;
    values.behindFirewall = firewall == 1;
    values.numbers[kFieldPort] = port;
    values.numbers[kFieldUploadPort] = port + 1;
    values.numbers[kFieldPeerMax] = ReadNumber(profile, "PeerMaxCount", 3);
    values.numbers[kFieldUltraPeerMax] = ReadNumber(profile, "UltraPeerMaxCount", 6);
    values.numbers[kFieldUltraPeerMin] = ReadNumber(profile, "UltraPeerMinCount", 2);
    values.numbers[kFieldLeafPeerMax] = ReadNumber(profile, "LeafPeerMaxCount", 100);
    return values;
}

std::optional<std::uint32_t> ReadUnsignedField(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    std::uint32_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<NumberField> ApplyNetworkPage(const NetworkPageInput& input, ProfilePort& profile,
                                            SettingsPort& settings) {
    std::array<std::uint32_t, kNumberFieldCount> numbers{};
    for (int field = 0; field < kNumberFieldCount; ++field) {
        const std::optional<std::uint32_t> value = ReadUnsignedField(input.numbers[field]);
        if (!value) {
            return static_cast<NumberField>(field);
        }
        numbers[field] = *value;
    }
    settings.Write(kAutoOnlineSetting, input.autoOnline ? 1 : 0);
    settings.Write(kAutoResumeSetting, input.autoResume ? 1 : 0);
    profile.Write(kNetworkSection, "Port", std::to_string(numbers[kFieldPort]));
    profile.Write(kNetworkSection, "UploadPort", std::to_string(numbers[kFieldUploadPort]));
    profile.Write(kNetworkSection, "NodeMode", std::to_string(input.nodeMode));
    profile.Write(kNetworkSection, "BehindFirewall", input.behindFirewall ? "1" : "0");
    for (int field = kFieldPeerMax; field < kNumberFieldCount; ++field) {
        profile.Write(kNetworkSection, kKeys[field], std::to_string(numbers[field]));
    }
    return std::nullopt;
}

} // namespace corvid::network
