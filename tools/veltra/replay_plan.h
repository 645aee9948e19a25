// SPDX-License-Identifier: Apache-2.0
// The requests of a recording as calls of the facade.
#ifndef VELTRA_TOOLS_REPLAY_PLAN_H
#define VELTRA_TOOLS_REPLAY_PLAN_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "call_operations.h"

namespace VeltraTool {

struct ReplayRequest {
    double seconds = 0;  // since the first request of the recording
    const CallOperation* operation = nullptr;
    std::vector<std::string> arguments;  // as they would be typed
    std::string name;                    // of the operation, as the service records it
    int32_t code = 0;
};

struct ReplayPlan {
    std::map<int32_t, std::vector<ReplayRequest>> games;  // by process; requests in the order of their beginning
    std::map<std::string, size_t> skipped;                // how many requests cannot be made again, by reason
};

// The same file has the same plan. ToolError.
ReplayPlan PlanReplay(const std::string& file);

}  // namespace VeltraTool

#endif
