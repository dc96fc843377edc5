// corvid-tool results [--type TYPE] [--limit N] FILE...
//
// Reads each file as one engine result text into a single result store, as a search window
// does, and prints the store: one line per group in order of arrival, each source indented
// beneath it, every line the result list's fifteen cells tab-separated.

#include "search/result_cells.h"
#include "search/search_result_reader.h"
#include "tools/tool_commands.h"

#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace corvid::tool {
namespace {

void PrintUsage() {
    std::cerr << "usage: corvid-tool results [--type TYPE] [--limit N] FILE...\n"
                 "  --type TYPE  the search type the window shows (the texts' own type filters)\n"
                 "  --limit N    the window's limit of distinct files (default "
              << kDefaultResultLimit << ")\n";
}

bool ReadWholeFile(const std::string& path, std::string& text) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return false;
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    if (file.bad()) {
        return false;
    }
    text = std::move(contents).str();
    return true;
}

void PrintRow(const ResultGroup& group, int sourceIndex, const char* indent) {
    std::string line = indent;
    for (std::size_t i = 0; i < kResultColumns.size(); ++i) {
        if (i != 0) {
            line += '\t';
        }
        line += CellText(group, sourceIndex, kResultColumns[i]);
    }
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stdout);
}

} // namespace

int RunResults(int argc, char** argv) {
    std::string searchType;
    int limit = kDefaultResultLimit;
    std::vector<std::string> paths;
    for (int i = 0; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--type" || argument == "--limit") {
            if (i + 1 >= argc) {
                PrintUsage();
                return 2;
            }
            const std::string value = argv[++i];
            if (argument == "--type") {
                searchType = value;
                continue;
            }
            const auto [end, error] =
                std::from_chars(value.data(), value.data() + value.size(), limit);
            if (error != std::errc() || end != value.data() + value.size() || limit < 0) {
                std::cerr << "corvid-tool results: --limit wants a count, not '" << value << "'\n";
                return 2;
            }
        } else if (argument.size() > 1 && argument[0] == '-') {
            PrintUsage();
            return 2;
        } else {
            paths.push_back(argument);
        }
    }
    if (paths.empty()) {
        PrintUsage();
        return 2;
    }

    ResultStore store(limit);
    int accepted = 0;
    int filesRead = 0;
    int exitCode = 0;
    for (const std::string& path : paths) {
        std::string text;
        if (!ReadWholeFile(path, text)) {
            std::cerr << "corvid-tool results: cannot read " << path << "\n";
            exitCode = 1;
            continue;
        }
        const ReadCount read = ReadResultFiles(text, [&](ParsedResult& result) {
            if (AcceptResult(store, std::move(result))) {
                ++accepted;
            }
        });
        if (!read) {
            std::cerr << "corvid-tool results: " << path
                      << ": string length out of range (0x80070057)\n";
            exitCode = 1;
            continue;
        }
        filesRead += read.value();
    }

    if (!searchType.empty()) {
        std::printf("search type: %s\n", searchType.c_str());
    }
    for (const auto& group : store.Groups()) {
        PrintRow(*group, -1, "");
        for (std::size_t i = 0; i < group->sources.size(); ++i) {
            PrintRow(*group, static_cast<int>(i), "  ");
        }
    }
    std::printf("accepted %d of %d files\n", accepted, filesRead);
    return exitCode;
}

} // namespace corvid::tool
