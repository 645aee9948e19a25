// SPDX-License-Identifier: Apache-2.0
// Session: a layer above VeltraClient for game loops. It reads the state of the device regularly and keeps the latest,
// queues events for the game's own thread, sends reports without blocking, and connects again when the service has
// died.
#ifndef VELTRA_SESSION_H
#define VELTRA_SESSION_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "game_scene_bundle.h"
#include "veltra_export.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// One value. `source` names the sensor or file that it comes from, as the service reports it; a text that is valid
// until the process ends, never null, empty when the service named no source.
struct Reading {
    int64_t value;
    const char* source;
};

// One value that is a text.
struct TextReading {
    const char* text;  // as `source`
    const char* source;
};

// The state of the device at one moment. What the machine does not report is absent. The fields are named as in the
// document of the service; docs/service.md explains each, with its sources. A plain value: copy it at will.
struct DeviceSnapshot {
    uint64_t number = 0;  // of the reading, from 1; 0: nothing has been read yet, and every value is absent
    std::chrono::steady_clock::time_point readAt{};

    std::optional<Reading> tempLevel;      // 0 cool to 5 critical; absent: unknown
    std::optional<TextReading> levelFrom;  // what tempLevel follows: "sensor", "throttling", "scenario" or "unknown"
    std::optional<Reading> temperature;    // degrees Celsius
    std::optional<Reading> thermalMargin;  // degrees up to the next trip point
    std::optional<Reading> thermalTrend;   // 1 rising, -1 falling, 0 neither
    std::optional<Reading> throttling;     // 1 while the kernel slows the machine down because of heat
    std::optional<Reading> fanRpm;         // revolutions per minute
    std::optional<Reading> gpuLoadLevel;   // 0 to 5, as the following levels
    std::optional<Reading> gpuLoadPercent;
    std::optional<Reading> vertexLoadLevel;
    std::optional<Reading> fragmentLoadLevel;
    std::optional<Reading> textureLoadLevel;
    std::optional<Reading> bandwidthLoadLevel;
    std::optional<Reading> currentFrequency;  // MHz, of the GPU, as the following two
    std::optional<Reading> gpuFrequencyCap;
    std::optional<Reading> gpuFrequencyMax;
    std::optional<Reading> gpuMemoryUsedBytes;
    std::optional<Reading> gpuMemoryTotalBytes;
    std::optional<Reading> gpuPowerMilliwatts;
    std::optional<Reading> gameGpuLoadPercent;  // of this process, as the following one
    std::optional<Reading> gameGpuMemoryBytes;
    std::optional<Reading> cpuLoadPercent;
    std::optional<Reading> cpuPressurePercent;
    std::optional<Reading> memoryAvailableBytes;
    std::optional<Reading> memoryTotalBytes;
    std::optional<Reading> memoryPressurePercent;
    std::optional<Reading> batteryPercent;
    std::optional<Reading> batteryCharging;  // 1 while the battery is being charged
    std::optional<Reading> powerDrawMilliwatts;
    std::optional<TextReading> platformProfile;

    // How old the values are; meaningless while `number` is 0.
    std::chrono::steady_clock::duration Age() const { return std::chrono::steady_clock::now() - readAt; }
};
static_assert(std::is_trivially_copyable_v<DeviceSnapshot>);

// The parts of the document that have no fixed size, as of the latest reading.
struct DeviceDetails {
    // MHz by cpufreq policy, by the key of the document: cpuFrequencies, cpuFrequencyCaps, cpuFrequencyMaxima.
    std::map<std::string, std::map<std::string, int64_t>> cpuFrequencies;
    std::map<std::string, std::string> ignoredSensors;  // why, by the name of the sensor
    std::string document;  // the whole text, JSON; has keys that this library does not know too. Empty: none yet
};

enum class ServiceState : int32_t {
    STARTING = 0,       // being found or started
    CONNECTED = 1,      // subscribed, and it answers
    NOT_ANSWERING = 2,  // it runs, and let a call time out (8 s)
    UNAVAILABLE = 3,    // no manager, or no service that could be started; tried again twice a second
};

