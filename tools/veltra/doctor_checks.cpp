// SPDX-License-Identifier: Apache-2.0
// The checks of the running system, from the runtime directory up to the sensors. A check whose ground is missing is
// skipped, so that the first failure is the one to repair. A check may take seconds where something hangs: every wait
// has the limit of the operation behind it.
#include <future>

#include <tavo/system_ability_manager_client.h>

#include "doctor.h"
#include "exit_code.h"
#include "output.h"
#include "veltra_server_client.h"

namespace VeltraTool {

using namespace TAVO;
using namespace TAVO::Veltra;
using std::chrono::seconds;

namespace {

using Clock = std::chrono::steady_clock;

constexpr seconds START_LIMIT{10};  // as long as a game waits
constexpr seconds EVENT_LIMIT{5};   // the first event comes at once
constexpr int32_t CALLBACK_KEY = 1;

Finding Skipped(const char* why)
{
    return {Health::SKIPPED, why, ""};
}

Finding Failed(const Trouble& trouble)
{
    return {Health::FAILED, trouble.what, trouble.fix};
}

std::string MillisecondsSince(Clock::time_point start)
{
    return Shown(std::chrono::duration<double, std::milli>(Clock::now() - start).count(), 1) + " ms";
}

Finding CheckDirectory(Patient& patient)
{
    patient.directory = DescribeRuntimeDirectory();
    if (!patient.directory.error.empty()) {
        return Failed(WhyNoManager(patient.directory));
    }
    return {Health::OK, patient.directory.path + ", of this user, mode 0700", ""};
}

Finding CheckManager(Patient& patient)
{
    if (!patient.directory.error.empty()) {
        // A failed check below explains this one; a second failure would only hide it.
        return Skipped("without a runtime directory there is none");
    }
    const Clock::time_point start = Clock::now();
    // Connects, which takes at most 2 s with a manager that hangs.
    patient.manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (patient.manager == nullptr) {
        return Failed(WhyNoManager(patient.directory));
    }
    return {Health::OK,
            "process " + std::to_string(patient.directory.manager) + ", answers in " + MillisecondsSince(start), ""};
}

Finding CheckAbilityFiles(Patient& patient)
{
    if (patient.manager == nullptr) {
        return Skipped("the manager reads them");
    }
    const std::string restart =
        ", then start the manager again (end it with kill " + std::to_string(patient.directory.manager) + ")";
    size_t count = 0;
    bool hasControl = false;
    std::optional<Trouble> other;
    for (const AbilityDescription& ability : patient.manager->DescribeAbilities()) {
        ++count;
        hasControl = hasControl || ability.id == VELTRA_CONTROL_SA_ID;
        if (ability.id == SERVICE_ABILITY) {
            patient.service = ability;
        } else if (!ability.startable) {
            // Another service's file is none of this game's business, so only a warning.
            other = SplitRemedy(ability.fault);
        }
    }
    if (count == 0) {
        return Failed(WhyNoManager(DescribeRuntimeDirectory()));
    }
    if (!patient.service) {
        return {Health::FAILED, "none describes the service (66006)",
                "install the service, or name the folder of 66006.json with tavo_manager --abilities"};
    }
    if (!patient.service->startable) {
        return {Health::FAILED, patient.service->fault, "correct that file" + restart};
    }
    if (other) {
        return {Health::WARNING, other->what, "correct that file" + restart};
    }
    if (!hasControl) {
        return {Health::WARNING, "none describes the control side of the service (66007), which tools need",
                "put 66007.json beside 66006.json" + restart};
    }
    return {Health::OK, std::to_string(count) + " valid; the service is " + patient.service->program, ""};
}

// Of a start that came to nothing. What the manager knows about it is newer than the load.
Finding WhyNotStarted(Patient& patient, const Start& start)
{
    patient.service = DescribeAbility(patient.manager, SERVICE_ABILITY);
    const std::string program = patient.service ? patient.service->program : "the program";
    if (start.outcome == StartOutcome::NOT_IN_TIME) {
        return {Health::FAILED, program + " was started but did not register within 10 s",
                "run it by hand with the arguments of its ability file to see why"};
    }
    const Trouble fault = SplitRemedy(patient.service ? patient.service->fault : "");
    if (fault.what.empty()) {
        return {Health::FAILED, program + " cannot be started (status " + std::to_string(start.status) + ")",
                "see the log of the manager"};
    }
    return Failed(fault);
}

Finding CheckStart(Patient& patient)
{
    if (!patient.service || !patient.service->startable) {
        return Skipped("there is no valid ability file");
    }
    const Clock::time_point begin = Clock::now();
    const bool isRunning = patient.service->running;
    // A service that hangs after it has registered passes here; the next check, a call, finds it.
    if (patient.manager->CheckAbility(SERVICE_ABILITY) == nullptr) {
        const Start start = StartService(patient.manager, START_LIMIT);
        if (start.outcome != StartOutcome::RUNNING) {
            return WhyNotStarted(patient, start);
        }
    }
    patient.isServing = true;
    patient.service = DescribeAbility(patient.manager, SERVICE_ABILITY);
    const std::string process = "process " + std::to_string(patient.service ? patient.service->pid : 0);
    return {Health::OK, process + (isRunning ? ", which was running" : ", started in " + MillisecondsSince(begin)), ""};
}

Trouble WhyNoAnswer(const Patient& patient)
{
    return WhySilent("the service", patient.service ? patient.service->pid : 0);
}

Finding CheckCall(Patient& patient)
{
    if (!patient.isServing) {
        return Skipped("the service does not run");
    }
    const Clock::time_point start = Clock::now();
    const int32_t result = VeltraClient().CallAuth("doctor");
    patient.isAnswering = result == RESULT_OK;
    if (patient.isAnswering) {
        return {Health::OK, "CallAuth answered in " + MillisecondsSince(start), ""};
    }
    return result == RESULT_NO_SERVICE ? Failed(WhyNoAnswer(patient))
                                       : Finding{Health::FAILED, "CallAuth: " + MeaningOf(result), RemedyOf(result)};
}

// Events arrive one after another, under the mutex of the callback object: the promise is fulfilled once.
class FirstEvent : public GameEventCallbackBase {
public:
    explicit FirstEvent(std::shared_ptr<std::promise<void>> came) : came_(std::move(came)) {}
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo&) override
    {
        if (came_ != nullptr) {
            std::exchange(came_, nullptr)->set_value();
        }
        return 0;
    }

private:
    std::shared_ptr<std::promise<void>> came_;  // null: fulfilled
};

Finding CheckCallback(Patient& patient)
{
    if (!patient.isAnswering) {
        return Skipped("the service does not answer");
    }
    VeltraClient client;
    const auto came = std::make_shared<std::promise<void>>();
    std::future<void> event = came->get_future();
    const Clock::time_point start = Clock::now();
    const int32_t result = client.RegisterGameCallback(std::make_unique<FirstEvent>(came), CALLBACK_KEY);
    if (result != RESULT_OK) {
        return {Health::FAILED, "the service refused to register a callback (" + std::to_string(result) + ")",
                "see the log of the service; \"veltra status\" shows whether it simulates faults"};
    }
    const bool hasCome = event.wait_for(EVENT_LIMIT) == std::future_status::ready;
    const std::string time = MillisecondsSince(start);
    // Also when no event came: the service must not keep a subscription of the doctor.
    client.UnRegisterGameCallback(CALLBACK_KEY);
    if (!hasCome) {
        return {Health::FAILED, "no game event came within 5 s, though the service accepted the registration",
                "see the log of the service; end it, and it is started again when it is needed: kill -KILL " +
                    std::to_string(patient.service->pid)};
    }
    return {Health::OK, "the first game event came after " + time, ""};
}

Finding CheckSensors(Patient& patient)
{
    if (!patient.isAnswering) {
        return Skipped("the service does not answer");
    }
    const GameCallbackEventInfo state = VeltraClient().GetDeviceInfo({});
    const std::string explain = "\"veltra explain\" lists what was looked for and why it does not count";
    if (state.resultCode != RESULT_OK) {
        return {Health::FAILED, "GetDeviceInfo: " + MeaningOf(state.resultCode), explain};
    }
    if (state.tempLevel == -1) {
        return {Health::WARNING, "the temperature level is unknown: no sensor decides it, as in a virtual machine",
                explain};
    }
    return {Health::OK, "the temperature level is " + std::to_string(state.tempLevel), ""};
}

}  // namespace

const std::vector<Check>& DoctorChecks()
{
    static const std::vector<Check> checks = {
        {"runtimeDirectory", "runtime directory", CheckDirectory},
        {"manager", "manager", CheckManager},
        {"abilityFiles", "ability files", CheckAbilityFiles},
        {"serviceStart", "start of the service", CheckStart},
        {"call", "a call", CheckCall},
        {"callback", "a callback", CheckCallback},
        {"restart", "death and restart", CheckRestart},
        {"sensors", "sensors", CheckSensors},
        {"log", "log", CheckLog},
    };
    return checks;
}

}  // namespace VeltraTool
