// SPDX-License-Identifier: Apache-2.0
// What a scenario lets go wrong with requests, and when.
#ifndef VELTRA_SERVICE_FAULT_PLAN_H
#define VELTRA_SERVICE_FAULT_PLAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tavo/message_parcel.h>

#include "base/config_node.h"
#include "base/service_clock.h"
#include "ipc/server_codes.h"

namespace TAVO::Veltra {

// Never changes once it is read. Where several faults apply, the first of the file does.
class FaultPlan {
public:
    static constexpr size_t MAX_FAULTS = 100;

    static FaultPlan Parse(const ConfigNode& node);

    // At the start of each request: ends the process (die), waits (hang), gives a refusal (refuse), else 0.
    int32_t Before(ServerCode code, const ServiceClock& clock) const;
    // Spoils a reply that is written: cut to half of its slots (shortReply), another document (badText).
    void After(ServerCode code, MessageParcel& reply, double now) const;

    // When the process is to end whatever is asked; infinity when it is not.
    double DeathTime() const;
    [[noreturn]] static void Die();

private:
    enum class Kind { DIE, HANG, REFUSE, SHORT_REPLY, BAD_TEXT };
    struct Fault {
        Kind kind = Kind::REFUSE;
        double from = 0;
        double until = 0;
        std::optional<ServerCode> operation;  // empty: every request
        int32_t code = 0;                     // REFUSE
        std::string text;                     // BAD_TEXT
    };
    static Fault ParseFault(const ConfigNode& node);
    // The first that applies, of whatever kind.
    const Fault* Find(ServerCode code, double now) const;

    std::vector<Fault> faults_;
};

}  // namespace TAVO::Veltra

#endif