// How the session is doing. The counters start at 0 with the session and never fall.
struct SessionStatus {
    ServiceState state = ServiceState::STARTING;
    // Of the latest attempt or call: 0 or a code with a text in veltra_result_text.h; RESULT_BAD_DEVICE_STATE for a
    // document that could not be understood.
    int32_t result = 0;
    int32_t eventsResult = 0;     // of the subscription to events
    int32_t gpuResult = 0;        // of the subscription to GPU batches, 0 without `gpuInterval`
    uint64_t connections = 0;     // how often a service was found: above 1, it has died and returned
    uint64_t reportsSent = 0;     // sent to the service, whatever it returned
    uint64_t reportsFailed = 0;   // of these, those whose result was not 0
    uint64_t reportsRefused = 0;  // not accepted because the queue was full
    uint64_t eventsDropped = 0;   // a full queue drops its oldest
    uint64_t batchesDropped = 0;
};

// One event for the handler of the game; `kind` says which of the other fields are set.
struct SessionEvent {
    enum class Kind : int32_t {
        DEVICE = 0,   // a game event of the service, in `info`
        SERVICE = 1,  // the service was found, lost or does not answer: `state`
        GPU = 2,      // a batch of GPU counters, in `samples`
    };
    Kind kind = Kind::DEVICE;
    ServiceState state = ServiceState::STARTING;  // when the event was queued
    GameCallbackEventInfo info;
    std::vector<GpuPerfInfo> samples;
};

using SessionHandler = std::function<void(const SessionEvent& event)>;

// What a game may choose about its session. The defaults suit most games.
struct SessionOptions {
    // Reported as the bundle name of this game (UpdateGameInfo), to each service that is connected. Empty: not
    // reported.
    std::string gameName;
    // How often the state is read besides each time that an event arrives; at least 10 ms. The service itself reads
    // temperatures once a second and loads four times.
    std::chrono::milliseconds refreshInterval{1000};
    // Between two batches of GPU counters; 0: no subscription.
    std::chrono::milliseconds gpuInterval{0};
    // Most events, and most batches, that wait for Dispatch; at least 1. All waiting batches together hold at most
    // 524288 samples.
    size_t eventCapacity = 256;
    size_t batchCapacity = 16;
    size_t reportCapacity = 256;
    // If set, the session's thread passes events to it, and Dispatch returns none. It is not called while a call waits
    // for a service that hangs. Exceptions of it are dropped.
    SessionHandler handler;
};

// Any thread may call any operation. Errors are results; nothing is thrown but std::bad_alloc. In a child of fork()
// Latest() returns what the parent had, and the other operations do nothing. A Session that is made there does nothing.
//
// The service keeps one subscription of each kind for each process, and a later one replaces an earlier one. So
// subscribe either with one Session or through VeltraClient. Other operations of VeltraClient may be used beside a
// Session.
class VELTRA_EXPORT Session {
public:
    // Returns at once; the session's thread then finds or starts the service, and subscribes. A missing service is no
    // error: Status() and an event show when it is connected.
    explicit Session(SessionOptions options = {});
    // Ends the subscriptions. Returns within 1 s, also during a load and with a service that hangs: the session's
    // thread then ends later by itself. Reports that were not sent by then are lost. Waits without a limit for a
    // `handler` that is running, unless the handler itself destroys the session; the handler is not called again
    // afterwards.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The latest snapshot. Lock-free: it neither waits nor allocates, so it may be called in every frame.
    // Values of a service that died stay, and their age grows.
    DeviceSnapshot Latest() const noexcept;
    // The following two take a short lock.
    DeviceDetails Details() const;
    SessionStatus Status() const;

    // Calls `handler` for each waiting event, on this thread, in the order in which they arrived (batches of GPU
    // counters after the others); returns their number. Waits for the first one up to `wait`. Without events the cost
    // is a short lock. An exception of the handler leaves Dispatch, and the events behind it wait for the next one.
    size_t Dispatch(const SessionHandler& handler, std::chrono::milliseconds wait = std::chrono::milliseconds(0));

    // Reports: the operations of VeltraClient with these names. They never wait for the service: the session's thread
    // sends each once, in their order, as soon as it is connected. False if the queue is full: the report is refused.
    bool ReportGameEvent(GameInfo info);
    bool UpdateGameInfo(int32_t first, std::string text, int32_t second);
    bool ReportRenderThread(std::string first, std::string second, int32_t value);
    // bundle->Marshalling is called on the session's thread; null is refused.
    bool NotifyGameEvent(std::unique_ptr<GameSceneBundle> bundle);
    bool NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult> results);

private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};

}  // namespace TAVO::Veltra

#endif
