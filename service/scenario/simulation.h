// SPDX-License-Identifier: Apache-2.0
// What the service pretends: a scenario that plays, values and faults that were set, on top of the real device.
#ifndef VELTRA_SERVICE_SIMULATION_H
#define VELTRA_SERVICE_SIMULATION_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tavo/mutex.h>

#include "base/service_clock.h"
#include "scenario/scenario.h"

namespace TAVO::Veltra {

struct RunningFault {
    const Fault* fault = nullptr;  // null: none
    double until = 0;              // service time
};

// What is simulated; never changes once it is published. `now` is service time, `time` that of the scenario.
struct Playing {
    std::shared_ptr<const Scenario> scenario;  // null: none
    std::string name;                          // of the scenario
    bool hidesMachine = false;                 // given by --scenario: a value without a curve is unknown
    double time = 0;                           // of the scenario at `since`
    double since = 0;
    double pace = 1;  // seconds of the scenario per second of the service
    bool isPaused = false;
    std::map<std::string, int64_t> values;  // that were set, by DeviceField::key; before those of the scenario
    FaultPlan faults;                       // by service time; before those of the scenario
    uint64_t number = 0;                    // of the change that made it
    uint64_t begun = 0;                     // number of the change before which nothing was simulated

    bool IsIdle(double now) const { return scenario == nullptr && values.empty() && faults.IsOver(now); }
    double TimeAt(double now) const { return isPaused ? time : time + (now - since) * pace; }
    // The service time at which the scenario's time is `at`; infinity when that does not come by itself.
    double WhenIs(double at) const;
    // From `now` on the time goes by as the fields are set after this.
    void SetTime(double newTime, double now);

    RunningFault RequestFault(ServerCode code, double now) const;
    const Fault* PushFault(double now) const;  // null: none
    double DeathTime() const;                  // service time; infinity: none
};

// Any thread. While nothing is simulated a request pays for one relaxed load.
class Simulation {
public:
    // By a fault a request is held back for up to this many seconds of real time: longer than a client waits. Each one
    // occupies a worker, without which no other request of this object is served.
    static constexpr double MOST_HELD_SECONDS = 20;

    explicit Simulation(const ServiceClock& clock, double mostHeldSeconds = MOST_HELD_SECONDS)
        : clock_(clock), mostHeld_(mostHeldSeconds * clock.Speed())
    {
    }

    // Called after each change, on the thread that made it. Set before the first change.
    void OnChange(std::function<void()> changed) { changed_ = std::move(changed); }

    // Null while nothing is simulated, except for faults that are over.
    std::shared_ptr<const Playing> Current() const;
    // Grows with each change and each text; a reader that remembers it sees that there is news.
    uint64_t Number() const { return number_.load(std::memory_order_relaxed); }
    const ServiceClock& Clock() const { return clock_; }

    // Publishes what `change` makes of a copy. What it throws leaves everything as it is.
    void Change(const std::function<void(Playing& playing, double now)>& change);
    // The scenario that the service was started with, from service time 0 on, in place of the machine.
    void Start(std::shared_ptr<const Scenario> scenario);
    // Pushes `text` as an event. False when MAX_TEXTS wait.
    bool AddText(const std::string& text);

    // For one reader. The texts of events since the last call, and the service time of the scenario's next one.
    std::vector<std::string> TakeTexts(double now);
    double NextText(double now) const;

    // At the start of each request: ends the process (die), waits (hang), gives a refusal (refuse), else 0.
    int32_t Before(ServerCode code) { return IsActive() ? DisturbRequest(code) : 0; }
    // Once its reply is written: waits (late), spoils the reply.
    void After(ServerCode code, MessageParcel& reply)
    {
        if (IsActive()) {
            DisturbReply(code, reply);
        }
    }

private:
    static constexpr size_t MAX_TEXTS = 100;

    // Until the service time `until`, or the next change.
    void Wait(uint64_t number, double until);

    const ServiceClock clock_;
    const double mostHeld_;  // service time
    std::function<void()> changed_;
    // Each request asks: one atomic load.
    bool IsActive() const { return isActive_.load(std::memory_order_relaxed); }
    int32_t DisturbRequest(ServerCode code);
    void DisturbReply(ServerCode code, MessageParcel& reply);

    std::atomic<bool> isActive_{false};  // whether playing_ is not null; changed under the mutex
    std::atomic<uint64_t> number_{0};    // changed under the mutex
    mutable Mutex mutex_;
    std::condition_variable news_;
    std::shared_ptr<const Playing> playing_ TAVO_GUARDED_BY(mutex_);
    std::vector<std::string> texts_ TAVO_GUARDED_BY(mutex_);
    double takenUpTo_ TAVO_GUARDED_BY(mutex_) = 0;  // time of the scenario, of its events
};

}  // namespace TAVO::Veltra

#endif
