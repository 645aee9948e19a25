// SPDX-License-Identifier: Apache-2.0
#include "scenario/scenario.h"

#include <tavo/read_vector_from_parcel.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>

namespace TAVO::Veltra {

namespace {

constexpr size_t MAX_NAME_BYTES = 64;
constexpr size_t MAX_EVENTS = 1000;
constexpr size_t MAX_EVENT_TEXT_BYTES = 4096;
constexpr double MOST_SECONDS = 1e9;
constexpr double MOST_COUNTER = 9007199254740992;  // 2^53: what a number of the file holds exactly
constexpr double LEAST_INTERVAL_SECONDS = 0.001;

// So that curves of one scenario do not share their noise.
uint64_t SeedOf(std::string_view name, uint64_t seed)
{
    uint64_t hash = 0xcbf29ce484222325U ^ seed;
    for (const char letter : name) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001b3U;
    }
    return hash;
}

std::vector<std::pair<const DeviceField*, Curve>> ParseCurves(const ConfigNode& node, uint64_t seed)
{
    std::vector<std::pair<const DeviceField*, Curve>> curves;
    for (const auto& [key, member] : node.Members()) {
        const DeviceField* field = FindDeviceField(key);
        if (field == nullptr) {
            member.Fail("there is no such value");
        }
        curves.emplace_back(field, Curve::Parse(member, static_cast<double>(field->least),
                                                static_cast<double>(field->most), SeedOf(key, seed)));
    }
    return curves;
}

std::vector<Scenario::Event> ParseEvents(const ConfigNode& node)
{
    std::vector<Scenario::Event> events;
    for (const ConfigNode& item : node.Items(MAX_EVENTS)) {
        item.ExpectKeys({"at", "text"});
        events.push_back({item.Member("at").Number(0, MOST_SECONDS), item.Member("text").Text(MAX_EVENT_TEXT_BYTES)});
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const auto& left, const auto& right) { return left.at < right.at; });
    return events;
}

Scenario::GpuStream ParseGpu(const ConfigNode& node, uint64_t seed)
{
    node.ExpectKeys({"count", "intervalSeconds", "total", "counters"});
    Scenario::GpuStream stream;
    stream.count = static_cast<size_t>(node.IntegerOr("count", 1, 1, MAX_LIST_ELEMENTS));
    if (node.Has("intervalSeconds")) {
        stream.intervalSeconds = node.Member("intervalSeconds").Number(LEAST_INTERVAL_SECONDS, MOST_SECONDS);
    }
    if (node.Has("total")) {
        stream.total = static_cast<uint64_t>(node.Member("total").Integer(1, INT64_MAX));
    }
    for (const auto& [key, member] : node.Member("counters").Members()) {
        const auto name = std::find(GPU_COUNTER_NAMES.begin(), GPU_COUNTER_NAMES.end(), std::string_view(key));
        if (name == GPU_COUNTER_NAMES.end()) {
            member.Fail("there is no such counter");
        }
        const auto counter = static_cast<GpuCounter>(name - GPU_COUNTER_NAMES.begin());
        stream.counters.emplace_back(counter, Curve::Parse(member, 0, MOST_COUNTER, SeedOf(key, seed)));
    }
    return stream;
}

}  // namespace

Scenario Scenario::Load(const std::string& file, uint64_t seed)
{
    const ConfigNode root = ConfigNode::Load(file);
    root.ExpectKeys({"name", "curves", "events", "gpu", "faults"});
    Scenario scenario;
    scenario.name_ = root.TextOr("name", "unnamed", MAX_NAME_BYTES);
    if (root.Has("curves")) {
        scenario.curves_ = ParseCurves(root.Member("curves"), seed);
    }
    if (root.Has("events")) {
        scenario.events_ = ParseEvents(root.Member("events"));
    }
    if (root.Has("gpu")) {
        scenario.gpu_ = ParseGpu(root.Member("gpu"), seed);
    }
    if (root.Has("faults")) {
        scenario.faults_ = FaultPlan::Parse(root.Member("faults"));
    }
    return scenario;
}

DeviceReading Scenario::At(double seconds, const WantedState& wanted) const
{
    DeviceReading reading;
    for (const auto& [field, curve] : curves_) {
        if (wanted.Includes(field->type)) {
            reading.values[field->key] = {std::llround(curve.At(seconds)), "scenario " + name_};
        }
    }
    if (reading.HasLevel()) {
        reading.levelFrom = "scenario";
    }
    return reading;
}

std::vector<Scenario::Event> Scenario::EventsIn(double after, double upTo) const
{
    std::vector<Event> events;
    std::copy_if(events_.begin(), events_.end(), std::back_inserter(events),
                 [after, upTo](const Event& event) { return event.at > after && event.at <= upTo; });
    return events;
}

double Scenario::NextEvent(double seconds) const
{
    const auto next =
        std::find_if(events_.begin(), events_.end(), [seconds](const Event& event) { return event.at > seconds; });
    return next != events_.end() ? next->at : std::numeric_limits<double>::infinity();
}

double ScenarioCounters::Interval(int32_t milliseconds) const
{
    return stream_.intervalSeconds.value_or(GpuCounterSource::Interval(milliseconds));
}

std::vector<GpuPerfInfo> ScenarioCounters::Batch(double now, const CounterStream& stream)
{
    uint64_t sent = stream.sent;
    uint64_t count = stream_.count;
    if (stream_.total) {
        count = std::min(count, *stream_.total - std::min(sent, *stream_.total));
    }
    GpuPerfInfo sample;
    sample.long1 = static_cast<int64_t>(now * 1e9);
    for (const auto& [counter, curve] : stream_.counters) {
        SetGpuCounter(sample, counter, static_cast<uint64_t>(std::llround(curve.At(now))));
    }
    std::vector<GpuPerfInfo> batch(count, sample);
    for (GpuPerfInfo& numbered : batch) {
        numbered.long2 = static_cast<int64_t>(sent++);
    }
    return batch;
}

}  // namespace TAVO::Veltra
