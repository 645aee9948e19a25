// SPDX-License-Identifier: Apache-2.0
// The sessions of veltra.h: each function checks its arguments, calls the Session, and converts what it returns. A
// table pairs the values of the two snapshots: a new value needs one row here and one in veltra.h, at the end of the
// structure, so that older programs keep their layout.
#include <chrono>
#include <memory>
#include <utility>

#include "convert.h"
#include "veltra.h"
#include "veltra_result_text.h"
#include "veltra_session.h"

struct veltra_session {
    TAVO::Veltra::Session session;
};

namespace TAVO::Veltra::C {
namespace {

struct ValuePair {
    veltra_value veltra_snapshot::*to;
    std::optional<Reading> DeviceSnapshot::*from;
};

using To = veltra_snapshot;
using From = DeviceSnapshot;
constexpr ValuePair VALUES[] = {
    {&To::temp_level, &From::tempLevel},
    {&To::temperature, &From::temperature},
    {&To::thermal_margin, &From::thermalMargin},
    {&To::thermal_trend, &From::thermalTrend},
    {&To::throttling, &From::throttling},
    {&To::fan_rpm, &From::fanRpm},
    {&To::gpu_load_level, &From::gpuLoadLevel},
    {&To::gpu_load_percent, &From::gpuLoadPercent},
    {&To::vertex_load_level, &From::vertexLoadLevel},
    {&To::fragment_load_level, &From::fragmentLoadLevel},
    {&To::texture_load_level, &From::textureLoadLevel},
    {&To::bandwidth_load_level, &From::bandwidthLoadLevel},
    {&To::current_frequency, &From::currentFrequency},
    {&To::gpu_frequency_cap, &From::gpuFrequencyCap},
    {&To::gpu_frequency_max, &From::gpuFrequencyMax},
    {&To::gpu_memory_used_bytes, &From::gpuMemoryUsedBytes},
    {&To::gpu_memory_total_bytes, &From::gpuMemoryTotalBytes},
    {&To::gpu_power_milliwatts, &From::gpuPowerMilliwatts},
    {&To::game_gpu_load_percent, &From::gameGpuLoadPercent},
    {&To::game_gpu_memory_bytes, &From::gameGpuMemoryBytes},
    {&To::cpu_load_percent, &From::cpuLoadPercent},
    {&To::cpu_pressure_percent, &From::cpuPressurePercent},
    {&To::memory_available_bytes, &From::memoryAvailableBytes},
    {&To::memory_total_bytes, &From::memoryTotalBytes},
    {&To::memory_pressure_percent, &From::memoryPressurePercent},
    {&To::battery_percent, &From::batteryPercent},
    {&To::battery_charging, &From::batteryCharging},
    {&To::power_draw_milliwatts, &From::powerDrawMilliwatts},
};

veltra_text TextOf(const std::optional<TextReading>& reading)
{
    return reading ? veltra_text{reading->text, reading->source} : veltra_text{nullptr, nullptr};
}

veltra_snapshot SnapshotOf(const DeviceSnapshot& state)
{
    veltra_snapshot snapshot{};
    snapshot.size = sizeof(snapshot);
    snapshot.number = state.number;
    snapshot.age_ns = std::chrono::nanoseconds(state.Age()).count();
    for (const ValuePair& pair : VALUES) {
        const std::optional<Reading>& reading = state.*pair.from;
        // C has no optional: a null source marks an absent value.
        snapshot.*pair.to = reading ? veltra_value{reading->value, reading->source} : veltra_value{0, nullptr};
    }
    snapshot.level_from = TextOf(state.levelFrom);
    snapshot.platform_profile = TextOf(state.platformProfile);
    return snapshot;
}

// Runs on the thread that dispatches, or on the session's thread for the handler. Everything that the event points to
// lives on this stack frame, until the function of the caller has returned.
void PassOn(const SessionEvent& event, veltra_event_function function, void* user)
{
    const veltra_device_info info = DeviceInfo(event.info);
    const std::vector<veltra_gpu_sample> samples = Samples(event.samples);
    const veltra_event passed{
        sizeof(passed), static_cast<int32_t>(event.kind), static_cast<int32_t>(event.state), &info, samples.data(),
        samples.size()};
    function(user, &passed);
}

SessionOptions OptionsOf(const veltra_options& given)
{
    SessionOptions options;
    options.gameName = Text(given.game_name);
    options.gpuInterval = std::chrono::milliseconds(given.gpu_interval_ms);
    // 0, which VELTRA_INIT sets, means the default of the C++ options.
    if (given.refresh_ms != 0) {
        options.refreshInterval = std::chrono::milliseconds(given.refresh_ms);
    }
    if (given.event_capacity != 0) {
        options.eventCapacity = given.event_capacity;
    }
    if (given.report_capacity != 0) {
        options.reportCapacity = given.report_capacity;
    }
    if (given.batch_capacity != 0) {
        options.batchCapacity = given.batch_capacity;
    }
    if (given.handler != nullptr) {
        options.handler = [function = given.handler, user = given.handler_user](const SessionEvent& event) {
            PassOn(event, function, user);
        };
    }
    return options;
}

// The texts belong to `details`, and the lists to this stack frame: both are valid during the call only.
void PassOn(const DeviceDetails& details, veltra_details_function function, void* user)
{
    std::vector<veltra_cpu_frequency> frequencies;
    for (const auto& [key, policies] : details.cpuFrequencies) {
        for (const auto& [policy, mhz] : policies) {
            frequencies.push_back({key.c_str(), policy.c_str(), mhz});
        }
    }
    std::vector<veltra_ignored_sensor> sensors;
    for (const auto& [sensor, reason] : details.ignoredSensors) {
        sensors.push_back({sensor.c_str(), reason.c_str()});
    }
    const veltra_details passed{sizeof(passed), frequencies.data(), frequencies.size(),
                                sensors.data(), sensors.size(),     details.document.c_str()};
    function(user, &passed);
}

int32_t Queued(bool isQueued)
{
    return isQueued ? RESULT_OK : VELTRA_QUEUE_FULL;
}

}  // namespace
}  // namespace TAVO::Veltra::C

