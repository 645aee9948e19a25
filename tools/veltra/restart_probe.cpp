// SPDX-License-Identifier: Apache-2.0
// Calls, watches the service, kills it, waits for the death notice, and calls until an answer comes again.
#include "restart_probe.h"

#include <signal.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include <tavo/system_ability_manager_client.h>

#include "reach.h"
#include "veltra_server_client.h"

namespace VeltraTool {

using namespace TAVO;
using namespace TAVO::Veltra;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds MANAGER_LIMIT{5};
constexpr seconds NOTICE_LIMIT{5};
constexpr seconds RESTART_LIMIT{15};
constexpr milliseconds PAUSE{5};

double MillisecondsBetween(Clock::time_point start, Clock::time_point end)
{
    return std::chrono::duration<double, std::milli>(end - start).count();
}

// Calls `attempt` until it returns true; false when it did not before `limit` was over.
template <typename Attempt>
bool Repeat(seconds limit, Attempt attempt)
{
    const Clock::time_point deadline = Clock::now() + limit;
    while (!attempt()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(PAUSE);
    }
    return true;
}

// Notified on the delivery thread.
class Notice : public IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const wptr<IRemoteObject>&) override
    {
        const std::lock_guard lock(mutex_);
        at_ = Clock::now();
        changed_.notify_all();
    }
    // When it came; the epoch if it did not.
    Clock::time_point Wait()
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, NOTICE_LIMIT, [this] { return at_ != Clock::time_point(); });
        return at_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    Clock::time_point at_;
};

Json::Value Probe()
{
    SystemAbilityManagerClient& client = SystemAbilityManagerClient::GetInstance();
    if (!Repeat(MANAGER_LIMIT, [&client] { return client.GetSystemAbilityManager() != nullptr; })) {
        throw ToolError(EXIT_UNREACHABLE, "the manager did not start within 5 s");
    }
    const sptr<ISystemAbilityManager> manager = ReachManager();
    if (manager->CheckAbility(SERVICE_ABILITY) != nullptr) {
        // This verb kills the service: it must only ever meet its own.
        throw ToolError(EXIT_NO, "the service runs already, and games may use it");
    }
    VeltraClient game;
    if (const int32_t result = game.CallAuth("doctor"); result != RESULT_OK) {
        throw ToolError(EXIT_NO, "the first call failed: " + MeaningOf(result));
    }
    const sptr<IRemoteObject> service = manager->CheckAbility(SERVICE_ABILITY);
    const std::optional<AbilityDescription> ability = DescribeAbility(manager, SERVICE_ABILITY);
    const auto notice = MakeRef<Notice>();
    // Exactly one start: a process that another start has replaced is not the one to kill.
    if (service == nullptr || !ability || ability->starts != 1 || !service->AddDeathRecipient(notice)) {
        throw ToolError(EXIT_NO, "the service cannot be watched");
    }
    // Before the signal: the notice may come before kill() returns.
    const Clock::time_point start = Clock::now();
    if (::kill(ability->pid, SIGKILL) != 0) {
        throw ToolError(EXIT_NO, "the service cannot be killed");
    }
    const Clock::time_point noticed = notice->Wait();
    if (noticed == Clock::time_point()) {
        throw ToolError(EXIT_NO, "no death notice came within 5 s");
    }
    // The first calls may still meet the dead service and fail.
    if (!Repeat(RESTART_LIMIT, [&game] { return game.CallAuth("doctor") == RESULT_OK; })) {
        throw ToolError(EXIT_NO, "no call succeeded within 15 s after the kill");
    }
    Json::Value result;
    result["noticeMilliseconds"] = MillisecondsBetween(start, noticed);
    result["restartMilliseconds"] = MillisecondsBetween(start, Clock::now());
    return result;
}

}  // namespace

void AddRestartProbe(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, PROBE_VERB, "A part of doctor");
    verb->group("");
    verb->callback([&tool] {
        tool.isJson = true;
        PrintJson(Probe());
    });
}

}  // namespace VeltraTool
