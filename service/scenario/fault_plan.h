// SPDX-License-Identifier: Apache-2.0
// What goes wrong with requests and pushes, and when, as a scenario or a command has it.
#ifndef VELTRA_SERVICE_FAULT_PLAN_H
#define VELTRA_SERVICE_FAULT_PLAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <tavo/message_parcel.h>

#include "base/config_node.h"
#include "ipc/server_codes.h"

namespace TAVO::Veltra {

struct Fault {
    enum class Kind {
        DIE,
        HANG,
        LATE,
        REFUSE,
        SHORT_REPLY,
        BAD_TEXT,
        WRONG_TOKEN,  // from here on: of pushes
        SHORT_CALLBACK,
        FLOOD,
    };

    Kind kind = Kind::REFUSE;
    double from = 0;
    double until = 0;
    std::optional<ServerCode> operation;  // empty: every request
    int32_t code = 0;                     // REFUSE
    double seconds = 0;                   // LATE
    uint32_t count = 1;                   // FLOOD
    std::string text;                     // BAD_TEXT

    bool IsOfPushes() const { return kind >= Kind::WRONG_TOKEN; }
    const char* KindName() const;

    // Spoils a reply that is written: cut to half of its slots (SHORT_REPLY), another document (BAD_TEXT).
    void Spoil(MessageParcel& reply) const;
};

// Times are seconds of whichever clock the owner goes by. Where several faults apply, the first does.
class FaultPlan {
public:
    static constexpr size_t MAX_FAULTS = 100;

    static FaultPlan Parse(const ConfigNode& node);
    // The fault that a command describes; its "at" counts from `now`. Throws ConfigError, also when there are too many.
    void Add(const ConfigNode& command, double now);
    // Forgets those that are over.
    void Prune(double now);
    bool IsOver(double now) const;  // all of them

    // Those that may apply at `now` or later.
    const std::vector<Fault>& All() const { return faults_; }
    const Fault* ForRequest(ServerCode code, double now) const;  // null: none
    const Fault* ForPush(double now) const;                      // null: none
    // When the process has to end without a request as the cause; infinity if it has not. Faults that were over
    // at `begin`, from which the time goes by, do not count: a seek has skipped them.
    double DeathTime(double begin) const;
    [[noreturn]] static void Die();

private:
    std::vector<Fault> faults_;
};

}  // namespace TAVO::Veltra

#endif
