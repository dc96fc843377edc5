// corvid-tool text [--language-root DIR --language NAME] ID...: the text that the plug-in shows for
// each string-table id, one per line, through the language file DIR/NAME/Corvid.srml when given.

#include "markup/host_files.h"
#include "markup/language_table.h"
#include "tools/tool_commands.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <span>
#include <string>

namespace corvid::tool {

namespace {

// Maps the plug-in's "<host>\language\..." paths onto a language root on this machine.
class LanguageRootFiles : public HostFiles {
public:
    explicit LanguageRootFiles(std::string root) : root_(std::move(root)), disk_(".") {}
    std::string HostFolder() const override { return "<host>"; }
    std::optional<std::string> ReadFile(const std::string& path) const override {
        const std::string prefix = "<host>\\language\\";
        if (path.compare(0, prefix.size(), prefix) != 0) {
            return std::nullopt;
        }
        std::string local = root_ + "/" + path.substr(prefix.size());
        for (char& c : local) {
            if (c == '\\') {
                c = '/';
            }
        }
        return disk_.ReadFile(local);
    }

private:
    std::string root_;
    StdioHostFiles disk_;
};

bool ParseId(const char* text, std::uint32_t& id) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (!*text || *end || value > 0xFFFFFFFFul) {
        return false;
    }
    id = static_cast<std::uint32_t>(value);
    return true;
}

} // namespace

int RunText(int argc, char** argv) {
    const std::span<char* const> args(argv, static_cast<std::size_t>(argc));
    std::ostream& out = std::cout;
    std::ostream& err = std::cerr;
    const char* root = nullptr;
    const char* language = nullptr;
    std::size_t next = 0;
    while (next + 1 < args.size() && std::strncmp(args[next], "--", 2) == 0) {
        if (std::strcmp(args[next], "--language-root") == 0) {
            root = args[next + 1];
        } else if (std::strcmp(args[next], "--language") == 0) {
            language = args[next + 1];
        } else {
            break;
        }
        next += 2;
    }
    if (next >= args.size() || (root == nullptr) != (language == nullptr)) {
        err << "usage: corvid-tool text [--language-root DIR --language NAME] ID...\n";
        return 2;
    }
    LanguageTable table;
    if (root) {
        const LanguageRootFiles files(root);
        InstallHostFiles(&files);
        table.Load(language);
        InstallHostFiles(nullptr);
    }
    int status = 0;
    for (; next < args.size(); ++next) {
        std::uint32_t id = 0;
        std::string text;
        if (!ParseId(args[next], id)) {
            err << "corvid-tool: not an id: " << args[next] << '\n';
            status = 2;
        } else if (!table.LoadText(id, text)) {
            err << "corvid-tool: no text for " << id << '\n';
            status = 1;
        }
        out << text << '\n';
    }
    return status;
}

} // namespace corvid::tool
