// SPDX-License-Identifier: Apache-2.0
// What the programs of the demo share: each step prints one line with its result and its time. The script of the demo
// reads the word "ready" to know when it may kill the service, and writes a line to let the program continue.
#include "demo_steps.h"

#include <cstdio>

namespace Demo {

using TAVO::Veltra::VeltraClient;

double MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

bool Step(const char* what, int32_t result, double milliseconds)
{
    std::printf("  %-38s %s (%d), %.2f ms\n", what, result == 0 ? "done" : "FAILED", result, milliseconds);
    return result == 0;
}

bool Auth(VeltraClient& client, const char* what)
{
    return TimedStep(what, [&client] { return client.CallAuth("demo"); });
}

bool AuthAgain(VeltraClient& client)
{
    constexpr double LIMIT_MILLISECONDS = 20000;
    const auto start = Clock::now();
    int failed = 0;
    // No pause: a call that fails returns within microseconds, and one that starts the service waits for it.
    while (client.CallAuth("demo") != 0) {
        ++failed;
        if (MillisecondsSince(start) > LIMIT_MILLISECONDS) {
            return Step("no call works after the kill", -1, MillisecondsSince(start));
        }
    }
    std::printf("  %-38s %d\n", "calls that met the dying service", failed);
    return Step("next call that works", 0, MillisecondsSince(start));
}

bool Pause(bool isReady)
{
    std::printf("%s\n", isReady ? "ready" : "failed");
    return isReady && std::getchar() != EOF;
}

}  // namespace Demo
