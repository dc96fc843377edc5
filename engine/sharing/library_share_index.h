// The servent's view of the file manager's index: the real shared folders and hashes behind the
// interface the servent answers queries from.
#pragma once

#include "engine/core/shared_file_index.h"
#include "library/file_index.h"

namespace corvid::gnutella {

class LibraryShareIndex : public SharedFileIndex {
public:
    explicit LibraryShareIndex(const library::FileIndex& files) : files_(files) {}

    std::vector<SharedFile> Match(const std::vector<std::string>& keywords,
                                  const std::vector<std::string>& sha1s,
                                  std::size_t max_results) const override;
    std::vector<SharedFile> All() const override;
    std::uint64_t Revision() const override { return files_.Revision(); }

private:
    const library::FileIndex& files_;
};

} // namespace corvid::gnutella
