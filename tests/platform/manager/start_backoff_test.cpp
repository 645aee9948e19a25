// SPDX-License-Identifier: Apache-2.0
// Failed starts are repeated after growing pauses, and only for a service that is still requested.
#include "manager/daemon/start_backoff.h"

#include <gtest/gtest.h>

namespace {

using TAVO::Manager::StartBackoff;
using namespace std::chrono_literals;

TEST(StartBackoffTest, PausesGrowTo10sAndEndOneMinuteAfterTheLastRequest)
{
    StartBackoff backoff;
    EXPECT_FALSE(backoff.IsFailing());
    const StartBackoff::Clock::time_point begin{1h};
    StartBackoff::Clock::time_point now = begin;
    backoff.Requested(now);
    for (const auto pause : {100ms, 200ms, 400ms, 800ms, 1600ms, 3200ms, 6400ms, 10000ms, 10000ms, 10000ms, 10000ms}) {
        backoff.Failed(now);
        EXPECT_TRUE(backoff.IsFailing());
        EXPECT_EQ(backoff.NextTry() - now, pause);
        now = backoff.NextTry();
        EXPECT_TRUE(backoff.IsRequested(now));
    }
    EXPECT_TRUE(backoff.IsRequested(begin + 1min));
    EXPECT_FALSE(backoff.IsRequested(begin + 1min + 1ns));
    backoff.Requested(now);
    EXPECT_TRUE(backoff.IsRequested(now + 1min)) << "a later request counts from its own time";
    backoff.Registered();
    EXPECT_FALSE(backoff.IsFailing());
    backoff.Failed(now);
    EXPECT_EQ(backoff.NextTry() - now, 100ms) << "a registration starts the pauses again";
}

}  // namespace
