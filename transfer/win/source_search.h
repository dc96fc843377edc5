#pragma once

// Searches of the network by SHA1 ("urn:sha1:" keywords) that find more sources for downloads:
// each answering host's result text is read, and every file of the asked SHA1 is handed on.
// User-interface thread only: the engine fires its search events there.

#include <windows.h>

#include "platform/win/handles.h"
#include "search/result_records.h"

#include <functional>
#include <map>
#include <string>

struct IGnutellaEngine;
struct IGnutellaSearch;
struct IConnectionPoint;

namespace corvid::transfer::win {

class SourceSearches {
public:
    using HitHandler = std::function<void(const std::string& sha1, const ResultSource& hit)>;
    explicit SourceSearches(HitHandler onHit);
    ~SourceSearches();
    SourceSearches(const SourceSearches&) = delete;
    SourceSearches& operator=(const SourceSearches&) = delete;

    // Sends a search for the SHA1, or sends the running one again. False without an engine or
    // when the engine refuses.
    bool Ask(IGnutellaEngine* engine, const std::string& sha1);
    bool Asking(const std::string& sha1) const { return running_.count(sha1) != 0; }
    // Stops every search but those of `keep`.
    void StopAllBut(const std::function<bool(const std::string&)>& keep);

private:
    struct Running {
        corvid::win::ComPtr<IGnutellaSearch> search;
        corvid::win::ComPtr<IConnectionPoint> point;
        DWORD cookie = 0;
    };
    static void Stop(Running& running);

    HitHandler onHit_;
    std::map<std::string, Running> running_;
};

} // namespace corvid::transfer::win
