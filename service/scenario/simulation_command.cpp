// SPDX-License-Identifier: Apache-2.0
// A command is one JSON object whose key "do" names the action. Each action checks its own keys with the reader that
// scenario files have, so that a mistake is reported with its line and key path; a scenario in a command is parsed
// whole before anything changes.
#include "scenario/simulation_command.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>
#include <vector>

#include "base/operation_names.h"

namespace TAVO::Veltra {

namespace {

constexpr size_t MAX_NAME_BYTES = 64;
constexpr size_t MAX_EVENT_TEXT_BYTES = 4096;
constexpr size_t MAX_ACTION_BYTES = 32;
constexpr double MOST_SECONDS = 1e9;

void Set(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do", "values"});
    std::map<std::string, int64_t> values;
    for (const auto& [key, member] : command.Member("values").Members()) {
        const DeviceField* field = FindDeviceField(key);
        if (field == nullptr) {
            member.Fail("there is no such value");
        }
        values[key] = std::llround(member.Number(static_cast<double>(field->least), static_cast<double>(field->most)));
    }
    simulation.Change([&values](Playing& playing, double) {
        // merge keeps what is there already: the new values.
        values.merge(playing.values);
        playing.values = std::move(values);
    });
}

void Release(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do", "keys"});
    std::vector<std::string> keys;
    if (command.Has("keys")) {
        for (const ConfigNode& item : command.Member("keys").Items(DeviceFields().size())) {
            keys.push_back(item.Text(MAX_NAME_BYTES));
            if (FindDeviceField(keys.back()) == nullptr) {
                item.Fail("there is no such value");
            }
        }
    }
    simulation.Change([&keys](Playing& playing, double) {
        if (keys.empty()) {
            playing.values.clear();
        }
        for (const std::string& key : keys) {
            playing.values.erase(key);
        }
    });
}

void Load(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do", "name", "scenario"});
    auto scenario = std::make_shared<const Scenario>(Scenario::Parse(command.Member("scenario"), 0));
    std::string name = command.TextOr("name", scenario->Name(), MAX_NAME_BYTES);
    simulation.Change([&](Playing& playing, double now) {
        playing.scenario = std::move(scenario);
        playing.name = std::move(name);
        // Unlike a scenario of the command line: the machine shows through where the scenario has no curve.
        playing.hidesMachine = false;
        playing.pace = 1 / simulation.Clock().Speed();
        playing.isPaused = false;
        playing.SetTime(0, now);
    });
}

// Changes how the time of the scenario goes by.
template <typename ChangeTime>
void Steer(const ConfigNode& command, Simulation& simulation, ChangeTime change)
{
    simulation.Change([&](Playing& playing, double now) {
        if (playing.scenario == nullptr) {
            command.Fail("no scenario is loaded; load one first");
        }
        // Fixes the present time as the new origin before the pace changes; otherwise the time would jump.
        playing.SetTime(playing.TimeAt(now), now);
        change(playing);
    });
}

void Pause(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do"});
    Steer(command, simulation, [](Playing& playing) { playing.isPaused = true; });
}

void Resume(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do"});
    Steer(command, simulation, [](Playing& playing) { playing.isPaused = false; });
}

void Seek(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do", "seconds"});
    const double seconds = command.Member("seconds").Number(0, MOST_SECONDS);
    Steer(command, simulation, [seconds](Playing& playing) { playing.time = seconds; });
}

void Speed(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do", "factor"});
    const double factor = command.Member("factor").Number(ServiceClock::LEAST_SPEED, ServiceClock::MOST_SPEED);
    // The clock of the service may itself run faster (--speed); the factor that a person gives is one of real time.
    const double pace = factor / simulation.Clock().Speed();
    Steer(command, simulation, [pace](Playing& playing) { playing.pace = pace; });
}

void PushEvent(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do", "text"});
    if (!simulation.AddText(command.Member("text").Text(MAX_EVENT_TEXT_BYTES))) {
        command.Fail("too many events wait to be pushed; try again in a second");
    }
}

void AddFault(const ConfigNode& command, Simulation& simulation)
{
    // A mistake throws out of Change, which then publishes nothing.
    simulation.Change([&command](Playing& playing, double now) {
        playing.faults.Add(command, now);
        if (playing.faults.DeathTime(0) <= now) {
            FaultPlan::Die();  // here, since the reply to the command could be faster than another thread
        }
    });
}

void SwitchOff(const ConfigNode& command, Simulation& simulation)
{
    command.ExpectKeys({"do"});
    // Ends values, scenario and faults, and so releases the requests that a fault keeps waiting.
    simulation.Change([](Playing& playing, double) { playing = Playing(); });
}

Json::Value DescribeFaults(const Playing& playing, double now)
{
    Json::Value list(Json::arrayValue);
    const auto add = [&list](const Fault& fault, double from, double until, double time) {
        if (until <= time) {
            return;
        }
        Json::Value item;
        item["kind"] = fault.KindName();
        if (fault.operation) {
            item["operation"] = NameOf(*fault.operation);
        }
        item["active"] = from <= time;
        if (std::isfinite(until)) {
            item["secondsLeft"] = until - std::max(time, from);
        }
        list.append(item);
    };
    for (const Fault& fault : playing.faults.All()) {
        add(fault, fault.from, fault.until, now);
    }
    if (playing.scenario != nullptr) {
        for (const Fault& fault : playing.scenario->Faults().All()) {
            add(fault, fault.from, fault.until, playing.TimeAt(now));
        }
    }
    return list;
}

}  // namespace

Json::Value PerformCommand(const std::string& command, Simulation& simulation)
{
    static constexpr struct {
        const char* name;
        void (*perform)(const ConfigNode& command, Simulation& simulation);
    } ACTIONS[] = {
        {"set", Set},   {"release", Release}, {"load", Load},       {"pause", Pause},    {"resume", Resume},
        {"seek", Seek}, {"speed", Speed},     {"event", PushEvent}, {"fault", AddFault}, {"off", SwitchOff},
    };
    const ConfigNode root = ConfigNode::Parse(command, "command");
    const std::string name = root.Member("do").Text(MAX_ACTION_BYTES);
    const auto action =
        std::find_if(std::begin(ACTIONS), std::end(ACTIONS), [&name](const auto& row) { return name == row.name; });
    if (action == std::end(ACTIONS)) {
        root.Member("do").Fail("there is no \"" + name + "\"");
    }
    action->perform(root, simulation);
    Json::Value shown = root.Value();
    // The command is recorded for watchers, and a scenario may have a megabyte.
    shown.removeMember("scenario");
    return shown;
}

Json::Value DescribeSimulation(const Simulation& simulation)
{
    const double now = simulation.Clock().Now();
    const std::shared_ptr<const Playing> playing = simulation.Current();
    Json::Value shown;
    const bool isActive = playing != nullptr && !playing->IsIdle(now);
    shown["active"] = isActive;
    if (!isActive) {
        return shown;
    }
    if (playing->scenario != nullptr) {
        shown["scenario"] = playing->name;
        shown["timeSeconds"] = playing->TimeAt(now);
        shown["speed"] = playing->pace * simulation.Clock().Speed();
        shown["paused"] = playing->isPaused;
    }
    shown["values"] = Json::Value(Json::objectValue);
    for (const auto& [key, value] : playing->values) {
        shown["values"][key] = Json::Int64{value};
    }
    shown["faults"] = DescribeFaults(*playing, now);
    return shown;
}

}  // namespace TAVO::Veltra
