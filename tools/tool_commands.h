#pragma once

// The subcommands of corvid-tool, one source file each. Each takes the arguments after its own
// name and returns the process's exit code.

namespace corvid::tool {

int RunResults(int argc, char** argv);

} // namespace corvid::tool
