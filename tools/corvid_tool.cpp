// corvid-tool: small command-line views of what the plug-in reads, one subcommand per source file.

#include "tools/corvid_tool.h"

#include <cstring>
#include <iostream>

namespace {

struct Subcommand {
    const char* name;
    corvid::tool::Command run;
    const char* usage;
};

const Subcommand kSubcommands[] = {
    {"xml", corvid::tool::XmlCommand, "xml FILE                 parse FILE and write it back"},
    {"skin", corvid::tool::SkinCommand,
     "skin FILE                every field of the skin FILE gives"},
    {"text", corvid::tool::TextCommand,
     "text [--language-root DIR --language NAME] ID...   the texts shown for the ids"},
};

int Usage(std::ostream& err) {
    err << "usage: corvid-tool COMMAND ARGS...\n";
    for (const Subcommand& command : kSubcommands) {
        err << "  corvid-tool " << command.usage << '\n';
    }
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return Usage(std::cerr);
    }
    for (const Subcommand& command : kSubcommands) {
        if (std::strcmp(argv[1], command.name) == 0) {
            return command.run(std::span<char* const>(argv + 2, static_cast<std::size_t>(argc - 2)),
                               std::cout, std::cerr);
        }
    }
    return Usage(std::cerr);
}
