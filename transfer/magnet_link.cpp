#include "transfer/magnet_link.h"

#include <array>
#include <charconv>

#include "platform/ascii.h"
#include "transfer/safe_file_name.h"

namespace corvid::transfer {
namespace {

constexpr std::string_view kBase32Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size())
        return false;
    for (std::size_t i = 0; i < prefix.size(); ++i)
        if ((text[i] | 0x20) != (prefix[i] | 0x20))
            return false;
    return true;
}

char UpperAscii(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// A query-string value: %XX escapes, and '+' for a blank where the value is text.
std::optional<std::string> Decode(std::string_view value, bool plusIsBlank) {
    std::string decoded;
    decoded.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c == '%') {
            if (i + 2 >= value.size())
                return std::nullopt;
            const int high = HexDigit(value[i + 1]);
            const int low = HexDigit(value[i + 2]);
            if (high < 0 || low < 0)
                return std::nullopt;
            decoded.push_back(static_cast<char>(high * 16 + low));
            i += 2;
        } else {
            decoded.push_back(plusIsBlank && c == '+' ? ' ' : c);
        }
    }
    return decoded;
}

// The SHA1 as 32 upper-case base32 characters, from base32 (either case) or 40 hex digits.
std::optional<std::string> NormalizeSha1(std::string_view hash) {
    if (hash.size() == 32) {
        std::string upper;
        for (char c : hash) {
            upper.push_back(UpperAscii(c));
            if (kBase32Alphabet.find(upper.back()) == std::string_view::npos)
                return std::nullopt;
        }
        return upper;
    }
    if (hash.size() == 40) {
        std::array<std::uint8_t, 20> bytes{};
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const int high = HexDigit(hash[2 * i]);
            const int low = HexDigit(hash[2 * i + 1]);
            if (high < 0 || low < 0)
                return std::nullopt;
            bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
        }
        std::string text;
        std::uint32_t buffer = 0;
        int bits = 0;
        for (auto byte : bytes) {
            buffer = (buffer << 8) | byte;
            bits += 8;
            while (bits >= 5) {
                text.push_back(kBase32Alphabet[(buffer >> (bits - 5)) & 31]);
                bits -= 5;
            }
        }
        return text; // 160 bits: exactly 32 characters, nothing left over
    }
    return std::nullopt;
}

// "xt", "xt.1", "XT.2" all name the xt parameter.
std::string BaseKey(std::string_view key) {
    const auto dot = key.find('.');
    if (dot != std::string_view::npos) {
        const auto suffix = key.substr(dot + 1);
        const bool numbered =
            !suffix.empty() && suffix.find_first_not_of("0123456789") == std::string_view::npos;
        if (numbered)
            key = key.substr(0, dot);
    }
    std::string lower;
    for (char c : key)
        lower.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    return lower;
}

bool IsUsableUrl(std::string_view url) {
    if (!StartsWithNoCase(url, "http://") || url.size() <= 7)
        return false;
    for (char c : url) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte == 0x7F)
            return false;
    }
    return true;
}

} // namespace

std::optional<MagnetLink> ParseMagnetLink(std::string_view text, std::string* error) {
    auto fail = [&](std::string message) -> std::optional<MagnetLink> {
        if (error)
            *error = std::move(message);
        return std::nullopt;
    };
    // A pasted link often brings the end of its line along.
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n'))
        text.remove_suffix(1);
    text = TrimBlanks(text);
    if (text.size() > kMaxMagnetLinkLength)
        return fail("the magnet link is longer than 64 KiB");
    constexpr std::string_view kPrefix = "magnet:?";
    if (!StartsWithNoCase(text, kPrefix))
        return fail("not a magnet link: it must start with \"magnet:?\"");
    text.remove_prefix(kPrefix.size());

    MagnetLink link;
    bool haveName = false;
    while (!text.empty()) {
        const auto amp = text.find('&');
        const auto param = text.substr(0, amp);
        text = amp == std::string_view::npos ? std::string_view() : text.substr(amp + 1);
        const auto equals = param.find('=');
        if (equals == std::string_view::npos)
            continue;
        const auto key = BaseKey(param.substr(0, equals));
        const auto raw = param.substr(equals + 1);
        const bool isText = key == "dn" || key == "kt";
        const auto value = Decode(raw, isText);
        if (!value)
            return fail("bad percent-encoding in the " + key + " of the magnet link");
        if (key == "xt") {
            std::string_view urn = *value;
            std::optional<std::string> sha1;
            if (StartsWithNoCase(urn, "urn:sha1:")) {
                const auto hash = urn.substr(9);
                sha1 = NormalizeSha1(hash);
                if (!sha1)
                    return fail("the urn:sha1 of the magnet link has " +
                                std::to_string(hash.size()) +
                                " characters or a bad one: a SHA1 is 32 base32 characters");
            } else if (StartsWithNoCase(urn, "urn:bitprint:")) {
                // "urn:bitprint:" SHA1 "." TigerTree: the part before the dot.
                const auto hash = urn.substr(13, urn.find('.', 13) - 13);
                sha1 = hash.size() == 32 ? NormalizeSha1(hash) : std::nullopt;
                if (!sha1)
                    return fail("the urn:bitprint of the magnet link does not start with a SHA1");
            } else {
                continue; // other hashes name the same file; the SHA1 is the one we can check
            }
            if (!link.sha1.empty() && link.sha1 != *sha1)
                return fail("the magnet link names two different SHA1s");
            link.sha1 = *sha1;
        } else if (key == "dn") {
            if (!haveName) {
                link.displayName = *value;
                haveName = true;
            }
        } else if (key == "xl") {
            std::uint64_t size = 0;
            const auto* end = value->data() + value->size();
            auto [next, ec] = std::from_chars(value->data(), end, size);
            if (value->empty() || ec != std::errc() || next != end)
                return fail("the xl of the magnet link is not a file size");
            link.length = size;
        } else if (key == "xs" || key == "as") {
            if (IsUsableUrl(*value) && link.sources.size() < kMaxMagnetSources)
                link.sources.push_back(*value);
        } else if (key == "kt") {
            link.keywords = *value;
        }
    }
    if (link.sha1.empty())
        return fail("the magnet link has no xt=urn:sha1: only files named by their SHA1 can be "
                    "fetched");
    return link;
}

std::string MagnetFileName(const MagnetLink& link) {
    return SafeFileName(link.displayName.empty() ? link.sha1 : link.displayName);
}

} // namespace corvid::transfer
