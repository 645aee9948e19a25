// SPDX-License-Identifier: Apache-2.0
// Parse reads the five parts of the file; each part and each item runs in a Try of its own, so that Check reports every
// mistake at once, in the order of lines. Afterwards the scenario is constant and any thread may ask. Values and
// samples are functions of the time alone. The seed of a curve comes from its name and the scenario's seed, so a curve
// keeps its noise when others are added or removed.
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

// FNV-1a of the name, so that curves of one scenario do not share their noise.
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
        node.Try([&, &name = key, &curve = member] {
            const DeviceField* field = FindDeviceField(name);
            if (field == nullptr) {
                curve.Fail("there is no such value");
            }
            curves.emplace_back(field, Curve::Parse(curve, static_cast<double>(field->least),
                                                    static_cast<double>(field->most), SeedOf(name, seed)));
        });
    }
    return curves;
}

std::vector<Scenario::Event> ParseEvents(const ConfigNode& node)
{
    std::vector<Scenario::Event> events;
    for (const ConfigNode& item : node.Items(MAX_EVENTS)) {
        Scenario::Event event;
        item.Try([&] { item.ExpectKeys({"at", "text"}); });
        item.Try([&] { event.at = item.Member("at").Number(0, MOST_SECONDS); });
        item.Try([&] { event.text = item.Member("text").Text(MAX_EVENT_TEXT_BYTES); });
        events.push_back(std::move(event));
    }
    // EventsIn and NextEvent search in order of time; events of the same time keep the order of the file.
    std::stable_sort(events.begin(), events.end(),
                     [](const auto& left, const auto& right) { return left.at < right.at; });
    return events;
}

GpuCounter CounterNamed(std::string_view key, const ConfigNode& node)
{
    const auto name = std::find(GPU_COUNTER_NAMES.begin(), GPU_COUNTER_NAMES.end(), key);
    if (name == GPU_COUNTER_NAMES.end()) {
        node.Fail("there is no such counter");
    }
    return static_cast<GpuCounter>(name - GPU_COUNTER_NAMES.begin());
}

Scenario::GpuStream ParseGpu(const ConfigNode& node, uint64_t seed)
{
    node.ExpectKeys({"count", "intervalSeconds", "total", "counters"});
    Scenario::GpuStream stream;
    node.Try([&] { stream.count = static_cast<size_t>(node.IntegerOr("count", 1, 1, MAX_LIST_ELEMENTS)); });
    node.Try([&] {
        if (node.Has("intervalSeconds")) {
            stream.intervalSeconds = node.Member("intervalSeconds").Number(LEAST_INTERVAL_SECONDS, MOST_SECONDS);
        }
    });
    node.Try([&] {
        if (node.Has("total")) {
            stream.total = static_cast<uint64_t>(node.Member("total").Integer(1, INT64_MAX));
        }
    });
    for (const auto& [key, member] : node.Member("counters").Members()) {
        node.Try([&, &name = key, &curve = member] {
            stream.counters.emplace_back(CounterNamed(name, curve),
                                         Curve::Parse(curve, 0, MOST_COUNTER, SeedOf(name, seed)));
        });
    }
    return stream;
}

}  // namespace

Scenario Scenario::Load(const std::string& file, uint64_t seed)
{
    return Parse(ConfigNode::Load(file), seed);
}

std::vector<ConfigMistake> Scenario::Check(std::string text)
{
    std::vector<ConfigMistake> mistakes;
    try {
        const ConfigNode root = ConfigNode::Parse(std::move(text), "", &mistakes);
        root.Try([&root] { Parse(root, 0); });
    } catch (const ConfigError& error) {
        mistakes.push_back(error.Mistake());
    }
    std::stable_sort(mistakes.begin(), mistakes.end(), [](const ConfigMistake& left, const ConfigMistake& right) {
        return std::pair(left.line, left.column) < std::pair(right.line, right.column);
    });
    return mistakes;
}

Scenario Scenario::Parse(const ConfigNode& root, uint64_t seed)
{
    root.ExpectKeys({"name", "curves", "events", "gpu", "faults"});
    Scenario scenario;
    root.Try([&] { scenario.name_ = root.TextOr("name", "unnamed", MAX_NAME_BYTES); });
    const auto readMember = [&root](const char* key, const auto& read) {
        if (root.Has(key)) {
            root.Try([&] { read(root.Member(key)); });
        }
    };
    readMember("curves", [&](const ConfigNode& node) { scenario.curves_ = ParseCurves(node, seed); });
    readMember("events", [&](const ConfigNode& node) { scenario.events_ = ParseEvents(node); });
    readMember("gpu", [&](const ConfigNode& node) { scenario.gpu_ = ParseGpu(node, seed); });
    readMember("faults", [&](const ConfigNode& node) { scenario.faults_ = FaultPlan::Parse(node); });
    return scenario;
}

std::map<std::string, int64_t> Scenario::At(double seconds, const WantedState& wanted) const
{
    std::map<std::string, int64_t> values;
    for (const auto& [field, curve] : curves_) {
        if (wanted.Includes(field->type)) {
            values[field->key] = std::llround(curve.At(seconds));
        }
    }
    return values;
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

std::vector<GpuPerfInfo> Scenario::Samples(double seconds, const CounterStream& stream) const
{
    uint64_t sent = stream.sent;
    uint64_t count = gpu_->count;
    if (gpu_->total) {
        // A stream with a total ends in the middle of a batch if need be; later batches are empty.
        count = std::min(count, *gpu_->total - std::min(sent - stream.earlier, *gpu_->total));
    }
    GpuPerfInfo sample;
    sample.long1 = static_cast<int64_t>(seconds * 1e9);
    for (const auto& [counter, curve] : gpu_->counters) {
        SetGpuCounter(sample, counter, static_cast<uint64_t>(std::llround(curve.At(seconds))));
    }
    // Samples of one batch differ by their number only, so that a receiver can find gaps.
    std::vector<GpuPerfInfo> batch(count, sample);
    for (GpuPerfInfo& numbered : batch) {
        numbered.long2 = static_cast<int64_t>(sent++);
    }
    return batch;
}

}  // namespace TAVO::Veltra
