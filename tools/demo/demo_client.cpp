// SPDX-License-Identifier: Apache-2.0
// The first game of the demo. It uses the facade only: the first call starts the service, then come a report and a
// query. It prints "ready" and waits for a line on standard input, during which the demo kills the service. Then it
// calls again, which finds the next service.
#include <cstdint>
#include <cstdio>
#include <limits>

#include "demo_steps.h"

namespace {

using TAVO::Veltra::GameCallbackEventInfo;
using TAVO::Veltra::GameInfo;
using TAVO::Veltra::VeltraClient;

bool Report(VeltraClient& client)
{
    const bool isUpdated =
        Demo::TimedStep("game info", [&client] { return client.UpdateGameInfo(1, "com.example.demo", 1); });
    GameInfo info;
    info.int32Value = 1;
    info.text1 = "com.example.demo";
    info.text2 = "level started";
    const auto start = Demo::Clock::now();
    client.ReportGameEvent(info);
    std::printf("  %-38s sent (one-way), %.2f ms\n", "game event", Demo::MillisecondsSince(start));
    return isUpdated;
}

bool DeviceState(VeltraClient& client)
{
    GameCallbackEventInfo state;
    const bool isAnswered = Demo::TimedStep("device state", [&] {
        state = client.GetDeviceInfo({});
        return state.resultCode;
    });
    if (!isAnswered) {
        return false;
    }
    if (state.tempLevel == GameCallbackEventInfo().tempLevel) {
        std::printf("    tempLevel unknown on this machine: no temperature sensor\n");
        return true;
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
    // The script reads the output through a pipe, line by line.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    VeltraClient client;
    const bool isReady = Demo::Auth(client, "first call, the service is down") && Demo::Auth(client, "auth again") &&
                         Report(client) && DeviceState(client);
    return Demo::Pause(isReady) && Demo::AuthAgain(client) && DeviceState(client) ? 0 : 1;
}
