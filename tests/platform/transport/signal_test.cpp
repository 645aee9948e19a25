// SPDX-License-Identifier: Apache-2.0
// A program that is interrupted a thousand times a second loses no call, and none is run twice.
#include <sys/time.h>

#include <csignal>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::Clock;

std::atomic<int> g_signals{0};

// SIGALRM goes to the main thread, since all others of this process block it; its handler restarts no system call.
class Signals : public PeerFixture {
protected:
    Signals()
    {
        struct sigaction action {};
        action.sa_handler = [](int) { ++g_signals; };
        ::sigaction(SIGALRM, &action, nullptr);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        ::setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
    }
    ~Signals() override
    {
        const itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
    }
};

TEST_F(Signals, LoseNoCallAndRepeatNone)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(5);
    int32_t calls = 0;
    for (; calls < 100000 && Clock::now() < end; ++calls) {
        ASSERT_EQ(Call(object_, TestCode::NOTE).Int(calls).Send(), TAVO::IPC_OK);
    }
    EXPECT_EQ(NotesThere(), Counting(0, calls));
    EXPECT_GT(g_signals, 100);
}

// Waits for an answer, for room in the socket, and for the rest of a message are all interrupted.
TEST_F(Signals, ShortenNoMessageAndNoWait)
{
    const std::string large(4 << 20, 'l');
    for (int round = 0; round < 20; ++round) {
        Call echo(object_, TestCode::ECHO);
        ASSERT_EQ(echo.Text(large).Send(), TAVO::IPC_OK);
        ASSERT_EQ(echo.reply.ReadString(), large);
    }
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(Call(object_, TestCode::WAIT).Send(2), TAVO::IPC_TIMED_OUT);
    EXPECT_GE(Clock::now() - start, std::chrono::seconds(2));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    EXPECT_GT(g_signals, 100);
}

}  // namespace
}  // namespace TransportTest
