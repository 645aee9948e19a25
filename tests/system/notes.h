// SPDX-License-Identifier: Apache-2.0
// What a game's callbacks have seen, in its order, and a gate at which they can be held up.
#ifndef VELTRA_TESTS_SYSTEM_NOTES_H
#define VELTRA_TESTS_SYSTEM_NOTES_H

#include <condition_variable>
#include <memory>
#include <string>
#include <vector>

#include "support/game_callbacks.h"
#include "support/process.h"
#include "tavo/mutex.h"

namespace SystemTest {

// Any thread. Callbacks share it with their test, since one may still run when the test is over.
class Notes {
public:
    void Add(const std::string& note)
    {
        TAVO::MutexLock lock(mutex_);
        notes_.push_back(note);
        changed_.notify_all();
    }
    // All there are, once they are `count` or no more come in time.
    std::vector<std::string> WaitFor(size_t count)
    {
        TAVO::MutexLock lock(mutex_);
        lock.WaitUntil(changed_, TestSupport::Clock::now() + TestSupport::PATIENCE,
                       [this, count]() TAVO_REQUIRES(mutex_) { return notes_.size() >= count; });
        return notes_;
    }
    size_t Count() { return WaitFor(0).size(); }

    void Open()
    {
        TAVO::MutexLock lock(mutex_);
        isOpen_ = true;
        changed_.notify_all();
    }
    void WaitForOpening()
    {
        TAVO::MutexLock lock(mutex_);
        lock.Wait(changed_, [this]() TAVO_REQUIRES(mutex_) { return isOpen_; });
    }

private:
    TAVO::Mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> notes_ TAVO_GUARDED_BY(mutex_);
    bool isOpen_ TAVO_GUARDED_BY(mutex_) = false;
};

using SharedNotes = std::shared_ptr<Notes>;

// Notes its own end, wherever the callback that holds it is destroyed.
inline std::shared_ptr<void> Life(const SharedNotes& notes, const std::string& name)
{
    return std::shared_ptr<void>(nullptr, [notes, name](void*) { notes->Add("~" + name); });
}

// A callback of any kind that holds `name`'s life and does `body` with what it is given.
template <typename Callback, typename Body>
std::unique_ptr<Callback> Living(const SharedNotes& notes, const std::string& name, Body body)
{
    return std::make_unique<Callback>([life = Life(notes, name), body](auto& argument) { return body(argument); });
}

}  // namespace SystemTest

#endif
