// SPDX-License-Identifier: Apache-2.0
// What callbacks have seen, in its order, and a gate at which they can be held up.
#ifndef VELTRA_TESTS_SUPPORT_NOTES_H
#define VELTRA_TESTS_SUPPORT_NOTES_H

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <string>
#include <vector>

#include "support/game_callbacks.h"
#include "support/process.h"
#include "tavo/mutex.h"

namespace TestSupport {

// Any thread. Callbacks share it with their test, since one may still run when the test is over.
class Notes {
public:
    void Add(const std::string& note)
    {
        TAVO::MutexLock lock(mutex_);
        notes_.push_back(note);
        changed_.notify_all();
    }
    // All there are, once they are `count` or none arrives in time.
    std::vector<std::string> WaitFor(size_t count)
    {
        TAVO::MutexLock lock(mutex_);
        lock.WaitUntil(changed_, Clock::now() + TIMEOUT,
                       [this, count]() TAVO_REQUIRES(mutex_) { return notes_.size() >= count; });
        return notes_;
    }
    // Whether this one comes, in addition to `before` of the same.
    bool WaitForNote(const std::string& note, long before = 0)
    {
        TAVO::MutexLock lock(mutex_);
        return lock.WaitUntil(changed_, Clock::now() + TIMEOUT, [&]() TAVO_REQUIRES(mutex_) {
            return std::count(notes_.begin(), notes_.end(), note) > before;
        });
    }
    size_t Count() { return WaitFor(0).size(); }

    void Open(bool isOpen = true)
    {
        TAVO::MutexLock lock(mutex_);
        isOpen_ = isOpen;
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

// A callback of any kind that does `body` with what it is given, and notes ~name wherever it is destroyed.
template <typename Callback, typename Body>
std::unique_ptr<Callback> Living(const SharedNotes& notes, const std::string& name, Body body)
{
    const std::shared_ptr<void> life(nullptr, [notes, name](void*) { notes->Add("~" + name); });
    return std::make_unique<Callback>([life, body](auto& argument) { return body(argument); });
}

// One that notes `name` when it is called.
template <typename Callback>
std::unique_ptr<Callback> Noting(const SharedNotes& notes, const std::string& name, int32_t result = 0)
{
    return Living<Callback>(notes, name, [notes, name, result](auto&) {
        notes->Add(name);
        return result;
    });
}

}  // namespace TestSupport

#endif
