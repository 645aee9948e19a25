// SPDX-License-Identifier: Apache-2.0
// The receiving end of a watch. Records come on a platform thread, the end of the service on another, signals on a
// third; main takes what they leave in one queue.
#include "watch_queue.h"

#include <pthread.h>
#include <signal.h>

#include <thread>

#include "control/control_stubs.h"
#include "reach.h"

namespace VeltraTool {

using namespace TAVO;
using namespace TAVO::Veltra;

namespace {

constexpr size_t MAX_BYTES = size_t{16} << 20;

class Watcher : public VeltraWatcherStub {
public:
    int32_t OnRecords(const std::string& lines, uint64_t dropped) override
    {
        WatchQueue::Instance().Add(lines, dropped);
        return 0;
    }
};

class EndOfService : public IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const wptr<IRemoteObject>&) override { WatchQueue::Instance().End(EXIT_UNREACHABLE); }
};

// Threads of the platform block signals; main blocks these too, so that only the thread started here takes them.
void EndAtSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // Before the thread is started, which inherits the mask.
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int signal = 0;
        ::sigwait(&signals, &signal);
        WatchQueue::Instance().End(EXIT_DONE);
    }).detach();
}

}  // namespace

WatchQueue& WatchQueue::Instance()
{
    // Deliberate: never destroyed. Platform threads may add to it while the process exits.
    static WatchQueue* const queue = new WatchQueue;
    return *queue;
}

void WatchQueue::Add(const std::string& lines, uint64_t dropped)
{
    const std::lock_guard lock(mutex_);
    lost_ += dropped;
    for (size_t begin = 0; begin < lines.size();) {
        const size_t end = std::min(lines.find('\n', begin), lines.size());
        // Main writes to a slow terminal or file. The newest lines are dropped and counted.
        if (bytes_ + end - begin > MAX_BYTES) {
            ++lost_;
        } else if (end > begin) {
            lines_.push_back(lines.substr(begin, end - begin));
            bytes_ += end - begin;
        }
        begin = end + 1;
    }
    changed_.notify_all();
}

void WatchQueue::End(ExitCode code)
{
    const std::lock_guard lock(mutex_);
    // The first reason counts.
    ended_ = ended_.value_or(code);
    changed_.notify_all();
}

std::optional<std::string> WatchQueue::Take(std::chrono::steady_clock::time_point deadline)
{
    std::unique_lock lock(mutex_);
    changed_.wait_until(lock, deadline, [this] { return !lines_.empty() || ended_; });
    // After a signal nothing more is printed; after the end of the service what it had sent still is.
    if (lines_.empty() || ended_ == EXIT_DONE) {
        return std::nullopt;
    }
    std::string line = std::move(lines_.front());
    lines_.pop_front();
    bytes_ -= line.size();
    return line;
}

std::optional<ExitCode> WatchQueue::Ended()
{
    const std::lock_guard lock(mutex_);
    return ended_;
}

uint64_t WatchQueue::TakeLost()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(lost_, 0);
}

void BeginWatch(const sptr<IVeltraControl>& control, const std::string& filter)
{
    EndAtSignals();
    std::string answer;
    const int32_t result = control->Watch(filter, MakeRef<Watcher>(), answer);
    RequireAnswer(result, answer);
    if (!control->AsObject()->AddDeathRecipient(MakeRef<EndOfService>())) {
        WatchQueue::Instance().End(EXIT_UNREACHABLE);
    }
}

}  // namespace VeltraTool
