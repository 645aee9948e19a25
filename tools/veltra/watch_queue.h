// SPDX-License-Identifier: Apache-2.0
// Records on their way from the service to main, and what ends a watch.
#ifndef VELTRA_TOOLS_WATCH_QUEUE_H
#define VELTRA_TOOLS_WATCH_QUEUE_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "control/iveltra_control.h"
#include "exit_code.h"

namespace VeltraTool {

// Any thread. Keeps at most 16 MiB of records; what comes on top of that is counted as lost.
class WatchQueue {
public:
    // Never destroyed: the service may send records until the process ends.
    static WatchQueue& Instance();

    void Add(const std::string& lines, uint64_t dropped);
    // Wakes the thread that waits; the first code stays.
    void End(ExitCode code);

    // The next record, a line of JSON. Empty when the watch has ended, or none came before `deadline`.
    std::optional<std::string> Take(std::chrono::steady_clock::time_point deadline);
    // How it ended; empty: it has not.
    std::optional<ExitCode> Ended();
    // How many records were lost since the last call.
    uint64_t TakeLost();

private:
    WatchQueue() = default;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> lines_;  // under mutex_, as is all that follows
    size_t bytes_ = 0;
    uint64_t lost_ = 0;
    std::optional<ExitCode> ended_;
};

// Lets the service send records to the queue. It ends with EXIT_DONE at SIGINT or SIGTERM, and with EXIT_UNREACHABLE
// when the service dies. ToolError when the service refuses.
void BeginWatch(const TAVO::sptr<TAVO::Veltra::IVeltraControl>& control, const std::string& filter);

}  // namespace VeltraTool

#endif
