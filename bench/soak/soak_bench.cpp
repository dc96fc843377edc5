// Our ultrapeer (a corvid-node process, so its resident memory is its own) in a neighbourhood of
// 200 loopback connections for a minute, twice: with only the well-behaved half, then with the
// hostile half too. Prints what the good servents got in each run, the node's peak memory, how
// fast each kind of abuser was dropped and why, and how often it came back to find its address
// resting. Any abuser left connected is a failure line.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/soak/soak_harness.h"

extern char** environ;

using namespace corvid;
using namespace corvid::soak;
using namespace std::chrono_literals;

namespace {

// Per link, at most: the framer's one partial message (64 KiB + header), the socket read chunk
// (16 KiB), an inflater (zlib's 32 KiB window and ~7 KiB state) and a deflater (256 KiB at the
// default level: a 128 KiB window pair and 128 KiB of hash chains), a leaf's routing tables (the
// table being built and the last complete one, 2 x 128 KiB at the 2^20-slot limit, and their
// inflater) and what the node has queued for the peer to read. Readers that keep up hold little
// in the queue; 64 KiB is allowed here. That is about 740 KiB a link; 200 links make 145 MiB.
// Besides the links: three route tables of two generations of 100000 GUIDs at ~64 bytes an
// entry (37 MiB), 1000 dynamic queries holding a query of at most 8 KiB (8 MiB) and the program
// itself (~10 MiB).
constexpr double kMemoryBoundMiB = 200;
constexpr double kTargetRatio = 0.80;

struct Run {
    SoakResult soak;
    double peak_mib = 0;
    double cpu_seconds = 0;
    bool crashed = false;
    std::string exit_note;
    std::map<std::string, std::string> reasons; // by the client's address as the node saw it
    int refused_unfinished = 0;                 // connections closed before their handshake began
};

std::optional<std::string> ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// User and system time of a process that has not been reaped yet.
double CpuSeconds(pid_t pid) {
    auto stat = ReadText("/proc/" + std::to_string(pid) + "/stat");
    if (!stat)
        return 0;
    // Fields after the command name, which ends at the last ')': utime and stime are 14 and 15.
    std::istringstream fields(stat->substr(stat->rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i)
        if (i >= 14)
            ticks += std::strtod(field.c_str(), nullptr);
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double PeakResidentMiB(pid_t pid) {
    auto status = ReadText("/proc/" + std::to_string(pid) + "/status");
    if (!status)
        return 0;
    auto at = status->find("VmHWM:");
    if (at == std::string::npos)
        return 0;
    return std::strtod(status->c_str() + at + 6, nullptr) / 1024.0;
}

int CountRefusals(const std::string& log) {
    int n = 0;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        n += line.starts_with("refused ");
    return n;
}

// "dropped 12 127.0.0.1:40312 leaf Push flood"
std::map<std::string, std::string> DropReasons(const std::string& log) {
    std::map<std::string, std::string> out;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with("dropped "))
            continue;
        std::istringstream words(line);
        std::string word, id, address, kind;
        words >> word >> id >> address >> kind;
        std::string reason;
        std::getline(words, reason);
        if (!reason.empty() && reason.front() == ' ')
            reason.erase(0, 1);
        out[address] = reason;
    }
    return out;
}

std::optional<Run> RunOnce(const std::string& node_path, const std::string& dir,
                           const SoakOptions& base, bool hostile) {
    const std::string ini = dir + "/network.ini";
    const std::string port_file = dir + (hostile ? "/port-hostile" : "/port-clean");
    const std::string log_file = dir + (hostile ? "/node-hostile.log" : "/node-clean.log");
    std::ofstream(ini) << "[NetWork]\nNodeMode=1\nUltraPeerMaxCount=64\nUltraPeerMinCount=0\n"
                          "LeafPeerMaxCount=1000\n";
    std::vector<std::string> args{node_path, "--listen",    "127.0.0.1:0", "--network-ini",
                                  ini,       "--port-file", port_file};
    std::vector<char*> argv;
    for (auto& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log_file.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t pid = -1;
    int spawned = posix_spawn(&pid, node_path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        std::fprintf(stderr, "bench_soak: cannot start %s\n", node_path.c_str());
        return std::nullopt;
    }
    std::optional<std::uint16_t> port;
    for (int i = 0; i < 100 && !port; ++i) {
        if (auto text = ReadText(port_file); text && !text->empty())
            port = static_cast<std::uint16_t>(std::atoi(text->c_str()));
        else
            std::this_thread::sleep_for(100ms);
    }
    Run run;
    if (port) {
        SoakOptions options = base;
        options.target = {0x7F000001, *port};
        if (!hostile)
            options.hostile = 0;
        run.soak = RunSoak(options);
        run.peak_mib = PeakResidentMiB(pid);
        run.cpu_seconds = CpuSeconds(pid);
    }
    int status = 0;
    bool exited = waitpid(pid, &status, WNOHANG) == pid;
    if (exited) {
        run.crashed = true;
        run.exit_note = WIFSIGNALED(status)
                            ? std::string("killed by signal ") + strsignal(WTERMSIG(status))
                            : "exited early";
    } else {
        kill(pid, SIGTERM);
        for (int i = 0; i < 100 && !exited; ++i) {
            exited = waitpid(pid, &status, WNOHANG) == pid;
            if (!exited)
                std::this_thread::sleep_for(100ms);
        }
        if (!exited) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            run.exit_note = "did not stop on SIGTERM";
        } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            run.crashed = true;
            run.exit_note = "bad exit on SIGTERM";
        }
    }
    if (!port) {
        std::fprintf(stderr, "bench_soak: the node never said its port\n");
        return std::nullopt;
    }
    const std::string log = ReadText(log_file).value_or("");
    run.reasons = DropReasons(log);
    run.refused_unfinished = CountRefusals(log);
    return run;
}

