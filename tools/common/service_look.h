// SPDX-License-Identifier: Apache-2.0
// The state of the service, from one look to the next, also after the service was started again.
#ifndef VELTRA_TOOLS_SERVICE_LOOK_H
#define VELTRA_TOOLS_SERVICE_LOOK_H

#include <json/value.h>

#include <string>

#include "control/iveltra_control.h"
#include "exit_code.h"

namespace VeltraTool {

// One thread at a time.
class ServiceLook {
public:
    // `control` is the service to begin with; null: to be found by the first look.
    ServiceLook(const TAVO::sptr<TAVO::Veltra::IVeltraControl>& control, bool isStarting)
        : control_(control), isStarting_(isStarting)
    {
    }

    // The state document of the service that was asked before, or of the one that came after it. ToolError when there
    // is none. Blocks up to 8 s, and 12 s more where a service has to be found or started.
    Json::Value Describe();

    // Any thread.
    bool IsStarting() const { return isStarting_; }

private:
    TAVO::sptr<TAVO::Veltra::IVeltraControl> control_;  // null: to be found again
    const bool isStarting_;                             // start a service that does not run
};

// What to show instead of a state.
std::string TroubleText(const ToolError& error);

}  // namespace VeltraTool

#endif
