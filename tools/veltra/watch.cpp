// SPDX-License-Identifier: Apache-2.0
// The verb `watch`: one line for each value of the device state that changes, the first for each value that there is.
// The service sends its values as records; which of them have changed is found out here.
#include <algorithm>
#include <map>
#include <memory>

#include "reach.h"
#include "scenario_files.h"
#include "utils/json_utils.h"
#include "verbs.h"
#include "watch_queue.h"

namespace VeltraTool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double MOST_SECONDS = 1e9;

struct WatchOptions {
    std::vector<std::string> keys;
    double seconds = 0;  // 0: until it is ended
    uint64_t count = 0;  // 0: no limit
    bool isStarting = false;
};

// On main's thread only; the callback of the service just fills the queue.
class Changes {
public:
    Changes(const WatchOptions& options, const Tool& tool) : options_(options), tool_(tool) {}

    void Take(const std::string& line)
    {
        const Json::Value record = TAVO::Veltra::JsonUtils::StringToJson(line);
        if (!record.isObject() || TextOf(record["type"]) != "device" || !record["values"].isObject()) {
            return;
        }
        const Json::Value& values = record["values"];
        for (const std::string& key : values.getMemberNames()) {
            const bool isWanted = options_.keys.empty() ||
                                  std::find(options_.keys.begin(), options_.keys.end(), key) != options_.keys.end();
            if (isWanted && !IsEnough()) {
                Report(NumberOf(record["t"]), key, values[key]);
            }
        }
    }

    bool IsEnough() const { return options_.count > 0 && reported_ >= options_.count; }

private:
    void Report(double time, const std::string& key, const Json::Value& value)
    {
        const auto [before, isNew] = last_.emplace(key, value);
        // A record has all values, also those that have not changed.
        if (!isNew && before->second == value) {
            return;
        }
        ++reported_;
        if (tool_.isJson) {
            Json::Value change;
            change["t"] = time;
            change["key"] = key;
            change["value"] = value;
            if (!isNew) {
                change["before"] = before->second;
            }
            PrintJsonLine(change);
        } else {
            PrintLine(TimeOfDay(time) + " " + Escaped(key) + " " +
                      (isNew ? "" : Escaped(ShownValue(before->second)) + " -> ") + Escaped(ShownValue(value)));
        }
        before->second = value;
    }

    const WatchOptions& options_;
    const Tool& tool_;
    std::map<std::string, Json::Value> last_;
    uint64_t reported_ = 0;
};

void Run(Tool& tool, const WatchOptions& options)
{
    const auto control = ReachControl(options.isStarting);
    WatchQueue& queue = WatchQueue::Instance();
    BeginWatch(control, R"({"device":true})");
    const double seconds = options.seconds > 0 ? options.seconds : MOST_SECONDS;
    const Clock::time_point deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    Changes changes(options, tool);
    while (!changes.IsEnough()) {
        const std::optional<std::string> line = queue.Take(deadline);
        if (const uint64_t lost = queue.TakeLost(); lost > 0) {
            std::fprintf(stderr, "veltra: %llu records were lost\n", static_cast<unsigned long long>(lost));
        }
        if (!line) {
            break;
        }
        changes.Take(*line);
    }
    if (queue.Ended() == EXIT_UNREACHABLE) {
        throw ToolError(EXIT_UNREACHABLE, "the service has ended", "a game's next call starts it, or --start");
    }
    // Only on the regular end. A tool that is killed is noticed by the service, which then drops the watch.
    control->Unwatch();
}

}  // namespace

void AddWatch(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "watch", "One line for each value of the device state that changes");
    const auto options = std::make_shared<WatchOptions>();
    verb->add_option("keys", options->keys, "Only these values");
    verb->add_option("--for", options->seconds, "End after so many seconds")->check(CLI::Range(0.0, MOST_SECONDS));
    verb->add_option("--count", options->count, "End after so many lines");
    verb->add_flag("--start", options->isStarting, "Start the service if it does not run");
    tool.words[verb] = DeviceKeys();
    verb->callback([options, &tool] { Run(tool, *options); });
}

}  // namespace VeltraTool
