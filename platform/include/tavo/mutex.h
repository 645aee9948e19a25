// SPDX-License-Identifier: Apache-2.0
// A std::mutex that clang's thread-safety analysis can follow, its scoped lock, and the marks.
#ifndef TAVO_MUTEX_H
#define TAVO_MUTEX_H

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define TAVO_THREAD_MARK(x) __attribute__((x))
#else
#define TAVO_THREAD_MARK(x)
#endif

#define TAVO_CAPABILITY(name) TAVO_THREAD_MARK(capability(name))
#define TAVO_SCOPED_CAPABILITY TAVO_THREAD_MARK(scoped_lockable)
#define TAVO_GUARDED_BY(lock) TAVO_THREAD_MARK(guarded_by(lock))
#define TAVO_REQUIRES(...) TAVO_THREAD_MARK(requires_capability(__VA_ARGS__))
#define TAVO_ACQUIRE(...) TAVO_THREAD_MARK(acquire_capability(__VA_ARGS__))
#define TAVO_RELEASE(...) TAVO_THREAD_MARK(release_capability(__VA_ARGS__))
#define TAVO_TRY_ACQUIRE(...) TAVO_THREAD_MARK(try_acquire_capability(__VA_ARGS__))
#define TAVO_EXCLUDES(...) TAVO_THREAD_MARK(locks_excluded(__VA_ARGS__))
#define TAVO_NO_THREAD_ANALYSIS TAVO_THREAD_MARK(no_thread_safety_analysis)

namespace TAVO {

// Not recursive. It is a std::mutex, so a condition variable waits with it (MutexLock::WaitUntil).
class TAVO_CAPABILITY("mutex") Mutex : public std::mutex {
public:
    void lock() TAVO_ACQUIRE() { std::mutex::lock(); }
    void unlock() TAVO_RELEASE() { std::mutex::unlock(); }
    bool try_lock() TAVO_TRY_ACQUIRE(true) { return std::mutex::try_lock(); }
};

// Holds the mutex from construction to the end of the scope; may be released early and taken again.
class TAVO_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) TAVO_ACQUIRE(mutex) : lock_(mutex) {}
    ~MutexLock() TAVO_RELEASE() = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void Lock() TAVO_ACQUIRE() { lock_.lock(); }
    void Unlock() TAVO_RELEASE() { lock_.unlock(); }

    // Waits until `predicate` holds or the steady clock passes `deadline`; returns the predicate's last value.
    template <typename Predicate>
    bool WaitUntil(std::condition_variable& condition, std::chrono::steady_clock::time_point deadline,
                   Predicate predicate)
    {
        return condition.wait_until(lock_, deadline, predicate);
    }

    template <typename Predicate>
    void Wait(std::condition_variable& condition, Predicate predicate)
    {
        condition.wait(lock_, predicate);
    }

private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace TAVO

#endif
