#include "transfer/download_list_file.h"

#include "markup/xml.h"
#include "search/tag_scanner.h"
#include "transfer/download_states.h"
#include "transfer/safe_file_name.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <sstream>

namespace corvid::transfer {
namespace {

// The writer copies values as they are, so the texts are escaped here; every character a
// peer's name may hold comes back unchanged, blanks and line ends included.
std::string Escape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            if (byte < 0x20 || byte == 0x7F)
                out += "&#" + std::to_string(byte) + ";";
            else
                out.push_back(c);
        }
    }
    return out;
}

std::string Unescape(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '&') {
            out.push_back(text[i]);
            continue;
        }
        const auto end = text.find(';', i);
        if (end == std::string_view::npos || end - i > 6) {
            out.push_back('&');
            continue;
        }
        const auto name = text.substr(i + 1, end - i - 1);
        char decoded = 0;
        if (name == "amp")
            decoded = '&';
        else if (name == "lt")
            decoded = '<';
        else if (name == "gt")
            decoded = '>';
        else if (name == "quot")
            decoded = '"';
        else if (name.size() >= 2 && name[0] == '#' &&
                 std::all_of(name.begin() + 1, name.end(),
                             [](char c) { return std::isdigit(static_cast<unsigned char>(c)); })) {
            const int value = ParseDecimal(name.substr(1));
            if (value > 0 && value < 256)
                decoded = static_cast<char>(value);
        }
        if (decoded == 0) {
            out.push_back('&');
            continue;
        }
        out.push_back(decoded);
        i = end;
    }
    return out;
}

void Put(std::ostringstream& out, const char* name, std::string_view value) {
    out << ' ' << name << "=\"" << Escape(value) << '"';
}

void Put(std::ostringstream& out, const char* name, std::int32_t value) {
    out << ' ' << name << "=\"" << value << '"';
}

std::string Text(const XmlBranch& node, const char* name) {
    const XmlAttribute* attribute = node.Attribute(name);
    return attribute && attribute->value ? Unescape(attribute->value) : std::string();
}

std::int32_t Number(const XmlBranch& node, const char* name) {
    const XmlAttribute* attribute = node.Attribute(name);
    return attribute && attribute->value ? ParseDecimal(attribute->value) : 0;
}

bool IsAlphanumeric(std::string_view text) {
    return !text.empty() && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0;
    });
}

bool IsKnownState(std::int32_t state) {
    return state == kItemCreated || state == kItemDownloading || state == kItemCompleted ||
           state == kItemNeedsSources || state == kItemStopped;
}

} // namespace

bool IsPlainLocalPath(std::string_view path) {
    std::string_view rest;
    char separator;
    if (path.size() > 3 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':' &&
        path[2] == '\\') {
        rest = path.substr(3);
        separator = '\\';
    } else if (path.size() > 1 && path[0] == '/') {
        rest = path.substr(1);
        separator = '/';
    } else {
        return false;
    }
    for (;;) {
        const auto cut = rest.find(separator);
        const auto part = rest.substr(0, cut);
        if (part.empty() || part == "." || part == ".." ||
            part.find_first_of(separator == '\\' ? "/:" : "\\") != std::string_view::npos)
            return false;
        if (cut == std::string_view::npos)
            return SafeFileName(part) == part;
        rest.remove_prefix(cut + 1);
    }
}

std::string WriteDownloadList(std::span<const SavedDownload> downloads) {
    // Built as text for the tree's parser to check, then written back by the tree's writer: what
    // goes to disk is always a document the reader can take.
    std::ostringstream text;
    text << "<downloads version=\"1\">";
    for (const auto& download : downloads) {
        text << "<download";
        Put(text, "sha1", download.sha1);
        Put(text, "path", download.localPath);
        Put(text, "state", download.state);
        Put(text, "progress", download.progress);
        text << '>';
        for (const auto& source : download.sources) {
            text << "<source";
            Put(text, "name", source.name);
            Put(text, "host", source.host);
            Put(text, "port", source.port);
            Put(text, "index", source.fileIndex);
            Put(text, "size", source.size);
            Put(text, "speed", source.speed);
            Put(text, "type", source.type);
            Put(text, "vendor", source.vendorCode);
            Put(text, "browse", source.browsable);
            Put(text, "node", source.nodeId);
            Put(text, "info", source.info);
            Put(text, "push", source.push);
            text << "/>";
        }
        text << "</download>";
    }
    text << "</downloads>";
    XmlDocument document;
    document.ParseCopy(text.str(), 0);
    std::ostringstream out;
    document.Write(out, '\t', true);
    return out.str();
}

std::vector<SavedDownload> ReadDownloadList(std::string_view text) {
    std::vector<SavedDownload> downloads;
    XmlDocument document;
    document.ParseCopy(text, 0);
    const XmlBranch root = document.Root().FindFirst("downloads");
    std::set<std::string> seen;
    for (std::uint32_t i = 0; i < root.ChildCount() && downloads.size() < kMaxSavedDownloads; ++i) {
        const XmlBranch node = root.Child(i);
        if (node.Kind() != kXmlElement || std::string_view(node.Name()) != "download")
            continue;
        SavedDownload download;
        download.sha1 = Text(node, "sha1");
        download.localPath = Text(node, "path");
        download.state = Number(node, "state");
        download.progress = std::clamp(Number(node, "progress"), 0, 100);
        for (std::uint32_t j = 0;
             j < node.ChildCount() && download.sources.size() < kMaxSavedSources; ++j) {
            const XmlBranch child = node.Child(j);
            if (child.Kind() != kXmlElement || std::string_view(child.Name()) != "source")
                continue;
            ResultSource source;
            source.name = Text(child, "name");
            source.host = Text(child, "host");
            source.port = Number(child, "port");
            source.fileIndex = Number(child, "index");
            source.size = Number(child, "size");
            source.speed = Number(child, "speed");
            source.type = Text(child, "type");
            source.vendorCode = Text(child, "vendor");
            source.browsable = Number(child, "browse");
            source.nodeId = Text(child, "node");
            source.info = Text(child, "info");
            source.push = Number(child, "push");
            download.sources.push_back(std::move(source));
        }
        if (!IsAlphanumeric(download.sha1) || !IsPlainLocalPath(download.localPath) ||
            !IsKnownState(download.state) || download.sources.empty() ||
            !seen.insert(download.sha1).second)
            continue;
        downloads.push_back(std::move(download));
    }
    return downloads;
}

} // namespace corvid::transfer
