// SPDX-License-Identifier: Apache-2.0
// What the verb `doctor` checks, layer by layer: each check finds one thing, with its fix if it is not in order.
#ifndef VELTRA_TOOLS_DOCTOR_H
#define VELTRA_TOOLS_DOCTOR_H

#include <optional>
#include <string>
#include <vector>

#include "reach.h"

namespace VeltraTool {

enum class Health { OK, WARNING, FAILED, SKIPPED };

struct Finding {
    Health health = Health::SKIPPED;
    std::string what;
    std::string fix;  // empty: there is nothing to do
};

// What earlier checks have found out for later ones.
struct Patient {
    TAVO::RuntimeDirectory directory;
    TAVO::sptr<TAVO::ISystemAbilityManager> manager;  // null: not reached
    std::optional<TAVO::AbilityDescription> service;  // empty: the manager does not know it
    bool isServing = false;                           // the service is registered
    bool isAnswering = false;                         // a call has succeeded
};

struct Check {
    const char* name;   // stable, for JSON
    const char* title;  // for people
    Finding (*run)(Patient& patient);
};

// In the order in which they run; main thread only.
const std::vector<Check>& DoctorChecks();

// Those with files of their own. Death notice and restart, tried on a private copy of manager and service:
Finding CheckRestart(Patient& patient);
// Where warnings go:
Finding CheckLog(Patient& patient);

}  // namespace VeltraTool

#endif
