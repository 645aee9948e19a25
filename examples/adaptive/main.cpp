// SPDX-License-Identifier: Apache-2.0
// A game loop that adapts. A session keeps the latest state of the device; a governor lowers the quality while the
// machine heats up, before the hardware throttles, and raises it again once the machine has stayed cool for a while.
// Each second it prints one row; frame times are modelled: quality costs time, and a GPU with half the clock takes twice
// as long.
//
//     veltra_adaptive [--seconds N] [--every N] [--speed N]
//
// --every prints only each Nth row, and those in which the quality changes. --speed makes its seconds pass N times as
// fast, for a service that plays a scenario at that speed.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "veltra_quality_governor.h"
#include "veltra_session.h"

namespace {

using TAVO::Veltra::DeviceSnapshot;
using TAVO::Veltra::Reading;

constexpr int HIGHEST = 5;
constexpr double FRAME_BUDGET_MS = 16.7;  // of 60 frames a second

std::optional<int64_t> ValueOf(const std::optional<Reading>& reading)
{
    return reading ? std::optional(reading->value) : std::nullopt;
}

double FrameMilliseconds(int quality, const DeviceSnapshot& state, int64_t highestMhz)
{
    const auto mhz = static_cast<double>(ValueOf(state.currentFrequency).value_or(0));
    const double slowdown = mhz > 0 ? static_cast<double>(highestMhz) / mhz : 1;
    return (5 + 2 * quality) * slowdown;
}

std::string Bar(double part, size_t length)
{
    const auto full = static_cast<size_t>(std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(length)));
    return std::string(full, '#') + std::string(length - full, '.');
}

void PrintRow(int second, const DeviceSnapshot& state, int quality, double frame, double fixedFrame)
{
    char heat[32] = "margin unknown";
    const int level = static_cast<int>(ValueOf(state.tempLevel).value_or(-1));
    double part = level / 5.0;
    if (state.thermalMargin) {
        const int margin = static_cast<int>(state.thermalMargin->value);
        std::snprintf(heat, sizeof(heat), "%3d C to limit", margin);
        part = (50 - margin) / 50.0;
    }
    std::printf("%3d s  heat %s %s, level %2d  quality %s %d  frame %s %4.1f ms  (fixed quality %4.1f ms)\n", second,
                Bar(part, 10).c_str(), heat, level, Bar(quality / double(HIGHEST), 5).c_str(), quality,
                Bar(frame / 30, 10).c_str(), frame, fixedFrame);
}

// For recordings of the service, which show how long the game took to react.
void ReportQuality(TAVO::Veltra::Session& session, int quality)
{
    auto scene = std::make_unique<TAVO::Veltra::GameSceneBundle>();
    scene->sceneName = "race";
    scene->attributes["quality"] = std::to_string(quality);
    session.NotifyGameEvent(std::move(scene));
}

double Argument(int argc, char** argv, const char* name, double other)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], name) == 0) {
            return std::atof(argv[i + 1]);
        }
    }
    return other;
}

}  // namespace

int main(int argc, char** argv)
{
    const double seconds = Argument(argc, argv, "--seconds", 75);
    const int every = std::max(static_cast<int>(Argument(argc, argv, "--every", 1)), 1);
    const double speed = std::max(Argument(argc, argv, "--speed", 1), 0.01);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    TAVO::Veltra::SessionOptions options;
    options.gameName = "com.example.adaptive";
    options.refreshInterval = std::chrono::milliseconds(std::lround(1000 / speed));
    TAVO::Veltra::Session session(options);
    TAVO::Veltra::QualityGovernor governor;
    ReportQuality(session, HIGHEST);
    std::string steps = std::to_string(HIGHEST);
    int before = HIGHEST;
    int64_t highestMhz = 0;
    int late = 0;
    int fixedLate = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int second = 1; second <= seconds; ++second) {
        std::this_thread::sleep_until(start + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                  std::chrono::duration<double>(second / speed)));
        const DeviceSnapshot state = session.Latest();
        highestMhz = std::max(highestMhz, ValueOf(state.currentFrequency).value_or(0));
        const int quality =
            governor.Update({ValueOf(state.tempLevel), ValueOf(state.thermalMargin), ValueOf(state.thermalTrend)},
                            std::chrono::seconds(second));
        const bool isChanged = quality != before;
        if (isChanged) {
            ReportQuality(session, quality);
        }
        steps += isChanged ? " " + std::to_string(quality) : "";
        before = quality;
        const double frame = FrameMilliseconds(quality, state, highestMhz);
        const double fixedFrame = FrameMilliseconds(HIGHEST, state, highestMhz);
        late += frame > FRAME_BUDGET_MS ? 1 : 0;
        fixedLate += fixedFrame > FRAME_BUDGET_MS ? 1 : 0;
        if (isChanged || second % every == 0) {
            PrintRow(second, state, quality, frame, fixedFrame);
        }
    }
    std::printf("quality steps: %s\n", steps.c_str());
    std::printf("seconds below 60 frames: %d, at fixed quality: %d\n", late, fixedLate);
    const TAVO::Veltra::SessionStatus status = session.Status();
    if (status.connections == 0) {
        std::fprintf(stderr, "the service cannot be used: %d\n", status.result);
        return 1;
    }
    return 0;
}
