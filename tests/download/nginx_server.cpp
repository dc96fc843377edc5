#include "tests/download/test_support.h"

#include <asio/connect.hpp>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace corvid::download::testing {
namespace {

constexpr const char* kNginx = "/usr/sbin/nginx";

bool Accepts(std::uint16_t port) {
    asio::io_context context;
    asio::ip::tcp::socket socket(context);
    asio::error_code error;
    socket.connect({asio::ip::make_address("127.0.0.1"), port}, error);
    return !error;
}

} // namespace

NginxServer::NginxServer(const std::string& root, int ports,
                         const std::vector<std::uint64_t>& limitRates) {
    if (::access(kNginx, X_OK) != 0) {
        return;
    }
    // nginx's workers drop to an unprivileged user when started as root: let them read.
    std::filesystem::permissions(dir_.path(), std::filesystem::perms::all);
    std::filesystem::permissions(root, std::filesystem::perms::all);
    for (const auto& entry : std::filesystem::directory_iterator(root)) {
        std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all |
                                                       std::filesystem::perms::group_read |
                                                       std::filesystem::perms::others_read);
    }
    std::ostringstream config;
    config << "daemon off;\nworker_processes 1;\npid " << dir_.file("nginx.pid") << ";\nerror_log "
           << dir_.file("error.log") << " warn;\n"
           << "events { worker_connections 256; }\nhttp {\n"
           << "  default_type application/octet-stream;\n  sendfile on;\n  tcp_nopush on;\n"
           << "  keepalive_requests 100000;\n  keepalive_timeout 60s;\n"
           << "  log_format ranges \"$http_range\";\n"
           << "  access_log " << dir_.file("access.log") << " ranges;\n";
    for (const char* temp : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        config << "  " << temp << "_temp_path " << dir_.file(std::string(temp) + "_temp") << ";\n";
    }
    for (int i = 0; i < ports; ++i) {
        ports_.push_back(FreeLoopbackPort());
        const auto index = static_cast<std::size_t>(i);
        const std::uint64_t rate = index < limitRates.size() ? limitRates[index] : 0;
        config << "  server { listen 127.0.0.1:" << ports_.back() << "; root " << root << ";";
        if (rate > 0) {
            config << " limit_rate " << rate << ";";
        }
        config << " }\n";
    }
    config << "}\n";
    WriteWholeFile(dir_.file("nginx.conf"), config.str());

    const std::string prefix = dir_.path() + "/";
    const std::string conf = dir_.file("nginx.conf");
    const std::string errors = dir_.file("error.log");
    pid_ = ::fork();
    if (pid_ == 0) {
        ::execl(kNginx, kNginx, "-p", prefix.c_str(), "-c", conf.c_str(), "-e", errors.c_str(),
                static_cast<char*>(nullptr));
        ::_exit(127);
    }
    // Ready when every port answers; a connection attempt is the only way to know.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (std::uint16_t port : ports_) {
        while (!Accepts(port)) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_ ||
                std::chrono::steady_clock::now() > deadline) {
                pid_ = -1;
                return;
            }
            std::this_thread::yield();
        }
    }
}

NginxServer::~NginxServer() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
}

std::string NginxServer::url(int index, const std::string& name) const {
    return "http://127.0.0.1:" + std::to_string(ports_.at(static_cast<std::size_t>(index))) + "/" +
           name;
}

std::vector<std::string> NginxServer::rangesRequested() const {
    std::vector<std::string> ranges;
    std::ifstream log(dir_.file("access.log"));
    for (std::string line; std::getline(log, line);) {
        ranges.push_back(line);
    }
    return ranges;
}

} // namespace corvid::download::testing
