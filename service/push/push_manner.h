// SPDX-License-Identifier: Apache-2.0
// How a push is sent: as it should be, or changed by a simulated fault.
#ifndef VELTRA_SERVICE_PUSH_MANNER_H
#define VELTRA_SERVICE_PUSH_MANNER_H

#include <cstdint>

#include <tavo/ipc_status.h>

#include "scenario/simulation.h"

namespace TAVO::Veltra {

enum class PushSpoil { NONE, WRONG_TOKEN, CUT };

struct PushManner {
    PushSpoil spoil = PushSpoil::NONE;
    uint32_t count = 1;  // how often it is sent

    static PushManner Now(const Simulation& simulation)
    {
        const std::shared_ptr<const Playing> playing = simulation.Current();
        const Fault* fault = playing == nullptr ? nullptr : playing->PushFault(simulation.Clock().Now());
        if (fault == nullptr) {
            return {};
        }
        switch (fault->kind) {
            case Fault::Kind::WRONG_TOKEN:
                return {PushSpoil::WRONG_TOKEN, 1};
            case Fault::Kind::SHORT_CALLBACK:
                return {PushSpoil::CUT, 1};
            default:
                return {PushSpoil::NONE, fault->count};
        }
    }

    // The status of the last `send`; stops at a client that is dead or does not answer, and when the fault is over.
    template <typename Send>
    int32_t Repeat(const Simulation& simulation, Send send) const
    {
        int32_t status = send();
        for (uint32_t sent = 1;
             sent < count && status != IPC_TIMED_OUT && status != IPC_DEAD_OBJECT && sent < Now(simulation).count;
             ++sent) {
            status = send();
        }
        return status;
    }
};

}  // namespace TAVO::Veltra

#endif
