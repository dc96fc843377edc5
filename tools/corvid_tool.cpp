// corvid-tool: command-line access to the plug-in's portable parts.

#include "tools/tool_commands.h"

#include <cstdio>
#include <cstring>

namespace {

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
    const char* summary;
};

constexpr Command kCommands[] = {
    {"results", corvid::tool::RunResults, "read engine result texts into one result store"},
};

void PrintUsage() {
    std::fprintf(stderr, "usage: corvid-tool COMMAND [ARGS...]\n");
    for (const Command& command : kCommands) {
        std::fprintf(stderr, "  %-10s %s\n", command.name, command.summary);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        PrintUsage();
        return 2;
    }
    for (const Command& command : kCommands) {
        if (std::strcmp(argv[1], command.name) == 0) {
            return command.run(argc - 2, argv + 2);
        }
    }
    std::fprintf(stderr, "corvid-tool: unknown command '%s'\n", argv[1]);
    PrintUsage();
    return 2;
}
