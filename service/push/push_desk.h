// SPDX-License-Identifier: Apache-2.0
// The one way of every push: it applies simulated faults, counts the push and records it for watchers.
#ifndef VELTRA_SERVICE_PUSH_DESK_H
#define VELTRA_SERVICE_PUSH_DESK_H

#include <sys/types.h>

#include <cstdint>
#include <utility>

#include "push/push_manner.h"
#include "scenario/simulation.h"
#include "watch/watch_hub.h"

namespace TAVO::Veltra {

// Any thread. The caller keeps both objects alive longer than the last push.
class PushDesk {
public:
    PushDesk(const Simulation& simulation, WatchHub& hub) : simulation_(simulation), hub_(hub) {}

    // The status of `send(spoil)`. `describe(note)` notes what is sent, if there is a watcher. `replaced`: how many
    // older pushes this one has replaced.
    template <typename Send, typename Describe>
    int32_t Push(PushKind kind, pid_t process, uint32_t replaced, Send send, Describe describe) const
    {
        const PushManner manner = PushManner::Now(simulation_);
        const auto begin = WatchRecord::Clock::now();
        const int32_t status = manner.Repeat(simulation_, [&] { return send(manner.spoil); });
        hub_.CountPush(kind, status == IPC_OK, replaced);
        if (hub_.Wants(WatchRecord::Kind::PUSH)) {
            WatchRecord record;
            record.kind = WatchRecord::Kind::PUSH;
            record.name = NameOf(kind);
            record.process = process;
            record.code = status;
            record.duration = WatchRecord::Clock::now() - begin;
            describe(record.values);
            hub_.Add(std::move(record));
        }
        return status;
    }

private:
    const Simulation& simulation_;
    WatchHub& hub_;
};

}  // namespace TAVO::Veltra

#endif
