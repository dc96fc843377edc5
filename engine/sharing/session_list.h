#pragma once

// The sessions a server has open, held weakly: a session lives as long as its own reads and writes
// keep it alive, and the server reaches the live ones only to end them when it closes.

#include <cstddef>
#include <list>
#include <memory>

namespace corvid::gnutella {

template <typename Session> class SessionList {
public:
    // Keeps `session` unless `limit` sessions are live already; then returns false and the caller
    // lets it go, which closes its socket.
    bool Add(const std::shared_ptr<Session>& session, std::size_t limit) {
        sessions_.remove_if([](const std::weak_ptr<Session>& weak) { return weak.expired(); });
        if (sessions_.size() >= limit) {
            return false;
        }
        sessions_.push_back(session);
        return true;
    }

    // Ends every live session and forgets them all.
    void AbortAll() {
        for (auto& weak : sessions_) {
            if (auto session = weak.lock()) {
                session->Abort();
            }
        }
        sessions_.clear();
    }

private:
    std::list<std::weak_ptr<Session>> sessions_;
};

} // namespace corvid::gnutella
