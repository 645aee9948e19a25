// SPDX-License-Identifier: Apache-2.0
// The verb `status`: what the manager knows, and what the service reports about itself if it runs. Starts nothing
// unless it is asked to, and is an error only when there is no manager to ask.
#include <memory>

#include "reach.h"
#include "verbs.h"

namespace VeltraTool {

using namespace TAVO;

namespace {

Json::Value JsonOf(const AbilityDescription& ability)
{
    Json::Value json;
    json["id"] = ability.id;
    json["running"] = ability.running;
    json["startable"] = ability.startable;
    json["starts"] = ability.starts;
    if (ability.running) {
        json["pid"] = ability.pid;
    }
    if (!ability.program.empty()) {
        json["program"] = ability.program;
    }
    if (!ability.fault.empty()) {
        json["fault"] = ability.fault;
    }
    return json;
}

void PrintAbility(const Json::Value& ability)
{
    std::string text = "not running";
    if (ability["running"].asBool()) {
        const int starts = ability["starts"].asInt();
        text = "running, process " + ability["pid"].asString() +
               (starts == 0 ? "" : ", started " + std::to_string(starts) + (starts == 1 ? " time" : " times"));
    } else if (ability.isMember("fault")) {
        text = "cannot start: " + TextOf(ability["fault"]);
    }
    PrintRow("ability " + ability["id"].asString(),
             text + (ability.isMember("program") ? ", " : "") + TextOf(ability["program"]));
}

void PrintService(const Json::Value& service)
{
    PrintRow("service", TextOf(service["version"]) + ", up " + Shown(NumberOf(service["uptimeSeconds"]), 0) +
                            " s, reads " + TextOf(service["root"]));
}

void PrintSimulation(const Json::Value& simulation)
{
    const bool isActive = simulation.isObject() && simulation["active"].isBool() && simulation["active"].asBool();
    // Each member is checked before it is read: JsonCpp throws when a value of another type is converted, and the
    // document comes from another process.
    std::string text = isActive ? "on" : "off";
    if (isActive && simulation.isMember("scenario")) {
        text += ", scenario " + TextOf(simulation["scenario"]) + " at " +
                Shown(NumberOf(simulation["timeSeconds"]), 1) + " s";
    }
    if (isActive && simulation["values"].isObject()) {
        for (const std::string& key : simulation["values"].getMemberNames()) {
            text += ", " + key + "=" + ShownValue(simulation["values"][key]);
        }
    }
    PrintRow("simulation", text);
}

// One row for each item of a list; `show` makes its text.
template <typename Show>
void PrintList(const char* label, const Json::Value& list, Show show)
{
    if (!list.isArray()) {
        return;
    }
    if (list.empty()) {
        PrintRow(label, "none");
    }
    for (const Json::Value& item : list) {
        if (item.isObject()) {
            PrintRow(label, show(item));
        }
    }
}

void PrintCounters(const Json::Value& calls)
{
    if (!calls.isObject()) {
        return;
    }
    for (const std::string& name : calls.getMemberNames()) {
        const Json::Value& counter = calls[name];
        if (!counter.isObject()) {
            continue;
        }
        std::string text = name + ": " + ShownValue(counter["count"]);
        if (NumberOf(counter["refused"]) > 0) {
            text += ", refused " + ShownValue(counter["refused"]);
        }
        if (counter.isMember("p50us")) {
            text += ", half of them within " + ShownValue(counter["p50us"]) + " us, 99 % within " +
                    ShownValue(counter["p99us"]) + " us";
        }
        PrintRow("calls", text);
    }
}

void PrintDocument(const Json::Value& document)
{
    PrintRow("manager",
             "process " + ShownValue(document["manager"]["pid"]) + ", " + TextOf(document["runtimeDirectory"]));
    for (const Json::Value& ability : document["abilities"]) {
        PrintAbility(ability);
    }
    if (document.isMember("serviceError")) {
        PrintRow("service", TextOf(document["serviceError"]));
        return;
    }
    PrintService(document["service"]);
    PrintSimulation(document["simulation"]);
    PrintList("game", document["games"], [](const Json::Value& game) {
        return "process " + ShownValue(game["pid"]) + (game.isMember("program") ? " " : "") + TextOf(game["program"]) +
               (game.isMember("bundle") ? ", " : "") + TextOf(game["bundle"]) + ", state " + ShownValue(game["state"]);
    });
    PrintList("subscription", document["subscriptions"], [](const Json::Value& subscription) {
        return "process " + ShownValue(subscription["pid"]) + ", " + TextOf(subscription["subject"]) + " every " +
               ShownValue(subscription["intervalSeconds"]) + " s";
    });
    PrintCounters(document["calls"]);
}

Json::Value Describe(bool isStarting)
{
    const sptr<ISystemAbilityManager> manager = ReachManager();
    Json::Value document = Json::objectValue;
    try {
        const auto control = ReachControl(isStarting);
        std::string answer;
        const int32_t result = control->Describe(answer);
        document = RequireAnswer(result, answer);
        document.removeMember("device");  // the verb `get` shows it
    } catch (const ToolError& error) {
        // A service that does not run is a state to report, not an error, unless it was to be started.
        if (isStarting) {
            throw;
        }
        document["serviceError"] = error.what();
    }
    const RuntimeDirectory directory = DescribeRuntimeDirectory();
    document["runtimeDirectory"] = directory.path;
    // The process that holds the manager's lock; the manager does not describe itself.
    document["manager"]["pid"] = directory.manager;
    document["abilities"] = Json::arrayValue;
    for (const AbilityDescription& ability : manager->DescribeAbilities()) {
        document["abilities"].append(JsonOf(ability));
    }
    return document;
}

}  // namespace

void AddStatus(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "status", "What runs: manager, service, games, subscriptions, simulation");
    const auto isStarting = std::make_shared<bool>(false);
    verb->add_flag("--start", *isStarting, "Start the service if it does not run");
    verb->callback([isStarting, &tool] {
        const Json::Value document = Describe(*isStarting);
        if (tool.isJson) {
            PrintJson(document);
        } else {
            PrintDocument(document);
        }
    });
}

}  // namespace VeltraTool
