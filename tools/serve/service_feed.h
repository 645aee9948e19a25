// SPDX-License-Identifier: Apache-2.0
// The state of the service for any number of readers, looked at once a second at most.
#ifndef VELTRA_SERVE_SERVICE_FEED_H
#define VELTRA_SERVE_SERVICE_FEED_H

#include <json/value.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "service_look.h"

namespace VeltraServe {

// What one look has found.
struct Look {
    uint64_t number = 0;
    std::chrono::steady_clock::time_point time;
    std::chrono::system_clock::time_point wallTime;
    Json::Value report{Json::objectValue};  // the state document, unchecked; empty if there is none
    std::string trouble;                    // why there is none; empty: there is one
    std::optional<uint64_t> starts;         // how often the manager has started the service
};
using SharedLook = std::shared_ptr<const Look>;

// Any thread. Looks only while a reader asks, on a thread of its own, so that no reader waits for a service that does
// not answer.
class ServiceFeed {
public:
    static constexpr std::chrono::seconds INTERVAL{1};
    static constexpr std::chrono::seconds FRESH_TIME{2};

    // Never destroyed, since the thread runs until the process ends.
    static ServiceFeed& Start(bool isStartingService);
    bool IsStartingService() const { return look_.IsStarting(); }

    // A look that is less than INTERVAL old. Waits FRESH_TIME for it; then a look with trouble.
    SharedLook Fresh();
    // The next look behind `number`; null if there is none before `deadline`.
    SharedLook After(uint64_t number, std::chrono::steady_clock::time_point deadline);

private:
    explicit ServiceFeed(bool isStartingService) : look_(nullptr, isStartingService) {}
    void Run();
    Look LookNow();

    VeltraTool::ServiceLook look_;  // of the thread, but for IsStarting
    std::mutex mutex_;
    std::condition_variable changed_;
    SharedLook latest_ = std::make_shared<Look>();  // under mutex_, as is isWanted_
    bool isWanted_ = false;                         // a reader waits for a newer one
};

}  // namespace VeltraServe

#endif