double Median(std::vector<double> v) {
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    return v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_soak CORVID_NODE [SECONDS]\n");
        return 2;
    }
    const std::string node_path = argv[1];
    SoakOptions options;
    if (argc > 2)
        options.duration = std::chrono::seconds(std::clamp(std::atoi(argv[2]), 10, 600));
    if (options.duration < 2 * options.hostile_margin)
        options.hostile_margin = options.duration / 2;

    const char* tmp = std::getenv("TMPDIR");
    std::string dir = std::string(tmp && *tmp ? tmp : "/tmp") + "/corvid-soak.XXXXXX";
    if (!mkdtemp(dir.data())) {
        std::fprintf(stderr, "bench_soak: cannot make a work folder\n");
        return 2;
    }
    const int good =
        options.sharing_leaves + options.searching_leaves + options.searching_ultrapeers;
    std::printf("soak: %d connections to one ultrapeer for %lld s, run clean then hostile\n",
                good + options.hostile, static_cast<long long>(options.duration.count()));
    std::printf("  good: %d sharing leaves, %d searching leaves, %d searching ultrapeers\n",
                options.sharing_leaves, options.searching_leaves, options.searching_ultrapeers);
    std::printf("  hostile: %d clients of %d kinds, each from its own address, back 1 s after each "
                "drop or refusal\n",
                options.hostile, kHostileKinds);
    std::fflush(stdout);

    auto clean = RunOnce(node_path, dir, options, false);
    auto hostile = clean ? RunOnce(node_path, dir, options, true) : std::nullopt;
    std::string cleanup = "rm -rf '" + dir + "'";
    if (std::system(cleanup.c_str()) != 0)
        std::fprintf(stderr, "bench_soak: could not remove the work folder\n");
    if (!clean || !hostile)
        return 1;

    std::vector<std::string> failures;
    auto row = [](const char* name, auto a, auto b) {
        std::printf("  %-28s %12llu %12llu\n", name, static_cast<unsigned long long>(a),
                    static_cast<unsigned long long>(b));
    };
    std::printf("\n  %-28s %12s %12s\n", "good servents got", "clean", "hostile");
    row("links opened", clean->soak.good_connected, hostile->soak.good_connected);
    row("links lost", clean->soak.good_links_lost, hostile->soak.good_links_lost);
    row("searches sent", clean->soak.searches, hostile->soak.searches);
    row("searches answered", clean->soak.searches_answered, hostile->soak.searches_answered);
    row("results returned", clean->soak.results, hostile->soak.results);
    auto median_ms = [](const Run& run) { return 1000 * Median(run.soak.first_hit_seconds); };
    std::printf("  %-28s %12.1f %12.1f\n", "median first hit ms", median_ms(*clean),
                median_ms(*hostile));
    std::printf("  %-28s %12.1f %12.1f   (bound %.0f MiB)\n", "node peak resident MiB",
                clean->peak_mib, hostile->peak_mib, kMemoryBoundMiB);
    std::printf("  %-28s %12.2f %12.2f\n", "node CPU seconds", clean->cpu_seconds,
                hostile->cpu_seconds);
    row("refused unfinished", clean->refused_unfinished, hostile->refused_unfinished);

    const double ratio = clean->soak.results ? static_cast<double>(hostile->soak.results) /
                                                   static_cast<double>(clean->soak.results)
                                             : 0;
    const double answered_ratio = clean->soak.searches_answered
                                      ? static_cast<double>(hostile->soak.searches_answered) /
                                            static_cast<double>(clean->soak.searches_answered)
                                      : 0;
    std::printf("\n  results hostile/clean: %.1f%%   searches answered hostile/clean: %.1f%%   "
                "(target >= %.0f%%)\n",
                100 * ratio, 100 * answered_ratio, 100 * kTargetRatio);
    if (ratio < kTargetRatio || answered_ratio < kTargetRatio)
        failures.push_back("good servents got less than 80% of the clean run");
    if (hostile->peak_mib > kMemoryBoundMiB || clean->peak_mib > kMemoryBoundMiB)
        failures.push_back("peak resident memory over the bound");
    for (const auto* run : {&*clean, &*hostile}) {
        if (run->crashed)
            failures.push_back("the node crashed: " + run->exit_note);
        else if (!run->exit_note.empty())
            failures.push_back("the node " + run->exit_note);
        if (run->soak.good_links_lost > 0)
            for (const auto& why : run->soak.good_loss_reasons)
                failures.push_back("a good servent lost its link: " + why);
    }

    std::printf("\n  %-18s %8s %8s %8s %9s %7s  %s\n", "hostile kind", "sessions", "dropped",
                "resting", "median s", "max s", "reason logged");
    int all_resting = 0;
    for (int k = 0; k < kHostileKinds; ++k) {
        const auto kind = static_cast<Hostile>(k);
        int sessions = 0, dropped = 0, resting = 0;
        std::vector<double> delays;
        std::map<std::string, int> reasons;
        std::map<int, bool> client_dropped;
        for (const auto& s : hostile->soak.hostile) {
            if (s.kind != kind)
                continue;
            ++sessions;
            const std::string address = s.local.ToString();
            auto reason = hostile->reasons.count(address) ? hostile->reasons.at(address) : "";
            ++reasons[reason.empty() ? "(none)" : reason];
            if (s.closed && s.misbehaving && reason == ExpectedReason(kind)) {
                ++dropped;
                client_dropped[s.client] = true;
                delays.push_back(*s.closed - *s.misbehaving);
            } else if (s.closed && reason == kRestingReason && s.answer == kRestingAnswer &&
                       client_dropped[s.client]) {
                // Refused while its address rests: not another drop.
                ++resting;
            } else {
                failures.push_back(
                    std::string(HostileName(kind)) + " from " + address +
                    (s.closed ? " closed with \"" + reason + "\"" : " was never dropped"));
            }
        }
        std::string logged;
        for (const auto& [why, n] : reasons)
            logged += (logged.empty() ? "" : ", ") + why + " x" + std::to_string(n);
        all_resting += resting;
        std::printf("  %-18s %8d %8d %8d %9.3f %7.3f  %s\n", HostileName(kind), sessions, dropped,
                    resting, Median(delays),
                    delays.empty() ? 0.0 : *std::max_element(delays.begin(), delays.end()),
                    logged.c_str());
        if (sessions == 0)
            failures.push_back(std::string(HostileName(kind)) + ": no session ran");
    }
    std::printf("\n  reconnects refused while resting: %d\n\n", all_resting);
    if (clean->refused_unfinished > 0)
        failures.push_back("good servents were refused for unfinished connections");
    for (const auto& f : failures)
        std::printf("FAIL: %s\n", f.c_str());
    std::printf("%s\n", failures.empty() ? "soak: all targets met" : "soak: FAILED");
    return failures.empty() ? 0 : 1;
}
