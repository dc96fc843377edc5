#pragma once

#include <iosfwd>
#include <span>
#include <string_view>

namespace corvid::tool {

// One subcommand: its arguments (after the subcommand's name), its output and error streams.
// Returns the process exit code.
using Command = int (*)(std::span<char* const> args, std::ostream& out, std::ostream& err);

int XmlCommand(std::span<char* const> args, std::ostream& out, std::ostream& err);
int SkinCommand(std::span<char* const> args, std::ostream& out, std::ostream& err);
int TextCommand(std::span<char* const> args, std::ostream& out, std::ostream& err);

} // namespace corvid::tool
