// SPDX-License-Identifier: Apache-2.0
// When a lane polls and when it waits in the kernel. The benchmarks measure its speed.
#include "transport/spin.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdlib>

namespace TAVO::Transport {
namespace {

using std::chrono::microseconds;

TEST(SpinPause, DoublesWithoutAMessageAndHalvesWithOne)
{
    SpinPause pause;
    SpinPause::Time now;
    EXPECT_TRUE(pause.IsOver(now));
    const auto expectPause = [&](microseconds length) {
        EXPECT_FALSE(pause.IsOver(now + length - microseconds(1))) << length.count();
        now += length;
        EXPECT_TRUE(pause.IsOver(now)) << length.count();
    };
    for (microseconds length = SpinPause::FIRST; length < SpinPause::MAX; length *= 2) {
        pause.OnNothing(now);
        expectPause(length);
    }
    for (int i = 0; i < 3; ++i) {
        pause.OnNothing(now);
        expectPause(SpinPause::MAX);
    }
    pause.OnMessage();
    EXPECT_TRUE(pause.IsOver(now));
    pause.OnMessage();
    pause.OnNothing(now);
    expectPause(SpinPause::MAX / 2);
    for (int i = 0; i < 20; ++i) {
        pause.OnMessage();
    }
    const auto lose = [&](microseconds lost, microseconds length) {
        pause.OnLostProcessor(now, now + lost);
        now += lost;
        expectPause(length);
    };
    constexpr microseconds SLICE{3000};
    lose(SLICE, SpinPause::PER_LOSS * SLICE);
    lose(SLICE, SpinPause::PER_LOSS * SLICE * 2);
    now += SpinPause::PER_LOSS * SLICE * 2 + microseconds(1);
    lose(SLICE, SpinPause::PER_LOSS * SLICE);
    lose(SpinPause::MAX, SpinPause::MAX);
}

class SpinTest : public testing::Test {
protected:
    SpinTest()
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        receiver_ = UniqueFd(ends[0]);
        sender_ = UniqueFd(ends[1]);
    }
    IoStatus Receive()
    {
        char byte = 0;
        return Spin(Spin::WORKER_POLLS).Receive(receiver_.Get(), &byte, 1).status;
    }

    UniqueFd receiver_;
    UniqueFd sender_;
};

TEST_F(SpinTest, ReceivesMessageAndEndOfConnection)
{
    EXPECT_EQ(Receive(), IoStatus::WOULD_BLOCK);
    EXPECT_EQ(::send(sender_.Get(), "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(Receive(), IoStatus::OK);
    sender_.Reset();
    EXPECT_EQ(Receive(), IoStatus::CLOSED);
}

TEST_F(SpinTest, IsTurnedOffByTheEnvironment)
{
    ::setenv("TAVO_SPIN", "off", 1);
    EXPECT_EQ(::send(sender_.Get(), "x", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(Receive(), IoStatus::WOULD_BLOCK);
}

}  // namespace
}  // namespace TAVO::Transport
