// SPDX-License-Identifier: Apache-2.0
// What takes seconds: a stopped peer delays its callers by 8 s and no other call; idle workers end, and the memory of
// idle rings is freed.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "platform/transport/peer_fixture.h"
#include "platform/transport/raw_callee.h"
#include "support/raw_ring.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::Clock;
using TestSupport::PrivateRuntimeDir;
using IdleWorker = PeerFixture;

// The time that `body` takes is about that which a call waits.
template <typename Body>
void ExpectEightSeconds(Body body)
{
    const Clock::time_point start = Clock::now();
    body();
    EXPECT_GE(Clock::now() - start, 8s);
    EXPECT_LT(Clock::now() - start, 12s);
}

TEST(HungPeer, CallTimesOutAndItsLateReplyReachesNoOtherCall)
{
    PrivateRuntimeDir dir;
    ServeAsHub();
    Child callee = StartPeer("peer");
    const sptr<IRemoteObject> object = World::Get().Kept("peer");
    ASSERT_EQ(Echo(object), TAVO::IPC_OK);
    callee.Stop();
    ExpectEightSeconds([&object] { EXPECT_EQ(Echo(object, -1), TAVO::IPC_TIMED_OUT); });
    EXPECT_TRUE(object->IsAlive());
    callee.Continue();
    for (int32_t value = 0; value < 1000; ++value) {
        ASSERT_EQ(Echo(object, value), TAVO::IPC_OK);
    }
}

TEST(HungPeer, IncompleteReplyTimesOut)
{
    PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "raw", [](RawPeer& raw) {
        bool isFirst = true;
        ServeLanes(raw, [&isFirst](RawSocket& lane, const RawFrame& request) {
            RawFrame reply = EchoReply(request);
            if (std::exchange(isFirst, false)) {
                reply.dataBytes = 1 << 20;  // far more than comes
            }
            lane.Send(reply.Encode());
        });
    });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("raw");
    ExpectEightSeconds([&object] { EXPECT_EQ(Echo(object), TAVO::IPC_TIMED_OUT); });
    EXPECT_EQ(Echo(object), TAVO::IPC_OK);
}

TEST(HungPeer, NoticeToAnUnconnectedPeerDoesNotWait)
{
    PrivateRuntimeDir dir;
    Child hub = StartPeer("hub");
    Child owner = StartPeer("peer");
    owner.Stop();
    const sptr<IRemoteObject> object = FetchFrom(ConnectToHub(), "peer");
    ASSERT_NE(object, nullptr);
    MessageParcel data;
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(TAVO::Transport::SendNotice(object, 1, data), TAVO::IPC_TIMED_OUT);
    EXPECT_LT(Clock::now() - start, 4s);
    EXPECT_TRUE(TAVO::Transport::IsStillThere(object, start));  // It hangs, and is not gone.
    owner.Continue();
    EXPECT_TRUE(TAVO::Transport::IsStillThere(object, Clock::now() + TestSupport::TIMEOUT));
    EXPECT_EQ(TAVO::Transport::SendNotice(object, 1, data), TAVO::IPC_OK);
}

size_t CountWorkers(pid_t pid)
{
    size_t count = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::string name;
        std::ifstream(thread.path() / "comm") >> name;
        count += name == "tavo-worker" ? 1 : 0;
    }
    return count;
}

// Workers that have had nothing to do for a while end, but never the last one that is free.
TEST_F(IdleWorker, LastIdleWorkerStaysWhileAllOthersRunHandlers)
{
    ASSERT_EQ(Call(object_, TestCode::NOTE).Int(0).SendOneWay(), TAVO::IPC_OK);
    std::thread busy([this] {  // as many as never end
        Threads(4, [this](int) { EXPECT_EQ(Call(object_, TestCode::WAIT).Send(60), TAVO::IPC_OK); });
    });
    EXPECT_EQ(peer_.Ask("await-waiting 4"), "waiting");
    EXPECT_TRUE(AwaitNotesThere(1));  // a lane is left idle by this
    std::this_thread::sleep_for(7s);  // longer than an idle worker stays, shorter than an idle lane does
    EXPECT_EQ(CountWorkers(peer_.Pid()), 5u);
    EXPECT_EQ(Call(object_, TestCode::NOTE).Int(1).SendOneWay(), TAVO::IPC_OK);
    EXPECT_TRUE(AwaitNotesThere(2));
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    busy.join();
}

// The next request is delivered.
using IdleRing = PeerFixture;

bool HasRing(pid_t pid)
{
    return MapsLaneMemory(pid, TestSupport::RawRing::SIZE);
}

TEST_F(IdleRing, MemoryOfAnIdleRingIsFreedAtBothEnds)
{
    int32_t sent = 0;
    const auto send = [this, &sent] {
        const bool isSent = Call(object_, TestCode::NOTE).Int(sent).SendOneWay() == TAVO::IPC_OK;
        sent += isSent ? 1 : 0;
        return isSent;
    };
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        EXPECT_TRUE(TestSupport::WaitFor([&] {
            for (int i = 0; i < 1000; ++i) {
                send();
            }
            return HasRing(::getpid()) && HasRing(peer_.Pid());
        }));
        EXPECT_TRUE(AwaitNotesThere(static_cast<size_t>(sent)));
        EXPECT_TRUE(TestSupport::WaitFor([this] { return !HasRing(::getpid()) && !HasRing(peer_.Pid()); }));
        EXPECT_TRUE(TestSupport::WaitFor(send));
        EXPECT_TRUE(AwaitNotesThere(static_cast<size_t>(sent)));
    }
    EXPECT_EQ(NotesThere(), Counting(0, sent));
}

}  // namespace
}  // namespace TransportTest
