// SPDX-License-Identifier: Apache-2.0
// The ways from the tool to the manager and to the service. Looking starts nothing.
#ifndef VELTRA_TOOLS_REACH_H
#define VELTRA_TOOLS_REACH_H

#include <json/value.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <tavo/isystem_ability_manager.h>
#include <tavo/runtime_directory.h>

#include "control/iveltra_control.h"

namespace VeltraTool {

constexpr int32_t SERVICE_ABILITY = 66006;

// What to say about something that does not work.
struct Trouble {
    std::string what;
    std::string fix;
};

// The path from the root on; ToolError if it is empty, or if it is relative and the current folder was removed.
std::string AbsolutePath(const std::string& path);

// A text of this project, "what happened; what to do", in its two parts.
Trouble SplitRemedy(const std::string& text);

// Why a process does not answer: "has ended", "is stopped", "does not answer". `name` is what it is: "the manager".
Trouble WhySilent(const std::string& name, pid_t process);

// Why no manager can be reached.
Trouble WhyNoManager(const TAVO::RuntimeDirectory& directory);
// The manager; ToolError when it cannot be reached. Blocks up to 2 s.
TAVO::sptr<TAVO::ISystemAbilityManager> ReachManager();

// The ability as the manager sees it; empty: it has no such ability, or does not answer.
std::optional<TAVO::AbilityDescription> DescribeAbility(const TAVO::sptr<TAVO::ISystemAbilityManager>& manager,
                                                        int32_t ability);

// The ability's object; null: it does not run. ToolError if its process does not answer.
TAVO::sptr<TAVO::IRemoteObject> FindAbility(const TAVO::sptr<TAVO::ISystemAbilityManager>& manager, int32_t ability);
// Ends the verb: the service runs and does not answer.
[[noreturn]] void FailSilent(const TAVO::sptr<TAVO::ISystemAbilityManager>& manager);

enum class StartOutcome { RUNNING, REFUSED, FAILED, NOT_IN_TIME };
struct Start {
    StartOutcome outcome = StartOutcome::REFUSED;
    int32_t status = 0;  // an AbilityStatus when it was refused
};
// Starts the service, or finds it running.
Start StartService(const TAVO::sptr<TAVO::ISystemAbilityManager>& manager, std::chrono::seconds limit);

// The control side of the running service; with `isStarting` the service is started first if need be. ToolError.
TAVO::sptr<TAVO::Veltra::IVeltraControl> ReachControl(bool isStarting);
// The document of an answer; ToolError with the answer's own error otherwise.
Json::Value RequireAnswer(int32_t result, const std::string& answer);

}  // namespace VeltraTool

#endif
