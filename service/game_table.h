// SPDX-License-Identifier: Apache-2.0
// Which processes have reported a game, and in which state it is; forgotten when the process ends.
#ifndef VELTRA_SERVICE_GAME_TABLE_H
#define VELTRA_SERVICE_GAME_TABLE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <tavo/calling_peer.h>
#include <tavo/mutex.h>

#include "base/unique_fd.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// Any thread. A pidfd of each process shows when it has ended; it is polled at each request, not waited for.
class GameTable {
public:
    static constexpr size_t MAX_GAMES = 1024;  // beyond it the game that has been silent longest is forgotten
    static constexpr int32_t STATE_NO_GAME = 2;

    // The state of the caller's game. An empty bundle name keeps the one reported before; STATE_NO_GAME ends the game.
    // False, and nothing kept, when the process cannot be watched: it has ended, or no descriptor is left.
    bool Report(const CallingPeer& caller, int32_t state, const std::string& bundleName);

    // The caller's own game if it has one, else the one that reported last, else STATE_NO_GAME and no name.
    GameState Query(const CallingPeer& caller);

    struct Known {
        pid_t process;
        GameState state;
    };
    std::vector<Known> All();
    std::vector<pid_t> Processes();

    // The bundle names of all games, without empty ones.
    std::set<std::string> BundleNames();

private:
    struct Game {
        UniqueFd process;  // readable once the process has ended
        pid_t pid = 0;
        GameState state;
        uint64_t order = 0;  // of the last report
    };
    using Games = std::map<uint64_t, Game>;  // by session: unlike a process id it is never used again

    void DropEnded() TAVO_REQUIRES(mutex_);
    Games::iterator LeastRecent() TAVO_REQUIRES(mutex_);

    Mutex mutex_;
    Games games_ TAVO_GUARDED_BY(mutex_);
    uint64_t reports_ TAVO_GUARDED_BY(mutex_) = 0;
};

}  // namespace TAVO::Veltra

#endif
