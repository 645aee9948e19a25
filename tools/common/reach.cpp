// SPDX-License-Identifier: Apache-2.0
// From the runtime directory to the manager, from the manager to the service and to its control side. Each step that
// fails is explained by what can be seen from outside: the directory, the lock of the manager, the state of a process.
#include "reach.h"

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>

#include <tavo/system_ability_manager_client.h>

#include "exit_code.h"
#include "utils/json_utils.h"

namespace VeltraTool {

using namespace TAVO;
using namespace TAVO::Veltra;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr seconds START_TIME{10};  // as long as a game waits
constexpr seconds CONTROL_TIME{2};
constexpr milliseconds LOOK_PAUSE{10};

// Notified by the manager, on the delivery thread.
class LoadNotice : public SystemAbilityLoadCallbackStub {
public:
    void OnLoadSystemAbilitySuccess(int32_t, const sptr<IRemoteObject>&) override { Set(StartOutcome::RUNNING); }
    void OnLoadSystemAbilityFail(int32_t) override { Set(StartOutcome::FAILED); }

    StartOutcome Wait(seconds limit)
    {
        std::unique_lock lock(mutex_);
        // A notice after this is of no consequence: the object lives as long as the manager holds it.
        changed_.wait_for(lock, limit, [this] { return outcome_ != StartOutcome::NOT_IN_TIME; });
        return outcome_;
    }

private:
    void Set(StartOutcome outcome)
    {
        const std::lock_guard lock(mutex_);
        outcome_ = outcome;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    StartOutcome outcome_ = StartOutcome::NOT_IN_TIME;
};

// The letter of the process's state in /proc; 0 when there is no such process.
char ProcessState(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    const size_t name = text.rfind(") ");  // the name before it may contain anything
    return name == std::string::npos || name + 2 >= text.size() ? '\0' : text[name + 2];
}

[[noreturn]] void FailToStart(const Start& start, const std::optional<AbilityDescription>& ability)
{
    // The manager keeps the reason of the last failed start in the description of the ability.
    const Trouble fault = SplitRemedy(ability ? ability->fault : "");
    if (start.outcome == StartOutcome::NOT_IN_TIME) {
        throw ToolError(EXIT_TIMED_OUT, "the service did not register within 10 s", "run \"veltra doctor\"");
    }
    if (start.status == ABILITY_UNKNOWN) {
        throw ToolError(EXIT_UNREACHABLE, "the manager has no ability file for the service (66006)",
                        "start the manager with --abilities, or install the service");
    }
    throw ToolError(EXIT_UNREACHABLE, "the service cannot be started" + (fault.what.empty() ? "" : ": " + fault.what),
                    fault.fix.empty() ? "run \"veltra doctor\"" : fault.fix);
}

}  // namespace

std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    std::string absolute = std::filesystem::absolute(path, error).string();
    if (error) {
        throw ToolError(EXIT_USAGE, "'" + path + "' is no path that can be used: " + error.message(),
                        "give an absolute one");
    }
    return absolute;
}

Trouble SplitRemedy(const std::string& text)
{
    const size_t end = text.find("; ");
    return end == std::string::npos ? Trouble{text, ""} : Trouble{text.substr(0, end), text.substr(end + 2)};
}

Trouble WhySilent(const std::string& name, pid_t process)
{
    if (process <= 0) {
        return {name + " runs in another container or namespace", "use the tool there"};
    }
    const std::string number = std::to_string(process);
    // From outside: a process that does not answer cannot be asked why.
    switch (ProcessState(process)) {
        case '\0':
            return {name + " (process " + number + ") has ended", "try again"};
        case 'T':
        case 't':
            return {name + " (process " + number + ") is stopped, by a signal or a debugger",
                    "let it continue: kill -CONT " + number};
        default:
            return {name + " (process " + number + ") does not answer",
                    "end it, and it is started again when it is needed: kill -KILL " + number};
    }
}

Trouble WhyNoManager(const RuntimeDirectory& directory)
{
    if (!directory.error.empty()) {
        Trouble trouble = SplitRemedy(directory.error);
        if (trouble.fix.empty()) {
            trouble.fix = "name another directory with --runtime-dir or TAVO_RUNTIME_DIR";
        }
        return trouble;
    }
    if (directory.manager == 0) {
        return {"no manager runs in " + directory.path,
                "start tavo_manager with this runtime directory, or name the right one with --runtime-dir"};
    }
    Trouble trouble = WhySilent("the manager", directory.manager);
    if (trouble.fix.find("-KILL") != std::string::npos) {
        trouble.fix = "end it and start tavo_manager again: kill -KILL " + std::to_string(directory.manager);
    }
    return trouble;
}

