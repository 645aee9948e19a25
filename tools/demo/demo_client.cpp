// SPDX-License-Identifier: Apache-2.0
// The game of the demo: makes its calls through the facade only, waits for a line on standard input, and calls again.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>

#include "veltra_server_client.h"

namespace {

using TAVO::Veltra::GameCallbackEventInfo;
using TAVO::Veltra::GameInfo;
using TAVO::Veltra::VeltraClient;

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Prints the outcome of a step; false when it failed.
bool Step(const char* what, int32_t result, double milliseconds)
{
    std::printf("  %-34s %s (%d), %.2f ms\n", what, result == 0 ? "done" : "FAILED", result, milliseconds);
    return result == 0;
}

bool Auth(VeltraClient& client, const char* what)
{
    const auto start = Clock::now();
    const int32_t result = client.CallAuth("demo");
    return Step(what, result, MillisecondsSince(start));
}

// A call that meets the service while it dies fails with a code; the one after that starts it again.
bool AuthAgain(VeltraClient& client)
{
    constexpr double PATIENCE_MILLISECONDS = 20000;
    const auto start = Clock::now();
    int failed = 0;
    while (client.CallAuth("demo") != 0) {
        ++failed;
        if (MillisecondsSince(start) > PATIENCE_MILLISECONDS) {
            return Step("no call works after the kill", -1, MillisecondsSince(start));
        }
    }
    std::printf("  calls that met the dying service    %d\n", failed);
    return Step("next call that works", 0, MillisecondsSince(start));
}

bool Report(VeltraClient& client)
{
    auto start = Clock::now();
    const bool isUpdated = Step("game info", client.UpdateGameInfo(1, "com.example.demo", 1), MillisecondsSince(start));
    GameInfo info;
    info.int32Value = 1;
    info.text1 = "com.example.demo";
    info.text2 = "level started";
    start = Clock::now();
    client.ReportGameEvent(info);
    std::printf("  %-34s sent (one-way), %.2f ms\n", "game event", MillisecondsSince(start));
    return isUpdated;
}

bool DeviceState(VeltraClient& client)
{
    const auto start = Clock::now();
    const GameCallbackEventInfo state = client.GetDeviceInfo({});
    const bool isKnown = state.resultCode == 0 && state.tempLevel != GameCallbackEventInfo().tempLevel;
    if (!Step("device state", isKnown ? 0 : state.resultCode, MillisecondsSince(start)) || !isKnown) {
        return false;
    }
    std::printf("    tempLevel %d", state.tempLevel);
    if (state.thermalMargin != std::numeric_limits<int32_t>::min()) {
        std::printf(", thermalMargin %d, thermalTrend %d", state.thermalMargin, state.thermalTrend);
    }
    std::printf("\n");
    return true;
}

}  // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    VeltraClient client;
    const bool isFirstPartDone = Auth(client, "first call, the service is down") && Auth(client, "auth again") &&
                                 Report(client) && DeviceState(client);
    std::printf("%s\n", isFirstPartDone ? "ready" : "failed");
    if (!isFirstPartDone || std::getchar() == EOF) {
        return 1;
    }
    return AuthAgain(client) && DeviceState(client) ? 0 : 1;
}
