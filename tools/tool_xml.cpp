// corvid-tool xml FILE: parse a file as every reader of the plug-in does and write the whole
// document back, TAB-indented with line breaks.

#include "markup/xml.h"
#include "tools/tool_commands.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <span>

namespace corvid::tool {

namespace {

// The whole file in a NUL-terminated heap buffer, or null.
char* ReadWholeFile(const char* path) {
    std::FILE* file = std::fopen(path, "rb");
    if (!file) {
        return nullptr;
    }
    std::size_t size = 0;
    std::size_t capacity = 64 * 1024;
    char* text = static_cast<char*>(std::malloc(capacity + 1));
    while (text) {
        size += std::fread(text + size, 1, capacity - size, file);
        if (size < capacity) {
            break;
        }
        capacity *= 2;
        char* grown = static_cast<char*>(std::realloc(text, capacity + 1));
        if (!grown) {
            std::free(text);
        }
        text = grown;
    }
    bool failed = std::ferror(file);
    std::fclose(file);
    if (!text || failed) {
        std::free(text);
        return nullptr;
    }
    text[size] = '\0';
    return text;
}

} // namespace

int RunXml(int argc, char** argv) {
    const std::span<char* const> args(argv, static_cast<std::size_t>(argc));
    std::ostream& out = std::cout;
    std::ostream& err = std::cerr;
    if (args.size() != 1) {
        err << "usage: corvid-tool xml FILE\n";
        return 2;
    }
    char* text = ReadWholeFile(args[0]);
    if (!text) {
        err << "corvid-tool: cannot read " << args[0] << '\n';
        return 1;
    }
    XmlDocument document;
    document.Parse(text, kXmlStandardReader);
    document.Write(out, '\t', true);
    return out.good() ? 0 : 1;
}

} // namespace corvid::tool
