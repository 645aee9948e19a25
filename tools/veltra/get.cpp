// SPDX-License-Identifier: Apache-2.0
// The verb `get`: values of the device state. A key is the last part of a value's path in the document, or all of it
// (thermalInfo.thermalMargin). What this machine does not report is no value, and exits with a status of its own.
#include <algorithm>
#include <memory>

#include "reach.h"
#include "scenario_files.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

struct Value {
    std::string path;
    std::string key;  // the last part of the path
    Json::Value value;
    std::string unit;
    std::string source;
};

// The values below `node`, with the units and sources that the document names for them or for what contains them.
void Collect(const Json::Value& document, const Json::Value& node, const std::string& prefix, const std::string& owner,
             std::vector<Value>& values)
{
    for (const std::string& key : node.getMemberNames()) {
        // Tables about the values, not values.
        if (prefix.empty() && (key == "sources" || key == "units")) {
            continue;
        }
        const Json::Value& member = node[key];
        const auto text = [&](const char* table) {
            const Json::Value& names = document[table];
            return !names.isObject() ? "" : names.isMember(key) ? TextOf(names[key]) : TextOf(names[owner]);
        };
        if (member.isObject()) {
            // Values inside an object such as cpuFrequencies share the unit and source of the object.
            Collect(document, member, prefix + key + ".", key, values);
        } else {
            values.push_back({prefix + key, key, member, text("units"), text("sources")});
        }
    }
}

std::vector<Value> ReadDevice(bool isStarting)
{
    std::string answer;
    const int32_t result = ReachControl(isStarting)->Describe(answer);
    const Json::Value document = RequireAnswer(result, answer);
    if (!document["device"].isObject()) {
        throw ToolError(EXIT_NOT_SUPPORTED, "this machine reports no value of its state",
                        "\"veltra explain\" lists what was looked for");
    }
    std::vector<Value> values;
    Collect(document["device"], document["device"], "", "", values);
    return values;
}

// The values with one of the keys, in the order of the keys; the others in `missing`.
std::vector<Value> Select(const std::vector<Value>& all, const std::vector<std::string>& keys,
                          std::vector<std::string>& missing)
{
    std::vector<Value> selected;
    for (const std::string& key : keys) {
        const size_t before = selected.size();
        std::copy_if(all.begin(), all.end(), std::back_inserter(selected),
                     // A short key may select several values, such as one of each policy.
                     [&key](const Value& value) { return value.path == key || value.key == key; });
        if (selected.size() == before) {
            missing.push_back(key);
        }
    }
    return selected;
}

void PrintValues(const std::vector<Value>& values)
{
    for (const Value& value : values) {
        PrintLine(Escaped(value.path + " = " + ShownValue(value.value) + (value.unit.empty() ? "" : " " + value.unit) +
                          (value.source.empty() ? "" : "    (" + value.source + ")")));
    }
}

Json::Value Document(const std::vector<Value>& values, const std::vector<std::string>& missing)
{
    Json::Value document;
    document["values"] = Json::objectValue;
    for (const Value& value : values) {
        Json::Value& entry = document["values"][value.path];
        entry["value"] = value.value;
        if (!value.unit.empty()) {
            entry["unit"] = value.unit;
        }
        if (!value.source.empty()) {
            entry["source"] = value.source;
        }
    }
    document["missing"] = Json::arrayValue;
    for (const std::string& key : missing) {
        document["missing"].append(key);
    }
    return document;
}

void Run(Tool& tool, const std::vector<std::string>& keys, bool isStarting)
{
    const std::vector<Value> all = ReadDevice(isStarting);
    std::vector<std::string> missing;
    const std::vector<Value> values = keys.empty() ? all : Select(all, keys, missing);
    tool.exitCode = missing.empty() ? EXIT_DONE : EXIT_NOT_SUPPORTED;
    if (tool.isJson) {
        PrintJson(Document(values, missing));
        return;
    }
    if (keys.size() == 1 && values.size() == 1) {
        PrintLine(Escaped(ShownValue(values.front().value)));  // for scripts: nothing but the value
        return;
    }
    PrintValues(values);
    if (!missing.empty()) {
        throw ToolError(EXIT_NOT_SUPPORTED, "this machine does not report " + missing.front(),
                        "\"veltra get\" lists what it reports");
    }
}

}  // namespace

void AddGet(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "get", "Values of the device state, with unit and source");
    const auto keys = std::make_shared<std::vector<std::string>>();
    const auto isStarting = std::make_shared<bool>(false);
    verb->add_option("keys", *keys, "Their names, such as tempLevel; all without a name");
    verb->add_flag("--start", *isStarting, "Start the service if it does not run");
    tool.words[verb] = DeviceKeys();
    verb->callback([keys, isStarting, &tool] { Run(tool, *keys, *isStarting); });
}

}  // namespace VeltraTool
