// corvid-node get: one file fetched by its SHA1 with the downloader behind Download.dll.
#pragma once

#include "tools/corvid_node/arguments.h"

namespace corvid::node_tool {

// 0 only when the whole file is in the output folder and hashes to the SHA1 asked for; 1 when
// the download failed; 2 when the request itself was unusable.
int RunGet(const Arguments& args);

} // namespace corvid::node_tool
