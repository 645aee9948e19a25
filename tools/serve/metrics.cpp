// SPDX-License-Identifier: Apache-2.0
// Each look at the service is converted into metrics by itself: the service counts, and this program keeps no counter
// of its own, so no count is lost when it ends or when no scrape comes. Names follow the conventions of Prometheus:
// base units, ratios from 0 to 1, counters that end in _total. The document comes from another process, so the number
// and the length of the names that become labels are limited. Names of games are no labels: games choose them, so they
// are only counted.
#include "metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <sstream>

#include "output.h"

namespace VeltraServe {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using VeltraTool::MemberOf;
using VeltraTool::NumberOf;
using VeltraTool::TextOf;
using Labels = std::vector<ClientMetric::Label>;

namespace {

constexpr size_t MAX_LABEL_BYTES = 128;
constexpr size_t MAX_ITEMS = 64;  // of one family: operations, kinds of pushes, processor groups
constexpr double MICROSECOND = 1e-6;

struct DeviceMetric {
    const char* section;  // null: of the device itself
    const char* key;
    const char* name;
    double scale;
    const char* help;
};
constexpr double PERCENT = 0.01;
constexpr double MEGAHERTZ = 1e6;
constexpr double MILLIWATT = 1e-3;
constexpr DeviceMetric DEVICE_METRICS[] = {
    {nullptr, "tempLevel", "veltra_temperature_level", 1, "Temperature level, 0 cool to 5 critical"},
    {nullptr, "temperature", "veltra_temperature_celsius", 1, "Temperature of the sensor that decides the level"},
    {"thermalInfo", "thermalMargin", "veltra_thermal_margin_celsius", 1, "Degrees up to the next trip point"},
    {"thermalInfo", "thermalTrend", "veltra_thermal_trend", 1, "1 rising, -1 falling, 0 neither"},
    {"thermalInfo", "throttling", "veltra_throttling", 1, "1 while the kernel reports throttling because of heat"},
    {"thermalInfo", "fanRpm", "veltra_fan_rpm", 1, "Revolutions per minute of the fastest fan"},
    {"gpuInfo", "gpuLoadLevel", "veltra_gpu_load_level", 1, "Load level of the GPU, 0 to 5"},
    {"gpuInfo", "gpuLoadPercent", "veltra_gpu_load_ratio", PERCENT, "Load of the GPU"},
    {"gpuInfo", "vertexLoadLevel", "veltra_gpu_vertex_load_level", 1, "Load level of the vertex units"},
    {"gpuInfo", "fragmentLoadLevel", "veltra_gpu_fragment_load_level", 1, "Load level of the fragment units"},
    {"gpuInfo", "textureLoadLevel", "veltra_gpu_texture_load_level", 1, "Load level of the texture units"},
    {"gpuInfo", "bandwidthLoadLevel", "veltra_gpu_bandwidth_load_level", 1,
     "Load level of the interface to the memory"},
    {"gpuInfo", "currentFrequency", "veltra_gpu_frequency_hertz", MEGAHERTZ, "Frequency of the GPU"},
    {"gpuInfo", "gpuFrequencyCap", "veltra_gpu_frequency_cap_hertz", MEGAHERTZ, "Highest GPU frequency allowed now"},
    {"gpuInfo", "gpuFrequencyMax", "veltra_gpu_frequency_max_hertz", MEGAHERTZ,
     "Highest GPU frequency of the hardware"},
    {"gpuInfo", "gpuMemoryUsedBytes", "veltra_gpu_memory_used_bytes", 1, "Used memory of the GPU"},
    {"gpuInfo", "gpuMemoryTotalBytes", "veltra_gpu_memory_bytes", 1, "Memory of the GPU"},
    {"gpuInfo", "gpuPowerMilliwatts", "veltra_gpu_power_watts", MILLIWATT, "Power of the GPU"},
    {nullptr, "cpuLoadPercent", "veltra_cpu_load_ratio", PERCENT, "Load of all processors"},
    {nullptr, "cpuPressurePercent", "veltra_cpu_pressure_ratio", PERCENT,
     "Share of time in which work waited for a processor"},
    {"memoryInfo", "memoryAvailableBytes", "veltra_memory_available_bytes", 1, "Main memory that is available"},
    {"memoryInfo", "memoryTotalBytes", "veltra_memory_bytes", 1, "Main memory"},
    {"memoryInfo", "memoryPressurePercent", "veltra_memory_pressure_ratio", PERCENT,
     "Share of time in which work waited for memory"},
    {"powerInfo", "batteryPercent", "veltra_battery_charge_ratio", PERCENT, "Charge of the battery"},
    {"powerInfo", "batteryCharging", "veltra_battery_charging", 1, "1 while the battery is being charged"},
    {"powerInfo", "powerDrawMilliwatts", "veltra_battery_power_watts", MILLIWATT, "What the battery supplies"},
};

struct FrequencyMetric {
    const char* key;
    const char* name;
    const char* help;
};
constexpr FrequencyMetric FREQUENCY_METRICS[] = {
    {"cpuFrequencies", "veltra_cpu_frequency_hertz", "Frequency of a group of processors"},
    {"cpuFrequencyCaps", "veltra_cpu_frequency_cap_hertz", "Highest frequency of the group that is allowed now"},
    {"cpuFrequencyMaxima", "veltra_cpu_frequency_max_hertz", "Highest frequency of the group by its hardware"},
};

// A text of another process as the value of a label: printable, valid UTF-8, and short.
std::string LabelOf(const Json::Value& text)
{
    std::string label = VeltraTool::Escaped(TextOf(text));
    if (label.size() > MAX_LABEL_BYTES) {
        label.resize(MAX_LABEL_BYTES);
        while (!label.empty() && (static_cast<unsigned char>(label.back()) & 0xc0) == 0x80) {
            label.pop_back();  // the rest of a character that was cut
        }
        if (!label.empty() && static_cast<unsigned char>(label.back()) >= 0xc0) {
            label.pop_back();
        }
    }
    return label;
}

// The sensor or file. Of a simulated value without the scenario's name, which anybody may choose.
std::string SourceOf(const Json::Value& device, const char* key)
{
    const Json::Value& source = MemberOf(MemberOf(device, "sources"), key);
    return TextOf(source).rfind("simulation", 0) == 0 ? "simulation" : LabelOf(source);
}

ClientMetric& AddTo(MetricFamily& family, Labels labels)
{
    family.metric.emplace_back();
    family.metric.back().label = std::move(labels);
    return family.metric.back();
}

void AddCounterTo(MetricFamily& family, Labels labels, double value)
{
    AddTo(family, std::move(labels)).counter.value = std::max(value, 0.0);
}

class Metrics {
public:
    // One without values is left out.
    void Add(MetricFamily family)
    {
        if (!family.metric.empty()) {
            families_.push_back(std::move(family));
        }
    }
    void AddGauge(const char* name, const char* help, double value, Labels labels = {})
    {
        MetricFamily family{name, help, MetricType::Gauge, {}};
        AddTo(family, std::move(labels)).gauge.value = value;
        Add(std::move(family));
    }
    std::string Text() const
    {
        std::ostringstream text;
        prometheus::TextSerializer().Serialize(text, families_);
        return text.str();
    }

private:
    std::vector<MetricFamily> families_;
};

// Calls `add` with each of the first members of the object and its name as a label.
template <typename AddMember>
void ForMembers(const Json::Value& object, AddMember add)
{
    if (!object.isObject()) {
        return;
    }
    size_t added = 0;
    for (const std::string& name : object.getMemberNames()) {
        if (++added > MAX_ITEMS) {
            return;
        }
        add(LabelOf(name), object[name]);
    }
}

void AddDevice(const Json::Value& device, Metrics& metrics)
{
    for (const DeviceMetric& row : DEVICE_METRICS) {
        const Json::Value& value = MemberOf(row.section == nullptr ? device : MemberOf(device, row.section), row.key);
        const bool isLevel = row.section == nullptr && row.key == std::string_view("tempLevel");
        if (!value.isNumeric() || (isLevel && value.asDouble() < 0)) {  // level -1: not known
            continue;
        }
        metrics.AddGauge(row.name, row.help, value.asDouble() * row.scale, {{"source", SourceOf(device, row.key)}});
    }
    for (const FrequencyMetric& row : FREQUENCY_METRICS) {
        MetricFamily family{row.name, row.help, MetricType::Gauge, {}};
        ForMembers(MemberOf(device, row.key), [&family](const std::string& policy, const Json::Value& value) {
            AddTo(family, {{"policy", policy}}).gauge.value = NumberOf(value) * MEGAHERTZ;
        });
        metrics.Add(std::move(family));
    }
}

void FillHistogram(const Json::Value& calls, ClientMetric::Histogram& histogram)
{
    histogram.sample_count = static_cast<uint64_t>(std::max(NumberOf(MemberOf(calls, "count")), 0.0));
    histogram.sample_sum = NumberOf(MemberOf(calls, "totalus")) * MICROSECOND;
    const Json::Value& buckets = MemberOf(calls, "buckets");
    double below = 0;  // buckets are cumulative, so each has at least the count of the previous one
    for (Json::ArrayIndex i = 0; buckets.isArray() && i < std::min<Json::ArrayIndex>(buckets.size(), MAX_ITEMS); ++i) {
        const Json::Value& pair = buckets[i];
        if (pair.isArray() && pair.size() == 2 && pair[0].isNumeric() && pair[1].isNumeric()) {
            below = std::clamp(pair[1].asDouble(), below, static_cast<double>(histogram.sample_count));
            histogram.bucket.push_back({static_cast<uint64_t>(below), pair[0].asDouble() * MICROSECOND});
        }
    }
    histogram.bucket.push_back({histogram.sample_count, std::numeric_limits<double>::infinity()});
}

void AddCalls(const Json::Value& calls, Metrics& metrics)
{
    MetricFamily count{"veltra_calls_total", "Calls that the service has handled", MetricType::Counter, {}};
    MetricFamily errors{"veltra_call_errors_total", "Calls that the service has refused", MetricType::Counter, {}};
    MetricFamily durations{
        "veltra_call_duration_seconds", "Time that calls have spent in the service", MetricType::Histogram, {}};
    ForMembers(calls, [&](const std::string& operation, const Json::Value& item) {
        const Labels labels{{"operation", operation}};
        AddCounterTo(count, labels, NumberOf(MemberOf(item, "count")));
        AddCounterTo(errors, labels, NumberOf(MemberOf(item, "refused")));
        FillHistogram(item, AddTo(durations, labels).histogram);
    });
    metrics.Add(std::move(count));
    metrics.Add(std::move(errors));
    metrics.Add(std::move(durations));
}

void AddPushes(const Json::Value& pushes, Metrics& metrics)
{
    static constexpr struct {
        const char* key;
        const char* name;
        const char* help;
    } FAMILIES[] = {
        {"sent", "veltra_pushes_total", "Pushes that a game has accepted"},
        {"failed", "veltra_push_failures_total", "Pushes that a game has refused or not answered"},
        {"dropped", "veltra_pushes_dropped_total", "Pushes that were replaced by a newer one before they were sent"},
    };
    for (const auto& [key, name, help] : FAMILIES) {
        MetricFamily family{name, help, MetricType::Counter, {}};
        ForMembers(pushes, [&family, member = key](const std::string& kind, const Json::Value& item) {
            AddCounterTo(family, {{"kind", kind}}, NumberOf(MemberOf(item, member)));
        });
        metrics.Add(std::move(family));
    }
}

void AddSubscriptions(const Json::Value& subscriptions, Metrics& metrics)
{
    static constexpr const char* SUBJECTS[] = {"events", "gpu"};
    MetricFamily family{"veltra_subscriptions", "Subscriptions of games", MetricType::Gauge, {}};
    for (const char* const subject : SUBJECTS) {
        const auto isOne = [subject](const Json::Value& item) { return TextOf(MemberOf(item, "subject")) == subject; };
        AddTo(family, {{"subject", subject}}).gauge.value =
            subscriptions.isArray()
                ? static_cast<double>(std::count_if(subscriptions.begin(), subscriptions.end(), isOne))
                : 0;
    }
    metrics.Add(std::move(family));
}

void AddService(const Json::Value& report, Metrics& metrics)
{
    const Json::Value& service = MemberOf(report, "service");
    const Json::Value& simulation = MemberOf(report, "simulation");
    const Json::Value& active = MemberOf(simulation, "active");
    const Json::Value& games = MemberOf(report, "games");
    metrics.AddGauge("veltra_service_info", "Version of the service", 1,
                     {{"version", LabelOf(MemberOf(service, "version"))}});
    // A time that does not parse leaves the metric out; a made-up 0 would be a start in 1970.
    std::tm parts{};
    if (::strptime(TextOf(MemberOf(service, "startedAt")).c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts) != nullptr) {
        metrics.AddGauge("veltra_service_start_time_seconds", "When the service was started, since the epoch",
                         static_cast<double>(::timegm(&parts)));
    }
    metrics.AddGauge("veltra_simulation_active", "1 while the service reports simulated values",
                     active.isBool() && active.asBool() ? 1 : 0);
    metrics.AddGauge("veltra_games", "Processes that have reported a game", games.isArray() ? games.size() : 0);
    metrics.AddGauge("veltra_watchers", "Tools that watch the service", NumberOf(MemberOf(report, "watchers")));
    AddSubscriptions(MemberOf(report, "subscriptions"), metrics);
}

}  // namespace

std::string MetricsText(const Look& look)
{
    Metrics metrics;
    metrics.AddGauge("veltra_service_up", "1 if the service runs and answers", look.trouble.empty() ? 1 : 0);
    if (look.starts) {
        MetricFamily starts{
            "veltra_service_starts_total", "How often the manager has started the service", MetricType::Counter, {}};
        AddCounterTo(starts, {}, static_cast<double>(*look.starts));
        metrics.Add(std::move(starts));
    }
    if (look.trouble.empty()) {
        AddService(look.report, metrics);
        AddDevice(MemberOf(look.report, "device"), metrics);
        AddCalls(MemberOf(look.report, "calls"), metrics);
        AddPushes(MemberOf(look.report, "pushes"), metrics);
    }
    return metrics.Text();
}

}  // namespace VeltraServe
