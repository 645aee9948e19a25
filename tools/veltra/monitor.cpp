// SPDX-License-Identifier: Apache-2.0
// The verb `monitor`: one line for each call and push, as the service handles it, with its result and its time. Process
// and operation are filtered by the service, the result here.
#include <algorithm>
#include <cstdio>
#include <memory>

#include "reach.h"
#include "record_stream.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

constexpr size_t MOST_SHOWN_BYTES = 160;  // of the arguments and of the answer, each

struct MonitorOptions {
    std::vector<int32_t> processes;
    std::vector<std::string> operations;
    std::vector<int32_t> codes;
    bool isFailedOnly = false;
    double seconds = 0;
    uint64_t count = 0;
    bool isStarting = false;

    bool ChoosesResults() const { return isFailedOnly || !codes.empty(); }
};

// "key=value key=value", cut where it gets long.
std::string ShownMembers(const Json::Value& object)
{
    std::string line;
    if (!object.isObject()) {
        return line;
    }
    for (const std::string& key : object.getMemberNames()) {
        line += " " + key + "=" + ShownValue(object[key]);
        if (line.size() > MOST_SHOWN_BYTES) {
            return Escaped(line.substr(0, MOST_SHOWN_BYTES)) + "...";
        }
    }
    return Escaped(line);
}

int64_t NumberIn(const Json::Value& record, const char* key)
{
    return record[key].isInt64() ? record[key].asInt64() : 0;
}

std::string ShownResult(const Json::Value& record, const char* key)
{
    const auto code = static_cast<int32_t>(NumberIn(record, key));
    return Toned(NameOfCode(code), code == 0 ? Tone::GOOD : Tone::BAD);
}

// What happened, behind time and process.
std::string ShownEvent(const Json::Value& record)
{
    const std::string type = TextOf(record["type"]);
    const std::string time = " " + Shown(NumberOf(record["us"]), 1) + " us";
    const std::string cut = record["cut"].isBool() && record["cut"].asBool() ? " (cut)" : "";
    if (type == "call") {
        const std::string answer = ShownMembers(record["reply"]);
        return Escaped(TextOf(record["op"])) + ShownMembers(record["args"]) + " -> " + ShownResult(record, "code") +
               time + (answer.empty() ? "" : ":" + answer) + cut;
    }
    if (type == "push") {
        return "push " + Escaped(TextOf(record["what"])) + ShownMembers(record["data"]) + " -> " +
               ShownResult(record, "status") + time + cut;
    }
    return Escaped(type) + (type == "game" ? " " + Escaped(TextOf(record["event"])) : ShownMembers(record["command"]));
}

class Monitor : public RecordSink {
public:
    Monitor(const Tool& tool, const MonitorOptions& options) : tool_(tool), options_(options) {}

    void OnRecord(const std::string&, const Json::Value& record) override
    {
        if (!IsWanted(record)) {
            return;
        }
        ++shown_;
        if (tool_.isJson) {
            PrintJsonLine(record);
            return;
        }
        const int64_t process = NumberIn(record, "pid");
        PrintLine(TimeOfDay(NumberOf(record["t"])) + " " + (process > 0 ? std::to_string(process) : "-") + " " +
                  ShownEvent(record));
    }

    void OnLost(uint64_t count) override
    {
        if (!tool_.isJson) {
            PrintLine(Toned(std::to_string(count) + " records were lost", Tone::WARNING));
            return;
        }
        // A document of its own, so that a script can count what it has missed.
        Json::Value dropped;
        dropped["type"] = "dropped";
        dropped["t"] = SecondsNow();
        dropped["count"] = Json::UInt64(count);
        PrintJsonLine(dropped);
    }

    bool IsEnough() override { return options_.count > 0 && shown_ >= options_.count; }

private:
    bool IsWanted(const Json::Value& record) const
    {
        const bool isCall = TextOf(record["type"]) == "call";
        const bool isPush = TextOf(record["type"]) == "push";
        // With a filter for operations, pushes and other records are left out; with one for results, those that have
        // none.
        if (!isCall && (!options_.operations.empty() || (!isPush && options_.ChoosesResults()))) {
            return false;
        }
        const auto code = static_cast<int32_t>(NumberIn(record, isCall ? "code" : "status"));
        const auto& codes = options_.codes;
        return (!options_.isFailedOnly || code != 0) &&
               (codes.empty() || std::find(codes.begin(), codes.end(), code) != codes.end());
    }

    const Tool& tool_;
    const MonitorOptions& options_;
    uint64_t shown_ = 0;
};

Json::Value FilterOf(const MonitorOptions& options)
{
    Json::Value filter;
    filter["device"] = false;
    // What is filtered by the service does not travel.
    filter["pushes"] = options.operations.empty();
    for (const int32_t process : options.processes) {
        filter["pid"].append(process);
    }
    for (const std::string& operation : options.operations) {
        filter["operation"].append(operation);
    }
    return filter;
}

}  // namespace

void AddMonitor(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "monitor", "One line for each call and push, as it happens");
    const auto options = std::make_shared<MonitorOptions>();
    verb->add_option("--pid", options->processes, "Only these processes")->check(CLI::PositiveNumber);
    verb->add_option("--operation", options->operations, "Only calls of these operations");
    verb->add_option("--code", options->codes, "Only calls and pushes with these result codes");
    verb->add_flag("--failed", options->isFailedOnly, "Only calls and pushes with a result other than 0");
    verb->add_option("--for", options->seconds, "End after so many seconds")
        ->check(CLI::Range(0.0, MOST_STREAM_SECONDS));
    verb->add_option("--count", options->count, "End after so many lines");
    verb->add_flag("--start", options->isStarting, "Start the service if it does not run");
    verb->callback([options, &tool] {
        Monitor monitor(tool, *options);
        FollowRecords(ReachControl(options->isStarting), FilterOf(*options), options->seconds, monitor);
    });
}

}  // namespace VeltraTool
