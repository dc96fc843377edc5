#pragma once

// The hosts view's and the upload page's readings of the engine's texts, done with the plug-in's
// own tag scanner in the order those views read them.

#include "engine/sharing/upload_registry.h"
#include "search/tag_scanner.h"

#include <string>
#include <string_view>
#include <vector>

namespace corvid::testing {

struct ReadHost {
    std::string id, node, agent, handshake, type, in, out, update, version;
};

inline std::vector<ReadHost> ReadHosts(std::string_view text) {
    std::vector<ReadHost> hosts;
    std::string_view body;
    while (const std::size_t used = ReadElement(text, "<Host", body)) {
        text.remove_prefix(used);
        ReadHost host;
        std::string* fields[] = {&host.id, &host.node, &host.agent,  &host.handshake, &host.type,
                                 &host.in, &host.out,  &host.update, &host.version};
        const char* tags[] = {"<ID",  "<Node",       "<UserAgent", "<HandshakeTime", "<Type", "<In",
                              "<Out", "<UpdateTime", "<Ver"};
        for (std::size_t i = 0; i < 9; ++i) {
            std::string_view value;
            body.remove_prefix(ReadElement(body, tags[i], value));
            fields[i]->assign(value);
        }
        if (!host.id.empty()) {
            hosts.push_back(host);
        }
    }
    return hosts;
}

inline std::vector<gnutella::UploadInfo> ReadUploads(std::string_view text) {
    std::vector<gnutella::UploadInfo> read;
    std::string_view body;
    while (const std::size_t used = ReadElement(text, "<UploadInfo", body)) {
        std::string_view openTag;
        std::string_view id;
        ReadOpenTag(text, "<UploadInfo", openTag);
        ReadAttribute(openTag, "id", id);
        gnutella::UploadInfo info;
        info.id = ParseDecimal(id);
        std::string_view value;
        body.remove_prefix(ReadElement(body, "<Progress", value));
        info.progress = ParseDecimal(value);
        body.remove_prefix(ReadElement(body, "<Speed", value));
        info.speed = ParseDecimal(value);
        body.remove_prefix(ReadElement(body, "<Description", value));
        info.description = value;
        body.remove_prefix(ReadElement(body, "<FileName", value));
        info.fileName = value;
        body.remove_prefix(ReadElement(body, "<FileSize>", value));
        info.fileSize = static_cast<std::uint64_t>(ParseDecimal(value));
        body.remove_prefix(ReadElement(body, "<IP", value));
        info.ip = value;
        body.remove_prefix(ReadElement(body, "<port", value));
        info.port = ParseDecimal(value);
        read.push_back(info);
        text.remove_prefix(used);
    }
    return read;
}

} // namespace corvid::testing
