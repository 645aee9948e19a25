// SPDX-License-Identifier: Apache-2.0
// The verb `scenario`. The service records all values when one of them has changed, at most once a second, and a
// scenario joins points by straight lines. So a value that stays the same is held until shortly before it changes, and
// between two looks of the service the curve is a line. A curve has a bounded number of points and the file a bounded
// length: of a recording that has more, one value for every few seconds is kept, as few as needed.
#include "recorded_scenario.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>

#include "line_file.h"
#include "recording.h"
#include "scenario/curve.h"
#include "scenario/scenario.h"
#include "verbs.h"

namespace VeltraTool {

using namespace TAVO::Veltra;

namespace {

constexpr int64_t LOOK_MICROSECONDS = 1000000;  // between two looks of the service at the device
constexpr int64_t LOOK_JITTER = 500000;
constexpr int64_t SAME_EVENT_MICROSECONDS = 1000000;  // one event reaches its subscribers within this time
constexpr size_t MAX_EVENTS = 1000;
constexpr int64_t MOST_STEP = int64_t{1} << 50;
constexpr char OWN_EVENT[] = "deviceState";  // pushed by the service itself when a curve changes

using Points = std::vector<std::pair<int64_t, double>>;

class ScenarioBuilder {
public:
    void Add(const Json::Value& record, const RecordingReader& reader)
    {
        const int64_t time = MicrosecondsOf(record);
        if (!hasBegun_) {
            hasBegun_ = true;
            begin_ = time;
        }
        if (record["type"] == "device" && record["values"].isObject()) {
            AddValues(record["values"], std::max<int64_t>(time - begin_, 0), reader);
        } else if (record["type"] == "push" && record["what"] == "gameEvent" &&
                   record["data"]["eventText"].isString()) {
            AddEvent(record["data"]["eventText"].asString(), ProcessOf(record), std::max<int64_t>(time - begin_, 0));
        }
    }

    std::string Text() const
    {
        // First all values, then half as many in each attempt, until it fits.
        for (int64_t step = 0; step < MOST_STEP; step = step == 0 ? 2 * LOOK_MICROSECONDS : step * 2) {
            const std::optional<Json::Value> scenario = Document(step);
            std::string text = scenario ? JsonText(*scenario) : "";
            if (scenario && text.size() < ConfigNode::MAX_FILE_BYTES) {
                Report(step);
                return text;
            }
        }
        throw ToolError(EXIT_NO, "the recording does not fit into a scenario", "make a shorter recording");
    }

private:
    struct Event {
        int64_t time;
        std::string text;
    };

    void AddValues(const Json::Value& values, int64_t time, const RecordingReader& reader)
    {
        for (const std::string& key : values.getMemberNames()) {
            const DeviceField* const field = FindDeviceField(key);
            if (field == nullptr) {
                continue;  // of a later version
            }
            const double value = values[key].asDouble();
            if (value < static_cast<double>(field->least) || value > static_cast<double>(field->most)) {
                reader.Fail("has a " + key + " out of its bounds");
            }
            Points& points = points_[key];
            // Times of a curve must ascend strictly.
            if (points.empty() || time > points.back().first) {
                points.emplace_back(time, value);
            }
        }
    }

    // One event of the service is a push to each subscriber.
    void AddEvent(const std::string& text, int32_t process, int64_t time)
    {
        if (text.empty() || text == OWN_EVENT) {
            return;
        }
        auto& [since, receivers] = latest_[text];
        // A second push with the same text to the same process is another event.
        if (receivers.empty() || time > since + SAME_EVENT_MICROSECONDS || receivers.count(process) > 0) {
            receivers.clear();
            since = time;
            if (events_.size() < MAX_EVENTS) {
                events_.push_back({time, text});
            } else {
                ++droppedEvents_;
            }
        }
        receivers.insert(process);
    }

    // With `step`, at most one value in so many microseconds. Empty: there are too many points.
    static std::optional<Json::Value> CurveOf(const Points& recorded, int64_t step)
    {
        const int64_t look = std::max(step, LOOK_MICROSECONDS);
        Points points;
        for (size_t i = 0; i < recorded.size(); ++i) {
            const auto& [time, value] = recorded[i];
            if (points.empty()) {
                points.push_back(recorded[i]);
                continue;
            }
            const bool isLast = i + 1 == recorded.size();
            if (value == points.back().second || (step > 0 && !isLast && time < points.back().first + step)) {
                continue;
            }
            if (time > points.back().first + look + LOOK_JITTER) {  // held until the look before
                points.emplace_back(time - look, points.back().second);
            }
            points.push_back(recorded[i]);
        }
        if (points.size() > Curve::MAX_POINTS) {
            return std::nullopt;
        }
        Json::Value curve;
        for (const auto& [time, value] : points) {
            Json::Value point = Json::arrayValue;
            point.append(static_cast<double>(time) / 1e6);
            point.append(value);
            curve["points"].append(point);
        }
        return curve;
    }

    std::optional<Json::Value> Document(int64_t step) const
    {
        Json::Value scenario;
        scenario["name"] = "recorded";
        scenario["curves"] = Json::objectValue;
        for (const auto& [key, points] : points_) {
            std::optional<Json::Value> curve = CurveOf(points, step);
            if (!curve) {
                return std::nullopt;
            }
            scenario["curves"][key] = std::move(*curve);
        }
        for (const Event& event : events_) {
            Json::Value entry;
            entry["at"] = static_cast<double>(event.time) / 1e6;
            entry["text"] = event.text;
            scenario["events"].append(entry);
        }
        return scenario;
    }

    void Report(int64_t step) const
    {
        if (points_.empty()) {
            std::fprintf(stderr, "veltra: the recording has no values of the device; the scenario draws none\n");
        }
        if (step > 0) {
            std::fprintf(stderr,
                         "veltra: the curves have one value in %lld s: a scenario is shorter than the recording\n",
                         static_cast<long long>(step / 1000000));
        }
        if (droppedEvents_ > 0) {
            std::fprintf(stderr, "veltra: %zu events are left out: a scenario has at most 1000\n", droppedEvents_);
        }
    }

    bool hasBegun_ = false;
    int64_t begin_ = 0;
    std::map<std::string, Points> points_;  // by DeviceField::key
    std::vector<Event> events_;
    std::map<std::string, std::pair<int64_t, std::set<int32_t>>> latest_;  // by text: when, and to whom
    size_t droppedEvents_ = 0;
};

}  // namespace

void WriteRecordedScenario(const std::string& recording, const std::string& output)
{
    RequireOtherFile(recording, output);
    RecordingReader reader(recording);
    ScenarioBuilder builder;
    while (const std::optional<Json::Value> record = reader.Next()) {
        builder.Add(*record, reader);
    }
    const std::string text = builder.Text();
    // By the code that plays scenarios: what is written can be loaded.
    if (const std::vector<ConfigMistake> mistakes = Scenario::Check(text); !mistakes.empty()) {
        throw ToolError(EXIT_NO, "the recording makes no scenario: " + mistakes.front().text);
    }
    LineFile(output).Write(text);
}

void AddScenario(CLI::App& app, Tool&)
{
    CLI::App* const verb = AddVerb(app, "scenario", "Make a scenario of a recording");
    const auto recording = std::make_shared<std::string>();
    const auto output = std::make_shared<std::string>();
    verb->add_option("recording", *recording, "What record wrote")->required();
    verb->add_option("-o,--output", *output, "The file to write, which is replaced; - is standard output")->required();
    verb->callback([recording, output] { WriteRecordedScenario(*recording, *output); });
}

}  // namespace VeltraTool
