// SPDX-License-Identifier: Apache-2.0
// A session that died stays in the table until it is removed or replaced: Find treats it as absent, Ensure puts a new
// one in its place, and Remove leaves a successor alone. Who gets `isNew` has to connect; all others get the same
// session and wait in it. A replaced session is released after the lock, since its end closes lanes and releases
// objects, whose destructors may come back here. The manager is known before its instance is, so it has a place of its
// own.
#include "transport/session_table.h"

#include <utility>
#include <vector>

#include "transport/session_host.h"

namespace TAVO::Transport {

std::string ListeningName(const Instance& instance)
{
    return "p/" + instance.ToHex();
}

std::shared_ptr<Session> SessionTable::Find(const Instance& peer)
{
    MutexLock lock(mutex_);
    const auto found = sessions_.find(peer);
    // The state may change right after this line. Every user of a session gets an error from it then, so nothing
    // depends on it.
    return found != sessions_.end() && found->second->GetState() != Session::State::DEAD ? found->second : nullptr;
}

size_t SessionTable::Count()
{
    MutexLock lock(mutex_);
    return sessions_.size();
}

SessionTable::Ensured SessionTable::Ensure(const Instance& peer)
{
    std::shared_ptr<Session> replaced;  // a dead one, released after the lock
    MutexLock lock(mutex_);
    const auto found = sessions_.find(peer);
    if (found != sessions_.end() && found->second->GetState() != Session::State::DEAD) {
        return {found->second, false};
    }
    auto session = Session::Create(host_, ListeningName(peer), peer);
    replaced = std::exchange(sessions_[peer], session);
    lock.Unlock();
    return {std::move(session), true};
}

SessionTable::Ensured SessionTable::EnsureManager()
{
    std::shared_ptr<Session> replaced;
    MutexLock lock(mutex_);
    if (manager_ != nullptr && manager_->GetState() != Session::State::DEAD) {
        return {manager_, false};
    }
    auto session = Session::Create(host_, "manager", Instance{});
    replaced = std::exchange(manager_, session);
    lock.Unlock();
    return {std::move(session), true};
}

void SessionTable::ReplaceManager(const std::shared_ptr<Session>& session)
{
    std::shared_ptr<Session> replaced = session;
    MutexLock lock(mutex_);
    manager_.swap(replaced);
    lock.Unlock();
}

void SessionTable::Add(const std::shared_ptr<Session>& session)
{
    std::shared_ptr<Session> replaced;
    MutexLock lock(mutex_);
    replaced = std::exchange(sessions_[session->Peer()], session);
    lock.Unlock();
}

void SessionTable::Remove(const std::shared_ptr<Session>& session)
{
    std::shared_ptr<Session> removed;
    MutexLock lock(mutex_);
    const auto found = sessions_.find(session->Peer());
    if (found != sessions_.end() && found->second == session) {
        removed = std::move(found->second);
        sessions_.erase(found);
    }
    lock.Unlock();
}

bool SessionTable::CloseIdleLanes(Clock::time_point before)
{
    std::vector<std::shared_ptr<Session>> all;
    {
        MutexLock lock(mutex_);
        for (const auto& [instance, session] : sessions_) {
            // Copied under the lock, closed without it: closing a lane sends a record.
            all.push_back(session);
        }
    }
    bool remain = false;
    for (const auto& session : all) {
        remain = session->CloseIdleLanes(before) || remain;
    }
    return remain;
}

}  // namespace TAVO::Transport
