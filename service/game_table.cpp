// SPDX-License-Identifier: Apache-2.0
// A game is stored under the session of its process, not under its process id, since the kernel reuses ids. Its pidfd
// becomes readable when the process ends; each query polls all of them with a timeout of 0 and removes those that have
// ended, so no thread waits for them. All of this happens under the mutex and does not block. When no descriptor is
// left, a new game is refused; games that are known stay.
#include "game_table.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace TAVO::Veltra {

bool GameTable::Report(const CallingPeer& caller, int32_t state, const std::string& bundleName)
{
    MutexLock lock(mutex_);
    // The process goes on; only its game has ended.
    if (state == STATE_NO_GAME) {
        games_.erase(caller.session);
        return true;
    }
    auto place = games_.find(caller.session);
    if (place == games_.end()) {
        // The caller waits for us or has only just sent this, so the number is still its own.
        UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, caller.pid, 0)));
        if (!process.IsOpen()) {
            return false;
        }
        DropEnded();
        if (games_.size() >= MAX_GAMES) {
            // Only then: dead games are dropped first.
            games_.erase(LeastRecent());
        }
        place = games_.emplace(caller.session, Game{std::move(process), caller.pid, {}, 0}).first;
    }
    Game& game = place->second;
    game.state.state = state;
    if (!bundleName.empty()) {
        game.state.bundleName = bundleName;
    }
    game.order = ++reports_;
    return true;
}

GameState GameTable::Query(const CallingPeer& caller)
{
    MutexLock lock(mutex_);
    DropEnded();
    const auto own = games_.find(caller.session);
    if (own != games_.end()) {
        return own->second.state;
    }
    const auto last = std::max_element(games_.begin(), games_.end(), [](const auto& left, const auto& right) {
        return left.second.order < right.second.order;
    });
    return last != games_.end() ? last->second.state : GameState{STATE_NO_GAME, {}};
}

std::vector<GameTable::Known> GameTable::All()
{
    MutexLock lock(mutex_);
    DropEnded();
    std::vector<Known> all;
    for (const auto& [session, game] : games_) {
        all.push_back({game.pid, game.state});
    }
    return all;
}

std::vector<pid_t> GameTable::Processes()
{
    std::vector<pid_t> processes;
    for (const Known& game : All()) {
        processes.push_back(game.process);
    }
    return processes;
}

std::set<std::string> GameTable::BundleNames()
{
    MutexLock lock(mutex_);
    DropEnded();
    std::set<std::string> names;
    for (const auto& [session, game] : games_) {
        names.insert(game.state.bundleName);
    }
    names.erase(std::string());
    return names;
}

void GameTable::DropEnded()
{
    std::vector<pollfd> processes;
    processes.reserve(games_.size());
    for (const auto& [session, game] : games_) {
        processes.push_back({game.process.Get(), POLLIN, 0});
    }
    // One system call for all games, nearly always the only one.
    if (poll(processes.data(), processes.size(), 0) <= 0) {
        return;
    }
    auto game = games_.begin();  // in step with `processes`, which has the order of the map
    for (const pollfd& process : processes) {
        game = process.revents != 0 ? games_.erase(game) : std::next(game);
    }
}

GameTable::Games::iterator GameTable::LeastRecent()
{
    return std::min_element(games_.begin(), games_.end(),
                            [](const auto& left, const auto& right) { return left.second.order < right.second.order; });
}

}  // namespace TAVO::Veltra
