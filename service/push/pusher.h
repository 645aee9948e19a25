// SPDX-License-Identifier: Apache-2.0
// Decides what subscribers receive and when: events as the device changes and by a timer, GPU counters in batches.
#ifndef VELTRA_SERVICE_PUSHER_H
#define VELTRA_SERVICE_PUSHER_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/device_state.h"
#include "base/gpu_counters.h"
#include "push/delivery_pool.h"
#include "push/push_desk.h"
#include "push/subscriptions.h"
#include "scenario/simulation.h"

namespace TAVO::Veltra {

// One thread at a time: the ticker's. Sends nothing itself, the pool does.
class Pusher {
public:
    struct Periods {
        double look = 1;     // seconds between readings of the device while a client is subscribed
        double repeat = 10;  // seconds after which a subscriber gets an event though nothing changed
    };
    static constexpr char STATE_EVENT[] = "deviceState";  // the text of such an event

    // The caller keeps all referenced objects alive longer than the pusher, and `desk` longer than the pool. `periods`
    // is called only while a client is subscribed.
    Pusher(const DeviceState& device, GpuCounterSource& gpu, Simulation& simulation, Subscriptions& subscriptions,
           DeliveryPool& pool, const PushDesk& desk, std::function<Periods()> periods)
        : device_(device),
          gpu_(gpu),
          simulation_(simulation),
          subscriptions_(subscriptions),
          pool_(pool),
          desk_(desk),
          periods_(std::move(periods))
    {
    }

    // Sends the pushes whose time has come at `now` (seconds of service time). Returns the time of the next one,
    // infinity while no client is subscribed. Does not throw: if out of memory a push is left out.
    double Tick(double now);

private:
    double TickEvents(double now);
    double TickGpu(double now);
    void FollowScenario(Subscription& subscription, bool isOther, double now);
    void PushEvents(const Subscription& subscription, const std::vector<std::string>& texts);
    void PushBatch(const Subscription& subscription, std::vector<GpuPerfInfo> batch);

    const DeviceState& device_;
    GpuCounterSource& gpu_;  // asked only while a client is subscribed to GPU counters
    Simulation& simulation_;
    Subscriptions& subscriptions_;
    DeliveryPool& pool_;
    const PushDesk& desk_;
    const std::function<Periods()> periods_;
    GameCallbackEventInfo state_;               // as last read
    GameCallbackEventInfo announced_;           // as it was when a change was last reported to all subscribers
    double readAgain_ = 0;                      // when to read it again
    uint64_t simulated_ = 0;                    // the number of the simulation's change that was read last
    std::shared_ptr<const Scenario> scenario_;  // that played at the last tick; null: none
    bool isListening_ = false;                  // a client was subscribed to events at the last tick
};

}  // namespace TAVO::Veltra

#endif
