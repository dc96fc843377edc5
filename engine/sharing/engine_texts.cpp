#include "engine/sharing/engine_texts.h"

#include <cstdio>
#include <limits>

namespace corvid::gnutella {
namespace {

// The plug-in reads sizes into signed 32-bit fields; larger values are written as the largest it
// can hold rather than wrapping into nonsense.
std::string Int32Text(std::uint64_t value) {
    constexpr std::uint64_t max = std::numeric_limits<std::int32_t>::max();
    return std::to_string(value < max ? value : max);
}

// Tick counts wrap at 32 bits; written signed, a decimal reader gets back the same 32 bits.
std::string TickText(std::uint32_t tick) {
    return std::to_string(static_cast<std::int32_t>(tick));
}

void Element(std::string& out, std::string_view name, std::string_view cleanContent) {
    out += '<';
    out += name;
    out += '>';
    out += cleanContent;
    out += "</";
    out += name;
    out += '>';
}

void TextElement(std::string& out, std::string_view name, std::string_view untrusted) {
    Element(out, name, CleanText(untrusted));
}

// Length of the UTF-8 sequence starting at text[i], or 0 when it is not one.
std::size_t Utf8Length(std::string_view text, std::size_t i) {
    const auto lead = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    std::uint32_t minimum = 0;
    std::uint32_t code = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, minimum = 0x80, code = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, minimum = 0x800, code = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, minimum = 0x10000, code = lead & 0x07;
    } else {
        return 0;
    }
    if (i + length > text.size()) {
        return 0;
    }
    for (std::size_t k = 1; k < length; ++k) {
        const auto next = static_cast<unsigned char>(text[i + k]);
        if ((next & 0xC0) != 0x80) {
            return 0;
        }
        code = (code << 6) | (next & 0x3F);
    }
    if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
        return 0;
    }
    return length;
}

} // namespace

std::string CleanText(std::string_view text) {
    std::string clean;
    clean.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x80) {
            const std::size_t length = Utf8Length(text, i);
            if (length == 0) {
                clean += '?';
            } else {
                clean.append(text.substr(i, length));
                i += length - 1;
            }
            continue;
        }
        if (byte == '<' || byte == '>') {
            clean += '_';
        } else if (byte < 0x20 || byte == 0x7F) {
            clean += ' ';
        } else {
            clean += static_cast<char>(byte);
        }
    }
    return clean;
}

std::string SearchResultText(const ResultHost& host, std::span<const ResultFile> files) {
    std::string out = "<searchresult version=\"1.0\">";
    TextElement(out, "keyword", host.keyword);
    TextElement(out, "type", host.type);
    TextElement(out, "nodeid", host.nodeId);
    TextElement(out, "ip", host.ip);
    Element(out, "port", std::to_string(host.port));
    Element(out, "speed", Int32Text(host.speed));
    TextElement(out, "vendorCode", host.vendorCode);
    char openData[8];
    std::snprintf(openData, sizeof openData, "%x", host.firewalled ? 0x1d : 0x1c);
    out += "<opendata size=\"2\">";
    out += openData;
    out += "</opendata><ResultSet>";
    for (const ResultFile& file : files) {
        out += "<FileInfo id=\"" + std::to_string(file.index) + "\">";
        TextElement(out, "name", file.name);
        Element(out, "size", Int32Text(file.size));
        TextElement(out, "info", file.info);
        TextElement(out, "sha1", file.sha1);
        // Behind everything the plug-in's reader looks for in a file, so a reader that does not
        // know the element finds all the rest where it always was.
        if (!file.source.empty()) {
            TextElement(out, "source", file.source);
        }
        out += "</FileInfo>";
    }
    out += "</ResultSet></searchresult>";
    return out;
}

std::string HostInfoText(std::span<const HostRecord> hosts) {
    std::string out = "<HostInfo>";
    for (const HostRecord& host : hosts) {
        out += "<Host>";
        TextElement(out, "ID", host.id);
        TextElement(out, "Node", host.node);
        TextElement(out, "UserAgent", host.userAgent);
        Element(out, "HandshakeTime", TickText(host.handshakeTick));
        TextElement(out, "Type", host.type);
        TextElement(out, "In", host.in);
        TextElement(out, "Out", host.out);
        Element(out, "UpdateTime", TickText(host.updateTick));
        TextElement(out, "Ver", host.version);
        out += "</Host>";
    }
    out += "</HostInfo>";
    return out;
}

std::string UploadInfoText(std::span<const UploadInfo> uploads) {
    std::string out = "<Uploads>";
    for (const UploadInfo& upload : uploads) {
        out += "<UploadInfo id=\"" + std::to_string(upload.id) + "\">";
        Element(out, "Progress", std::to_string(upload.progress));
        Element(out, "Speed", std::to_string(upload.speed));
        TextElement(out, "Description", upload.description);
        TextElement(out, "FileName", upload.fileName);
        Element(out, "FileSize", Int32Text(upload.fileSize));
        TextElement(out, "IP", upload.ip);
        Element(out, "port", std::to_string(upload.port));
        out += "</UploadInfo>";
    }
    out += "</Uploads>";
    return out;
}

std::string NetworkInfoText(const NetworkSummary& summary) {
    std::string out = "<info>";
    TextElement(out, "Mode", summary.mode);
    TextElement(out, "Address", summary.address);
    Element(out, "Firewalled", summary.firewalled ? "1" : "0");
    Element(out, "Connections", std::to_string(summary.ultrapeers + summary.leaves));
    Element(out, "Ultrapeers", std::to_string(summary.ultrapeers));
    Element(out, "Leaves", std::to_string(summary.leaves));
    Element(out, "SharedFiles", std::to_string(summary.sharedFiles));
    Element(out, "SharedKB", std::to_string(summary.sharedKilobytes));
    Element(out, "Uploads", std::to_string(summary.uploads));
    Element(out, "Uptime", std::to_string(summary.uptimeSeconds));
    TextElement(out, "UserAgent", summary.userAgent);
    out += "</info>";
    return out;
}

} // namespace corvid::gnutella