using namespace TAVO::Veltra;
using namespace TAVO::Veltra::C;

int32_t veltra_describe_result(int32_t result, veltra_result_description* description)
{
    static constexpr ResultText OWN[] = {
        {VELTRA_NOTHING, "VELTRA_NOTHING", "there is no such thing at present", ""},
        {VELTRA_NO_MEMORY, "VELTRA_NO_MEMORY", "out of memory; nothing was done", ""},
        {VELTRA_BAD_ARGUMENT, "VELTRA_BAD_ARGUMENT", "a null pointer, or a structure without its size",
         "set the size of the structure, as VELTRA_INIT does"},
        {VELTRA_QUEUE_FULL, "VELTRA_QUEUE_FULL", "too many reports wait for the service", "report less often"},
    };
    if (!IsGiven(description)) {
        return VELTRA_BAD_ARGUMENT;
    }
    const ResultText* text = FindResultText(result);
    for (const ResultText& own : OWN) {
        // The codes of this library are not among those of the service.
        text = own.code == result ? &own : text;
    }
    if (text == nullptr) {
        return VELTRA_NOTHING;
    }
    Write(veltra_result_description{sizeof(*description), text->name, text->meaning, text->remedy}, description);
    return RESULT_OK;
}

int32_t veltra_session_open(const veltra_options* options, veltra_session** session)
{
    if (session == nullptr || (options != nullptr && !IsGiven(options))) {
        return VELTRA_BAD_ARGUMENT;
    }
    // Also on failure, so that closing it is harmless.
    *session = nullptr;
    return Guarded([&] {
        const veltra_options given = options != nullptr ? Read(options) : veltra_options{};
        // The Session starts its thread and returns; the connection is made there, so this never blocks.
        *session = new veltra_session{Session(OptionsOf(given))};
        return RESULT_OK;
    });
}

void veltra_session_close(veltra_session* session)
{
    // Null is allowed, as with free().
    delete session;
}

int32_t veltra_session_latest(const veltra_session* session, veltra_snapshot* snapshot)
{
    if (session == nullptr || !IsGiven(snapshot)) {
        return VELTRA_BAD_ARGUMENT;
    }
    // No Guarded: nothing here allocates, so it can be called in each frame.
    Write(SnapshotOf(session->session.Latest()), snapshot);
    return RESULT_OK;
}

int32_t veltra_session_status(const veltra_session* session, veltra_status* status)
{
    if (session == nullptr || !IsGiven(status)) {
        return VELTRA_BAD_ARGUMENT;
    }
    const SessionStatus now = session->session.Status();
    const veltra_status whole{sizeof(whole),      static_cast<int32_t>(now.state),
                              now.result,         now.eventsResult,
                              now.gpuResult,      now.connections,
                              now.reportsSent,    now.reportsFailed,
                              now.reportsRefused, now.eventsDropped,
                              now.batchesDropped};
    Write(whole, status);
    return RESULT_OK;
}

int32_t veltra_session_details(const veltra_session* session, veltra_details_function function, void* user)
{
    if (session == nullptr || function == nullptr) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        PassOn(session->session.Details(), function, user);
        return RESULT_OK;
    });
}

int32_t veltra_session_dispatch(veltra_session* session, veltra_event_function function, void* user, uint32_t wait_ms,
                                size_t* handled)
{
    if (session == nullptr || function == nullptr) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        const size_t count = session->session.Dispatch(
            [&](const SessionEvent& event) { PassOn(event, function, user); }, std::chrono::milliseconds(wait_ms));
        if (handled != nullptr) {
            *handled = count;
        }
        return count > 0 ? RESULT_OK : VELTRA_NOTHING;
    });
}

int32_t veltra_session_report_game_event(veltra_session* session, const veltra_game_info* info)
{
    if (session == nullptr || !IsGiven(info)) {
        return VELTRA_BAD_ARGUMENT;
    }
    // Copies the texts into the queue of the session; its thread sends them.
    return Guarded([&] { return Queued(session->session.ReportGameEvent(GameInfoOf(Read(info)))); });
}

int32_t veltra_session_update_game_info(veltra_session* session, int32_t first, const char* text, int32_t second)
{
    if (session == nullptr) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] { return Queued(session->session.UpdateGameInfo(first, Text(text), second)); });
}

int32_t veltra_session_report_render_thread(veltra_session* session, const char* first, const char* second,
                                            int32_t value)
{
    if (session == nullptr) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] { return Queued(session->session.ReportRenderThread(Text(first), Text(second), value)); });
}

int32_t veltra_session_notify_game_event(veltra_session* session, int32_t scene_id, const char* scene_name,
                                         const char* const* keys, const char* const* values, size_t count)
{
    if (session == nullptr || !IsArray(keys, count) || !IsArray(values, count)) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded([&] {
        return Queued(session->session.NotifyGameEvent(
            std::make_unique<GameSceneBundle>(SceneOf(scene_id, scene_name, Pairs(keys, values, count)))));
    });
}

int32_t veltra_session_notify_app_resource_down_load_results(veltra_session* session,
                                                             const veltra_download_result* results, size_t count)
{
    if (session == nullptr || (count > 0 && !IsGiven(results))) {
        return VELTRA_BAD_ARGUMENT;
    }
    return Guarded(
        [&] { return Queued(session->session.NotifyAppResourceDownLoadResults(Downloads(results, count))); });
}
