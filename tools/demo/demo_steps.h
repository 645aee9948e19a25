// SPDX-License-Identifier: Apache-2.0
// What the demo's game processes share: steps that are timed and printed, and the wait for the word to go on.
#ifndef VELTRA_TOOLS_DEMO_DEMO_STEPS_H
#define VELTRA_TOOLS_DEMO_DEMO_STEPS_H

#include <chrono>
#include <cstdint>

#include "veltra_server_client.h"

namespace Demo {

using Clock = std::chrono::steady_clock;

double MillisecondsSince(Clock::time_point start);

// Prints the outcome of a step; false when it failed.
bool Step(const char* what, int32_t result, double milliseconds);

// Runs `call` as a step.
template <typename Call>
bool TimedStep(const char* what, Call call)
{
    const auto start = Clock::now();
    const int32_t result = call();
    return Step(what, result, MillisecondsSince(start));
}

bool Auth(TAVO::Veltra::VeltraClient& client, const char* what);

// A call that meets the service while it dies fails with a code; the one after that starts it again.
bool AuthAgain(TAVO::Veltra::VeltraClient& client);

// Says whether all went well so far, then waits for a line on standard input; false when there is nothing to go on
// with.
bool Pause(bool isReady);

}  // namespace Demo

#endif