sptr<ISystemAbilityManager> ReachManager()
{
    sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        const Trouble trouble = WhyNoManager(DescribeRuntimeDirectory());
        throw ToolError(EXIT_UNREACHABLE, trouble.what, trouble.fix);
    }
    return manager;
}

std::optional<AbilityDescription> DescribeAbility(const sptr<ISystemAbilityManager>& manager, int32_t ability)
{
    for (const AbilityDescription& description : manager->DescribeAbilities()) {
        if (description.id == ability) {
            return description;
        }
    }
    return std::nullopt;
}

void FailSilent(const sptr<ISystemAbilityManager>& manager)
{
    const std::optional<AbilityDescription> service = DescribeAbility(manager, SERVICE_ABILITY);
    const Trouble trouble = WhySilent("the service", service ? service->pid : 0);
    throw ToolError(EXIT_TIMED_OUT, trouble.what, trouble.fix);
}

sptr<IRemoteObject> FindAbility(const sptr<ISystemAbilityManager>& manager, int32_t ability)
{
    sptr<IRemoteObject> object = manager->CheckAbility(ability);
    if (object != nullptr) {
        return object;
    }
    const std::optional<AbilityDescription> description = DescribeAbility(manager, ability);
    if (!description || !description->running) {
        return nullptr;
    }
    // Registered after the check, or its process does not answer.
    object = manager->CheckAbility(ability);
    if (object == nullptr) {
        FailSilent(manager);
    }
    return object;
}

Start StartService(const sptr<ISystemAbilityManager>& manager, seconds limit)
{
    const sptr<LoadNotice> notice = MakeRef<LoadNotice>();
    const int32_t status = manager->LoadAbility(SERVICE_ABILITY, notice);
    return status == ABILITY_OK ? Start{notice->Wait(limit), status} : Start{StartOutcome::REFUSED, status};
}

sptr<IVeltraControl> ReachControl(bool isStarting)
{
    const sptr<ISystemAbilityManager> manager = ReachManager();
    // Starts nothing: to look at a system must not change it.
    if (FindAbility(manager, SERVICE_ABILITY) == nullptr) {
        if (!isStarting) {
            const std::optional<AbilityDescription> ability = DescribeAbility(manager, SERVICE_ABILITY);
            throw ToolError(EXIT_UNREACHABLE, "the service does not run",
                            ability ? "it starts when a game calls it, or now with --start" : "run \"veltra doctor\"");
        }
        const Start start = StartService(manager, START_TIME);
        if (start.outcome != StartOutcome::RUNNING) {
            FailToStart(start, DescribeAbility(manager, SERVICE_ABILITY));
        }
    }
    if (!DescribeAbility(manager, VELTRA_CONTROL_SA_ID)) {
        throw ToolError(EXIT_UNREACHABLE, "the manager has no ability file for the control side of the service (66007)",
                        "put 66007.json beside 66006.json and start the manager again");
    }
    // It is registered a moment after the service.
    const auto deadline = std::chrono::steady_clock::now() + CONTROL_TIME;
    for (;;) {
        sptr<IVeltraControl> control = iface_cast<IVeltraControl>(FindAbility(manager, VELTRA_CONTROL_SA_ID));
        if (control != nullptr) {
            return control;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw ToolError(EXIT_UNREACHABLE, "the service does not offer its control ability (66007)",
                            "see the log of the service; one of an earlier version has none");
        }
        std::this_thread::sleep_for(LOOK_PAUSE);
    }
}

Json::Value RequireAnswer(int32_t result, const std::string& answer)
{
    Json::Value document = JsonUtils::StringToJson(answer);
    // The service may be of another version; its documents are checked where they are used.
    if (result == 0 && document.isObject()) {
        return document;
    }
    const Json::Value error = document.isObject() ? document.get("error", Json::Value()) : Json::Value();
    if (error.isString()) {
        const Trouble trouble = SplitRemedy(error.asString());
        throw ToolError(ExitCodeOf(result), trouble.what, trouble.fix);
    }
    if (result == 0) {
        throw ToolError(EXIT_NO, "the service's answer is no JSON object", "use a tool of the service's version");
    }
    throw ToolError(ExitCodeOf(result), MeaningOf(result), RemedyOf(result));
}

}  // namespace VeltraTool
