// corvid-node processes for loopback network tests: started with their output on a pipe, read
// line by line against a deadline, and ended by their own pids when the test is done.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace corvid::testing {

class NodeProcess {
public:
    explicit NodeProcess(const std::vector<std::string>& args) {
        int fds[2];
        if (pipe(fds) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        std::vector<std::string> all{CORVID_NODE_PATH};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& a : all)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid_, CORVID_NODE_PATH, &actions, nullptr, argv.data(), environ) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(fds[1]);
        out_ = fds[0];
    }

    ~NodeProcess() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGTERM);
            Wait(std::chrono::seconds(10));
            if (!exited_) {
                kill(pid_, SIGKILL);
                waitpid(pid_, nullptr, 0);
            }
        }
        if (out_ >= 0)
            close(out_);
    }

    NodeProcess(const NodeProcess&) = delete;
    NodeProcess& operator=(const NodeProcess&) = delete;

    bool started() const { return pid_ > 0; }

    // The first line of output starting with prefix, read within the time given; empty if none.
    std::string LineStarting(const std::string& prefix, std::chrono::milliseconds patience) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (true) {
            for (std::size_t end; (end = pending_.find('\n')) != std::string::npos;) {
                std::string line = pending_.substr(0, end);
                pending_.erase(0, end + 1);
                log_ += line + "\n";
                if (line.starts_with(prefix))
                    return line;
            }
            if (!ReadSome(deadline))
                return {};
        }
    }

    // Waits for the process to end (reading its output meanwhile); its exit status, or -1.
    int Wait(std::chrono::milliseconds patience) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (!exited_) {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                exited_ = true;
                status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
                break;
            }
            if (!ReadSome(deadline) && std::chrono::steady_clock::now() >= deadline)
                return -1;
        }
        return status_;
    }

    // Everything read so far, for failure messages.
    std::string log() {
        LineStarting("\x01never", std::chrono::milliseconds(0));
        return log_ + pending_;
    }

private:
    // False once the deadline has passed with nothing read, or at the end of the output.
    bool ReadSome(std::chrono::steady_clock::time_point deadline) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || eof_) {
            if (eof_ && pid_ > 0 && !exited_) {
                // Nothing more to read: give the process a moment to be reaped.
                pollfd none{-1, 0, 0};
                poll(&none, 0, static_cast<int>(std::min<long long>(left.count(), 20)));
            }
            return false;
        }
        pollfd fd{out_, POLLIN, 0};
        if (poll(&fd, 1, static_cast<int>(std::min<long long>(left.count(), 100))) <= 0)
            return true;
        char buffer[4096];
        const ssize_t got = read(out_, buffer, sizeof buffer);
        if (got <= 0) {
            eof_ = true;
            return false;
        }
        pending_.append(buffer, static_cast<std::size_t>(got));
        return true;
    }

    pid_t pid_ = -1;
    int out_ = -1;
    bool exited_ = false;
    bool eof_ = false;
    int status_ = -1;
    std::string pending_;
    std::string log_;
};

// "listening 127.0.0.1:40001 leaf" -> "127.0.0.1:40001"
inline std::string ListeningAddress(NodeProcess& node) {
    const std::string line = node.LineStarting("listening ", std::chrono::seconds(20));
    const std::size_t space = line.find(' ', 10);
    return line.empty() ? std::string() : line.substr(10, space - 10);
}

} // namespace corvid::testing
