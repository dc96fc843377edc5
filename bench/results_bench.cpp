// Ingest throughput of the engine's result texts: our flat scanner plus AcceptResult against a
// reader built on pugixml that extracts the same fields into the same kind of store.
//
// The texts: 5,000 answers of 20 files each, every answer from a host of its own; half the
// files of each answer are new, half are further sources of files already seen.

#include "search/result_cells.h"
#include "search/search_result_reader.h"

#include <pugixml.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kTexts = 5000;
constexpr int kFilesPerText = 20;
constexpr int kRounds = 7;
// Large enough that every file is really filed; the window's default would stop at 10,000.
constexpr int kStoreLimit = 1000000;

const char* const kExtensions[] = {".mp3", ".avi", ".zip", ".jpg", ".exe", ".txt", ".mpg"};

std::string Sha1Text(std::mt19937& random) {
    static const char kBase32[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
    std::string sha1(32, 'A');
    for (char& c : sha1) {
        c = kBase32[random() % 32];
    }
    return sha1;
}

std::vector<std::string> MakeTexts() {
    std::mt19937 random(20261121);
    std::vector<std::string> seenSha1;
    std::vector<std::string> seenNames;
    std::vector<std::string> texts;
    texts.reserve(kTexts);
    for (int t = 0; t < kTexts; ++t) {
        std::string text = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<searchresult "
                           "version=\"1.0\">\n";
        text += "  <keyword>corvid night train</keyword>\n  <type>All</type>\n";
        text += "  <nodeid>" + Sha1Text(random) + "</nodeid>\n";
        text += "  <ip>" + std::to_string(10 + t / 65536) + "." + std::to_string(t / 256 % 256) +
                "." + std::to_string(t % 256) + "." + std::to_string(1 + random() % 250) +
                "</ip>\n";
        text += "  <port>" + std::to_string(6346 + random() % 100) + "</port>\n";
        text += "  <speed>" + std::to_string(random() % 5000) + "</speed>\n";
        text += "  <vendorCode>CRVD</vendorCode>\n";
        text += std::string("  <opendata size=\"2\">") + (random() % 4 == 0 ? "1d" : "1c") +
                "</opendata>\n  <ResultSet>\n";
        for (int f = 0; f < kFilesPerText; ++f) {
            std::string sha1;
            std::string name;
            if (f % 2 == 1 && !seenSha1.empty()) {
                const std::size_t known = random() % seenSha1.size();
                sha1 = seenSha1[known];
                name = seenNames[known];
            } else {
                sha1 = Sha1Text(random);
                name = "Artist " + std::to_string(random() % 1000) + " - Track " +
                       std::to_string(t * kFilesPerText + f) +
                       kExtensions[random() % std::size(kExtensions)];
                seenSha1.push_back(sha1);
                seenNames.push_back(name);
            }
            text += "    <FileInfo id=\"" + std::to_string(random() % 100000) + "\">\n";
            text += "      <name>" + name + "</name>\n";
            text += "      <size>" + std::to_string(random() % 700000000) + "</size>\n";
            text += "      <info>128kbps 44kHz stereo</info>\n";
            text += "      <sha1>" + sha1 + "</sha1>\n    </FileInfo>\n";
        }
        text += "  </ResultSet>\n</searchresult>\n";
        texts.push_back(std::move(text));
    }
    return texts;
}

// The reference: a whole document tree per text, then the same fields taken from it and handed
// to sink one file at a time, as the download side's reading does.
template <typename Sink> int ReadWithPugixml(const std::string& text, Sink&& sink) {
    pugi::xml_document document;
    if (!document.load_buffer(text.data(), text.size())) {
        return 0;
    }
    const pugi::xml_node root = document.child("searchresult");
    corvid::ParsedResult result;
    corvid::ResultSource& source = result.source;
    const char* const keyword = root.child_value("keyword");
    const char* const type = root.child_value("type");
    const char* const nodeId = root.child_value("nodeid");
    const char* const host = root.child_value("ip");
    const int port = root.child("port").text().as_int();
    const int speed = root.child("speed").text().as_int();
    const char* const vendorCode = root.child_value("vendorCode");
    const unsigned flags = std::strtoul(root.child_value("opendata"), nullptr, 16);
    int files = 0;
    for (const pugi::xml_node file : root.child("ResultSet").children("FileInfo")) {
        source.name = file.child_value("name");
        source.host = host;
        source.port = port;
        source.fileIndex = file.attribute("id").as_int();
        source.size = file.child("size").text().as_int();
        source.speed = speed;
        source.type = type;
        source.vendorCode = vendorCode;
        source.browsable = flags & 1u ? 0 : 1;
        source.uptime.clear();
        source.guid.clear();
        source.nodeId = nodeId;
        source.info = file.child_value("info");
        source.push = flags & 1u ? 1 : 0;
        result.sha1 = file.child_value("sha1");
        result.keyword = keyword;
        sink(result);
        ++files;
    }
    return files;
}

int IngestWithPugixml(corvid::ResultStore& store, const std::string& text) {
    int accepted = 0;
    ReadWithPugixml(text, [&](corvid::ParsedResult& result) {
        if (corvid::AcceptResult(store, std::move(result))) {
            ++accepted;
        }
    });
    return accepted;
}

int IngestWithScanner(corvid::ResultStore& store, const std::string& text) {
    return corvid::ReadSearchResult(store, text).value();
}

// Reading alone: every field is looked at, nothing is stored.
std::size_t Touch(const corvid::ParsedResult& r) {
    return r.source.name.size() + r.source.host.size() + r.source.type.size() +
           r.source.vendorCode.size() + r.source.nodeId.size() + r.source.info.size() +
           r.sha1.size() + r.keyword.size() +
           static_cast<std::size_t>(r.source.port + r.source.fileIndex + r.source.size +
                                    r.source.speed + r.source.push);
}

int ReadOnlyWithPugixml(corvid::ResultStore&, const std::string& text) {
    std::size_t sum = 0;
    ReadWithPugixml(text, [&](corvid::ParsedResult& result) { sum += Touch(result); });
    return static_cast<int>(sum & 1);
}

int ReadOnlyWithScanner(corvid::ResultStore&, const std::string& text) {
    std::size_t sum = 0;
    corvid::ReadResultFiles(text, [&](corvid::ParsedResult& result) { sum += Touch(result); });
    return static_cast<int>(sum & 1);
}

// What the list would show, to check that both readers filed the same things.
std::string Fingerprint(const corvid::ResultStore& store) {
    std::string all;
    for (const auto& group : store.Groups()) {
        for (int row = -1; row < static_cast<int>(group->sources.size()); ++row) {
            for (const std::uint32_t column : corvid::kResultColumns) {
                all += corvid::CellText(*group, row, column);
                all += '\t';
            }
        }
    }
    return all;
}

// Processor time of this thread: the machine is shared, and wall time would count the turns of
// other programs.
double ThreadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <typename Reader>
double TimeOneRound(const std::vector<std::string>& texts, Reader read, std::string* fingerprint) {
    corvid::ResultStore store(kStoreLimit);
    const double start = ThreadSeconds();
    long long accepted = 0;
    for (const std::string& text : texts) {
        accepted += read(store, text);
    }
    const double elapsed = ThreadSeconds() - start;
    if (fingerprint != nullptr) {
        *fingerprint = std::to_string(accepted) + "\n" + Fingerprint(store);
    }
    return elapsed;
}

struct Figures {
    double ours = 1e9;
    double reference = 1e9;
};

// Rounds alternate between the readers so that both see the same machine load.
template <typename Ours, typename Reference>
Figures BestOf(const std::vector<std::string>& texts, Ours ours, Reference reference) {
    Figures best;
    for (int round = 0; round < kRounds; ++round) {
        best.ours = std::min(best.ours, TimeOneRound(texts, ours, nullptr));
        best.reference = std::min(best.reference, TimeOneRound(texts, reference, nullptr));
    }
    return best;
}

void Print(const char* what, const Figures& figures, double files, double megabytes) {
    std::printf("%s\n", what);
    std::printf("  tag scanner: %10.0f files/s %8.1f MB/s\n", files / figures.ours,
                megabytes / figures.ours);
    std::printf("  pugixml    : %10.0f files/s %8.1f MB/s\n", files / figures.reference,
                megabytes / figures.reference);
    std::printf("  ratio      : %.2f\n", figures.reference / figures.ours);
}

} // namespace

int main() {
    const std::vector<std::string> texts = MakeTexts();
    double megabytes = 0;
    for (const std::string& text : texts) {
        megabytes += static_cast<double>(text.size()) / (1024.0 * 1024.0);
    }
    const double files = static_cast<double>(kTexts) * kFilesPerText;

    std::string ourFiling;
    std::string referenceFiling;
    TimeOneRound(texts, IngestWithScanner, &ourFiling);
    TimeOneRound(texts, IngestWithPugixml, &referenceFiling);
    if (ourFiling != referenceFiling) {
        std::fprintf(stderr, "bench results: the two readers filed different results\n");
        return 1;
    }

    std::printf("%d result texts x %d files (%.1f MB), half of the files further sources of "
                "files already seen; processor time, best of %d rounds\n",
                kTexts, kFilesPerText, megabytes, kRounds);
    Print("ingest (read + AcceptResult into a store):",
          BestOf(texts, IngestWithScanner, IngestWithPugixml), files, megabytes);
    Print("reading alone (every field extracted, nothing stored):",
          BestOf(texts, ReadOnlyWithScanner, ReadOnlyWithPugixml), files, megabytes);
    return 0;
}
