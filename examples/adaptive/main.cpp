// SPDX-License-Identifier: Apache-2.0
// A game loop that adapts. It subscribes to the device state, lowers its quality while the machine heats up, before the
// hardware throttles, and raises it again once the machine has stayed cool for a while. Each second it prints one row;
// frame times are modelled: quality costs time, and a GPU with half the clock takes twice as long.
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
#include <mutex>
#include <string>
#include <thread>

#include "veltra_server_client.h"

namespace {

using TAVO::Veltra::GameCallbackEventInfo;

constexpr int LOWEST = 1;
constexpr int HIGHEST = 5;
constexpr double FRAME_BUDGET_MS = 16.7;  // of 60 frames a second

// The latest state that the service has sent. Callbacks come on a thread of the library.
class LatestState : public TAVO::Veltra::GameEventCallbackBase {
public:
    struct Shared {
        std::mutex mutex;
        GameCallbackEventInfo state;
    };

    explicit LatestState(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}

    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override
    {
        const std::lock_guard lock(shared_->mutex);
        shared_->state = info;
        return 0;
    }

private:
    const std::shared_ptr<Shared> shared_;
};

// What the game can afford: one step less for each level, and one more in advance if the limit is near and the
// temperature rises.
int Affordable(const GameCallbackEventInfo& state)
{
    if (state.tempLevel < 0) {
        return HIGHEST;  // unknown: there is nothing to adapt to
    }
    const bool isMarginKnown = state.thermalMargin != GameCallbackEventInfo().thermalMargin;
    const bool isNearing = isMarginKnown && state.thermalMargin < 8 && state.thermalTrend > 0;
    return std::clamp(HIGHEST - state.tempLevel - (isNearing ? 1 : 0), LOWEST, HIGHEST);
}

// Goes down at once, up one step at a time, each after the machine could have afforded it for a while.
class Governor {
public:
    int Update(int affordable, double second)
    {
        constexpr double UP_DWELL_SECONDS = 5;
        if (affordable <= quality_) {
            quality_ = affordable;
            waitsSince_ = second;
        } else if (second - waitsSince_ >= UP_DWELL_SECONDS) {
            ++quality_;
            waitsSince_ = second;
        }
        return quality_;
    }

private:
    int quality_ = HIGHEST;
    double waitsSince_ = 0;
};

double FrameMilliseconds(int quality, const GameCallbackEventInfo& state, int32_t highestMhz)
{
    const double slowdown = state.currentFrequency > 0 ? double(highestMhz) / state.currentFrequency : 1;
    return (5 + 2 * quality) * slowdown;
}

std::string Bar(double part, size_t length)
{
    const auto full = static_cast<size_t>(std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(length)));
    return std::string(full, '#') + std::string(length - full, '.');
}

void PrintRow(int second, const GameCallbackEventInfo& state, int quality, double frame, double fixedFrame)
{
    char heat[32] = "margin unknown";
    double part = state.tempLevel / 5.0;
    if (state.thermalMargin != GameCallbackEventInfo().thermalMargin) {
        std::snprintf(heat, sizeof(heat), "%3d C to limit", state.thermalMargin);
        part = (50 - state.thermalMargin) / 50.0;
    }
    std::printf("%3d s  heat %s %s, level %2d  quality %s %d  frame %s %4.1f ms  (fixed quality %4.1f ms)\n", second,
                Bar(part, 10).c_str(), heat, state.tempLevel, Bar(quality / double(HIGHEST), 5).c_str(), quality,
                Bar(frame / 30, 10).c_str(), frame, fixedFrame);
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
    TAVO::Veltra::VeltraClient client;
    const auto shared = std::make_shared<LatestState::Shared>();
    const int32_t refusal = client.RegisterGameCallback(std::make_unique<LatestState>(shared), 1);
    if (refusal != TAVO::Veltra::RESULT_OK) {
        std::fprintf(stderr, "the service cannot be used: %d\n", refusal);
        return 1;
    }
    Governor governor;
    std::string steps = std::to_string(HIGHEST);
    int before = HIGHEST;
    int32_t highestMhz = 0;
    int late = 0;
    int fixedLate = 0;
    const auto start = std::chrono::steady_clock::now();
    for (int second = 1; second <= seconds; ++second) {
        std::this_thread::sleep_until(start + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                  std::chrono::duration<double>(second / speed)));
        GameCallbackEventInfo state;
        {
            const std::lock_guard lock(shared->mutex);
            state = shared->state;
        }
        highestMhz = std::max(highestMhz, state.currentFrequency);
        const int quality = governor.Update(Affordable(state), second);
        const bool isChanged = quality != before;
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
    return client.UnRegisterGameCallback(1) == TAVO::Veltra::RESULT_OK ? 0 : 1;
}
