// SPDX-License-Identifier: Apache-2.0
// The sessions of this process, by the peer's instance, and the one with the manager.
#ifndef TAVO_TRANSPORT_SESSION_TABLE_H
#define TAVO_TRANSPORT_SESSION_TABLE_H

#include <cstddef>
#include <map>
#include <memory>
#include <string>

#include "tavo/mutex.h"
#include "transport/session.h"

namespace TAVO::Transport {

// The name below the runtime directory at which the process of that instance listens.
std::string ListeningName(const Instance& instance);

// Any thread.
class SessionTable {
public:
    struct Ensured {
        std::shared_ptr<Session> session;
        bool isNew;  // and not connecting yet
    };

    explicit SessionTable(SessionHost& host) : host_(host) {}

    // The session with that process; null if there is none, or a dead one.
    std::shared_ptr<Session> Find(const Instance& peer);
    size_t Count();
    // The session with that process; a new one if there is none.
    Ensured Ensure(const Instance& peer);
    // The session with the manager; a new one if there is none.
    Ensured EnsureManager();
    // The manager turned out to be a process that this one has a session with.
    void ReplaceManager(const std::shared_ptr<Session>& session);
    void Add(const std::shared_ptr<Session>& session);
    void Remove(const std::shared_ptr<Session>& session);
    // Closes lanes that are idle since before `before` in all sessions; true while other idle ones remain.
    bool CloseIdleLanes(Clock::time_point before);

private:
    SessionHost& host_;
    Mutex mutex_;  // nothing is sent, called or released under it
    std::map<Instance, std::shared_ptr<Session>> sessions_ TAVO_GUARDED_BY(mutex_);
    std::shared_ptr<Session> manager_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Transport

#endif
