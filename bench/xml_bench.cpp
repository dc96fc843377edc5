// Parse throughput of the element tree beside pugixml on the same buffers, in the same run:
// (a) a small skin-like file parsed many times, (b) one large generated document. Prints the best
// round of each parser and their ratio (above 1: the element tree is faster). For (b) it also
// prints the page faults each parse takes: on a large document most of either parser's time goes
// to the kernel handing it fresh pages, and "--resident" shows what is left when the allocator
// keeps its freed memory for the next parse, so that neither parser takes a fault.

#include "markup/xml.h"

#include <pugixml.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <sys/resource.h>

namespace {

using Clock = std::chrono::steady_clock;

std::string SkinLikeFile() {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"gb2312\"?>\n"
        "<!-- Corvid skin: the default look -->\n"
        "<skin name=\"Classic\" author=\"Tarvo\" version=\"2.1\">\n"
        "  <rebar background=\"rebar_bg.bmp\" backcolor=\"#D4D0C8\" mode=\"stretch\"/>\n"
        "  <tabbar background=\"tabbar_bg.bmp\" backcolor=\"#ECE9D8\" mode=\"tile\"/>\n"
        "  <statusbar background=\"status_bg.bmp\" backcolor=\"#ECE9D8\" mode=\"tile\" "
        "bitmap=\"status_icons.bmp\"/>\n"
        "  <toolbar large=\"toolbar_large.bmp\" small=\"toolbar_small.bmp\"/>\n"
        "  <addressbar bitmap=\"address.bmp\"/>\n  <systembar bitmap=\"system.bmp\"/>\n"
        "  <tab>\n"
        "    <active background=\"tab_active.bmp\" mode=\"stretch\" backcolor=\"#FFFFFF\" "
        "textcolor=\"#000000\" borderwidth=\"1,1,1,0\" "
        "bordercolor=\"#7F9DB9,#7F9DB9,#7F9DB9,#FFFFFF\"/>\n"
        "    <normal background=\"tab_normal.bmp\" mode=\"stretch\" backcolor=\"#ECE9D8\" "
        "textcolor=\"#444444\" borderwidth=\"1\" bordercolor=\"#ACA899\"/>\n"
        "  </tab>\n"
        "  <rootmenu>\n"
        "    <hot background=\"\" mode=\"tile\" backcolor=\"#C1D2EE\" textcolor=\"#000000\" "
        "borderwidth=\"1\" bordercolor=\"#316AC5\"/>\n"
        "    <active background=\"\" mode=\"tile\" backcolor=\"#98B5E2\" textcolor=\"#000000\" "
        "borderwidth=\"1\" bordercolor=\"#4B4B6F\"/>\n"
        "    <normal background=\"\" mode=\"tile\" backcolor=\"#ECE9D8\" textcolor=\"#000000\" "
        "borderwidth=\"0\" bordercolor=\"#ECE9D8\"/>\n"
        "  </rootmenu>\n"
        "  <menu>\n    <sidebar backcolor=\"#E3E0D7\"/>\n"
        "    <active backcolor=\"#C1D2EE\" textcolor=\"#000000\" bordercolor=\"#316AC5\" "
        "borderwidth=\"1\"/>\n"
        "    <normal backcolor=\"#FFFFFF\" textcolor=\"#000000\"/>\n"
        "    <disabled backcolor=\"#FFFFFF\" textcolor=\"#ACA899\"/>\n"
        "    <seperator color=\"#ACA899\" style=\"solid\" width=\"1\"/>\n  </menu>\n"
        "  <minibar background=\"minibar.bmp\" backcolor=\"#ECE9D8\" mode=\"tile\"/>\n"
        "  <splash background=\"splash.bmp\"/>\n"
        "  <readingbar background=\"reading.bmp\" backcolor=\"#FFFFE1\" mode=\"stretch\" "
        "bitmap=\"reading_icons.bmp\"/>\n"
        "  <credits>Drawn for the plug-in's first release; the tab borders follow the "
        "host.</credits>\n"
        "</skin>\n";
    while (text.size() < 2048) {
        text.insert(text.size() - 8, "  <!-- padding to the size of a real skin file -->\n");
    }
    return text;
}

std::string GeneratedDocument(std::size_t target) {
    std::string text = "<?xml version=\"1.0\"?>\n<lang name=\"generated\">\n";
    text.reserve(target + 4096);
    char line[512];
    for (unsigned group = 0; text.size() < target; ++group) {
        std::snprintf(line, sizeof line, "  <string group=\"%u\">\n    <!-- group %u -->\n", group,
                      group);
        text += line;
        for (unsigned i = 0; i < 40; ++i) {
            std::snprintf(line, sizeof line,
                          "    <item id=\"IDS_TEXT_%u_%u\" value=\"Translated text number %u of "
                          "group %u, with a few words\" flags='%u'/>\n",
                          group, i, i, group, i * 7);
            text += line;
        }
        std::snprintf(
            line, sizeof line,
            "    <note lang=\"en\">Group %u holds forty items and this line of text.</note>\n"
            "  </string>\n",
            group);
        text += line;
    }
    text += "</lang>\n";
    return text;
}

// Seconds for `iterations` parses of `text` by one parser. Both parse from the same buffer: each
// copies it into memory of its own, as the plug-in's readers do.
double OursOnce(const std::string& text, int iterations, std::size_t& checksum) {
    const auto start = Clock::now();
    for (int i = 0; i < iterations; ++i) {
        corvid::XmlDocument document;
        document.ParseCopy(text, corvid::kXmlStandardReader);
        checksum += document.Root().ChildCount();
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double PugiOnce(const std::string& text, int iterations, std::size_t& checksum) {
    const unsigned pugiOptions = pugi::parse_default & ~pugi::parse_escapes;
    const auto start = Clock::now();
    for (int i = 0; i < iterations; ++i) {
        pugi::xml_document document;
        document.load_buffer(text.data(), text.size(), pugiOptions);
        checksum += document.first_child() ? 1 : 0;
    }
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The best round of each parser, in seconds, and the median over the rounds of the ratio of the
// two rounds run side by side. Rounds alternate between the parsers and which one goes first,
// after one warm-up round each that is not counted, so that caches, the allocator and a busy
// machine treat both alike: the best of many short rounds is the figure least disturbed by other
// work, and the paired ratio cancels the slower swings of the machine's speed.
struct Result {
    double ours;
    double pugi;
    double pairedRatio;
    long oursFaults; // minor page faults of the last round, per parse
    long pugiFaults;
};

long MinorFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

Result Measure(const std::string& text, int iterations, int rounds) {
    std::size_t checksum = 0;
    OursOnce(text, iterations, checksum);
    PugiOnce(text, iterations, checksum);
    Result best{1e30, 1e30, 0, 0, 0};
    std::vector<double> ratios;
    const auto timeOurs = [&] {
        const long before = MinorFaults();
        const double seconds = OursOnce(text, iterations, checksum);
        best.oursFaults = (MinorFaults() - before) / iterations;
        return seconds;
    };
    const auto timePugi = [&] {
        const long before = MinorFaults();
        const double seconds = PugiOnce(text, iterations, checksum);
        best.pugiFaults = (MinorFaults() - before) / iterations;
        return seconds;
    };
    for (int round = 0; round < rounds; ++round) {
        double ours;
        double pugi;
        if (round % 2 == 0) {
            ours = timeOurs();
            pugi = timePugi();
        } else {
            pugi = timePugi();
            ours = timeOurs();
        }
        best.ours = std::min(best.ours, ours);
        best.pugi = std::min(best.pugi, pugi);
        ratios.push_back(pugi / ours);
    }
    std::sort(ratios.begin(), ratios.end());
    best.pairedRatio = ratios[ratios.size() / 2];
    if (checksum == 0) {
        std::printf("(nothing parsed)\n");
    }
    return best;
}

void Report(const char* label, const std::string& text, int iterations, int rounds,
            bool withFaults) {
    const Result result = Measure(text, iterations, rounds);
    const double megabytes = static_cast<double>(text.size()) * iterations / 1e6;
    const double ours = megabytes / result.ours;
    const double pugi = megabytes / result.pugi;
    std::printf("%s\n    best round: corvid %7.1f MB/s   pugixml %7.1f MB/s   ratio %.2f   "
                "median paired ratio %.2f\n",
                label, ours, pugi, ours / pugi, result.pairedRatio);
    if (withFaults) {
        std::printf("    page faults a parse: corvid %ld   pugixml %ld\n", result.oursFaults,
                    result.pugiFaults);
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string option = argc > 1 ? argv[1] : "";
    const bool quick = option == "--quick";
    // "--resident": glibc keeps what either parser frees, and hands it out again, so that the
    // figures show the parsers' own work without the kernel's cost of fresh pages. Not what a
    // program parsing one large document sees: a diagnosis, not a result.
    if (option == "--resident") {
#if defined(__GLIBC__)
        mallopt(M_MMAP_MAX, 0);
        mallopt(M_TRIM_THRESHOLD, 1 << 30);
#else
        std::printf("--resident needs glibc\n");
        return 2;
#endif
    }
    const std::string skin = SkinLikeFile();
    const std::string large = GeneratedDocument(50u * 1000 * 1000);
    // "--once corvid" or "--once pugixml": one parse of the large document by one parser, for
    // counting its instructions and page faults with outside tools.
    if (argc > 2 && std::string(argv[1]) == "--once") {
        std::size_t checksum = 0;
        const double seconds = std::string(argv[2]) == "corvid" ? OursOnce(large, 1, checksum)
                                                                : PugiOnce(large, 1, checksum);
        std::printf("%s: %.1f MB/s\n", argv[2], large.size() / 1e6 / seconds);
        return checksum == 0;
    }
    std::printf(
        "xml parse throughput (corvid mask 0x3BDE; pugixml parse_default & ~parse_escapes)%s\n",
        option == "--resident" ? ", freed memory kept resident" : "");
    char label[96];
    // (a): 100,000 parses in rounds of 1,000 (a tenth of that with --quick).
    const int skinRounds = quick ? 10 : 100;
    std::snprintf(label, sizeof label, "(a) %zu-byte skin, %d rounds of 1000 parses", skin.size(),
                  skinRounds);
    Report(label, skin, 1000, skinRounds, false);
    const int largeRounds = quick ? 2 : 7;
    std::snprintf(label, sizeof label, "(b) %.1f MB generated document, %d rounds of 1 parse",
                  large.size() / 1e6, largeRounds);
    Report(label, large, 1, largeRounds, true);
    return 0;
}
