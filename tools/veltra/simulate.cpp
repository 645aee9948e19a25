// SPDX-License-Identifier: Apache-2.0
// The verb `simulate`: what the service reports instead of the real device. Each verb below it is one command to the
// control ability, and prints what is simulated after it. The service opens no file for a client: the scenario is sent
// as text. It is checked here first, where every mistake can be reported with its place; the service reports one only.
#include "simulate.h"

#include <charconv>
#include <cmath>
#include <memory>

#include "reach.h"
#include "scenario/scenario.h"

namespace VeltraTool {

namespace {

constexpr double MOST_SECONDS = 1e9;
constexpr double MOST_NUMBER = 9007199254740992;  // 2^53: whole numbers up to it are exact
constexpr double LEAST_SPEED = 0.01;
constexpr double MOST_SPEED = 100;

std::string Values(const Json::Value& values)
{
    std::string text;
    if (values.isObject()) {
        for (const std::string& key : values.getMemberNames()) {
            text += (text.empty() ? "" : " ") + key + "=" + ShownValue(values[key]);
        }
    }
    return text;
}

void PrintSimulation(const Json::Value& simulation)
{
    if (!simulation.isObject() || !simulation["active"].isBool() || !simulation["active"].asBool()) {
        PrintRow("simulation", "off: the service reports the real device");
        return;
    }
    if (simulation.isMember("scenario")) {
        PrintRow("scenario", TextOf(simulation["scenario"]) + ", at " + Shown(NumberOf(simulation["timeSeconds"]), 1) +
                                 " s, speed " + Shown(NumberOf(simulation["speed"]), 2) +
                                 (simulation["paused"].isBool() && simulation["paused"].asBool() ? ", paused" : ""));
    }
    if (const std::string values = Values(simulation["values"]); !values.empty()) {
        PrintRow("values", values);
    }
    if (const Json::Value& faults = simulation["faults"]; faults.isArray()) {
        for (const Json::Value& fault : faults) {
            PrintRow("fault", fault.isObject() ? Values(fault) : ShownValue(fault));
        }
    }
}

void Send(const Json::Value& command, bool isStarting, Tool& tool)
{
    std::string answer;
    const int32_t result = ReachControl(isStarting)->Simulate(JsonText(command), answer);
    const Json::Value document = RequireAnswer(result, answer);
    if (tool.isJson) {
        PrintJson(document);
    } else {
        PrintSimulation(document["simulation"]);
    }
}

Json::Value Command(const char* what)
{
    Json::Value command;
    command["do"] = what;
    return command;
}

// "KEY=VALUE" into the object.
void AddValue(Json::Value& values, const std::string& word)
{
    const size_t end = word.find('=');
    double number = 0;
    const char* const last = word.data() + word.size();
    const char* const first = end == std::string::npos ? last : word.data() + end + 1;
    const std::from_chars_result result = std::from_chars(first, last, number);
    const bool isNumber = result.ec == std::errc() && result.ptr == last && std::fabs(number) <= MOST_NUMBER;
    if (end == std::string::npos || end == 0 || !isNumber) {
        throw ToolError(EXIT_USAGE, "'" + word + "' is not KEY=NUMBER", "for example tempLevel=4");
    }
    // Whole numbers as such: the service refuses 4.0 for a level. The cast is defined, since the number is at most
    // 2^53.
    values[word.substr(0, end)] = number == static_cast<double>(static_cast<int64_t>(number))
                                      ? Json::Value(Json::Int64(number))
                                      : Json::Value(number);
}

// What the verbs below `simulate` read from the command line.
struct Options {
    bool isStarting = false;
    std::vector<std::string> words;
    std::string text;
    double number = 0;
    std::string operation;
    int32_t code = 0;
    double seconds = 0;
    std::string spoiled;
};
using Shared = std::shared_ptr<Options>;

void AddValues(CLI::App& simulate, Tool& tool, const Shared& options)
{
    CLI::App* const set = AddVerb(simulate, "set", "Simulate values, until they are released");
    set->add_option("values", options->words, "KEY=NUMBER, by the keys of the device state")->required();
    for (const std::string& key : DeviceKeys()) {
        tool.words[set].push_back(key + "=");
    }
    set->callback([options, &tool] {
        Json::Value command = Command("set");
        for (const std::string& word : options->words) {
            AddValue(command["values"], word);
        }
        Send(command, options->isStarting, tool);
    });
    CLI::App* const release = AddVerb(simulate, "release", "End simulated values; all that were set, without keys");
    release->add_option("keys", options->words, "The keys of the values");
    release->callback([options, &tool] {
        Json::Value command = Command("release");
        command["keys"] = Json::arrayValue;
        for (const std::string& key : options->words) {
            command["keys"].append(key);
        }
        Send(command, options->isStarting, tool);
    });
}

void AddLoad(CLI::App& simulate, Tool& tool, const Shared& options)
{
    CLI::App* const load = AddVerb(simulate, "load", "Play a scenario from its beginning");
    load->add_option("file", options->text, "A path, or the name of an installed scenario")->required();
    for (const ScenarioFile& file : InstalledScenarios()) {
        tool.words[load].push_back(file.name);
    }
    load->callback([options, &tool] {
        const ScenarioFile file = FindScenario(options->text);
        const std::string text = ReadScenario(file);
        if (!TAVO::Veltra::Scenario::Check(text).empty()) {
            CheckScenario(file, text, tool);
            tool.exitCode = EXIT_NO;
            return;
        }
        Json::Value command = Command("load");
        // Parsed again for its values alone: comments and line breaks of the file need not travel.
        command["scenario"] = TAVO::Veltra::ConfigNode::Parse(text, file.path).Value();
        command["name"] = file.name;
        Send(command, options->isStarting, tool);
    });
}

// The verbs that steer time, and `off`: a word, and at most one number.
void AddTime(CLI::App& simulate, Tool& tool, const Shared& options)
{
    const struct {
        const char* name;
        const char* what;
    } plain[] = {{"pause", "Stop the scenario's time"},
                 {"resume", "Let the scenario's time go on"},
                 {"off", "End all of it: the service reports the real device"}};
    for (const auto& [name, what] : plain) {
        AddVerb(simulate, name, what)->callback([options, &tool, command = Command(name)] {
            Send(command, options->isStarting, tool);
        });
    }
    CLI::App* const seek = AddVerb(simulate, "seek", "Go to another time of the scenario");
    seek->add_option("seconds", options->number, "Since its beginning")
        ->required()
        ->check(CLI::Range(0.0, MOST_SECONDS));
    seek->callback([options, &tool] {
        Json::Value command = Command("seek");
        command["seconds"] = options->number;
        Send(command, options->isStarting, tool);
    });
    CLI::App* const speed = AddVerb(simulate, "speed", "Let the scenario's time pass faster or slower");
    speed->add_option("factor", options->number, "1 is real time")
        ->required()
        ->check(CLI::Range(LEAST_SPEED, MOST_SPEED));
    speed->callback([options, &tool] {
        Json::Value command = Command("speed");
        command["factor"] = options->number;
        Send(command, options->isStarting, tool);
    });
}

void AddFaults(CLI::App& simulate, Tool& tool, const Shared& options)
{
    CLI::App* const event = AddVerb(simulate, "event", "Push a game event with this text");
    event->add_option("text", options->text, "What games receive as eventText")->required();
    event->callback([options, &tool] {
        Json::Value command = Command("event");
        command["text"] = options->text;
        Send(command, options->isStarting, tool);
    });
    CLI::App* const fault = AddVerb(simulate, "fault", "Let something go wrong");
    fault->add_option("kind", options->text, "What goes wrong; docs/service.md describes the kinds")->required();
    tool.words[fault] = FaultKinds();
    CLI::Option* const operation = fault->add_option("--operation", options->operation, "Only this operation");
    CLI::Option* const seconds = fault->add_option("--for", options->seconds, "For so many seconds; else until off");
    CLI::Option* const code = fault->add_option("--code", options->code, "The code of a refusal");
    CLI::Option* const text = fault->add_option("--text", options->spoiled, "The document of badText");
    fault->callback([options, &tool, operation, seconds, code, text] {
        Json::Value command = Command("fault");
        command["kind"] = options->text;
        const auto add = [&command](const CLI::Option* option, const char* key, const Json::Value& value) {
            // An option that was not given leaves the default to the service.
            if (option->count() > 0) {
                command[key] = value;
            }
        };
        add(operation, "operation", options->operation);
        add(seconds, "for", options->seconds);
        add(code, "code", options->code);
        add(text, "text", options->spoiled);
        Send(command, options->isStarting, tool);
    });
}

}  // namespace

void AddSimulate(CLI::App& app, Tool& tool)
{
    CLI::App* const simulate = AddVerb(app, "simulate", "Make the service report a simulated device");
    simulate->require_subcommand(1);
    const Shared options = std::make_shared<Options>();
    simulate->add_flag("--start", options->isStarting, "Start the service if it does not run");
    AddSimulateCheck(*simulate, tool);
    AddValues(*simulate, tool, options);
    AddLoad(*simulate, tool, options);
    AddTime(*simulate, tool, options);
    AddFaults(*simulate, tool, options);
}

}  // namespace VeltraTool
