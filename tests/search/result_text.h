#pragma once

// Builds engine result texts for the tests, in the layout the engine writes.

#include <string>
#include <utility>
#include <vector>

namespace corvid::testing {

struct FileEntry {
    FileEntry(std::string name, std::string size = "1000", std::string sha1 = "",
              std::string id = "1", std::string info = "")
        : name(std::move(name)), size(std::move(size)), sha1(std::move(sha1)), id(std::move(id)),
          info(std::move(info)) {}

    std::string name;
    std::string size;
    std::string sha1;
    std::string id;
    std::string info;
};

struct HostEntry {
    std::string type = "All";
    std::string ip = "10.0.0.1";
    std::string port = "6346";
    std::string speed = "350";
    std::string vendorCode = "CRVD";
    std::string nodeId = "0123456789ABCDEF";
    std::string openData = "1c";
    std::string keyword = "corvid";
};

inline std::string ResultText(const HostEntry& host, const std::vector<FileEntry>& files) {
    std::string text =
        "<?xml version=\"1.0\"?><searchresult><keyword>" + host.keyword + "</keyword><type>" +
        host.type + "</type><nodeid>" + host.nodeId + "</nodeid><ip>" + host.ip + "</ip><port>" +
        host.port + "</port><speed>" + host.speed + "</speed><vendorCode>" + host.vendorCode +
        "</vendorCode><opendata size=\"2\">" + host.openData + "</opendata><ResultSet>";
    for (const FileEntry& file : files) {
        text += "<FileInfo id=\"" + file.id + "\"><name>" + file.name + "</name><size>" +
                file.size + "</size><info>" + file.info + "</info><sha1>" + file.sha1 +
                "</sha1></FileInfo>";
    }
    text += "</ResultSet></searchresult>";
    return text;
}

} // namespace corvid::testing
