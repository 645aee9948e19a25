// SPDX-License-Identifier: Apache-2.0
// A fork holds a dead library and harms nobody; a process may end in any way while it calls.
#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "platform/transport/test_object.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::Clock;
using TestSupport::LinePipe;
using TestSupport::PrivateRuntimeDir;
using TestSupport::WaitFor;

// What the child of a process with live sessions tries; the number of the first thing that did not fail as it should.
int UseDeadLibrary(const sptr<IRemoteObject>& hub, sptr<IRemoteObject> last)
{
    if (!TAVO::Transport::IsForkedChild()) {
        return 1;
    }
    if (Echo(hub) != TAVO::IPC_UNAVAILABLE) {
        return 2;
    }
    if (Call(hub, TestCode::NOTE).Int(-1).SendOneWay() != TAVO::IPC_UNAVAILABLE) {
        return 3;
    }
    if (TAVO::Transport::ConnectManager(Clock::now() + std::chrono::seconds(5)) != nullptr) {
        return 4;
    }
    if (hub->AddDeathRecipient(TAVO::MakeRef<CountingRecipient>())) {
        return 5;
    }
    if (Echo(TAVO::MakeRef<TestObject>()) == TAVO::IPC_OK) {
        return 6;  // a local object is served by a worker, and the child has none
    }
    last = nullptr;  // must give nothing back in the parent's name
    return 0;
}

TEST(Fork, AThousandChildrenFailAtOnceAndTheParentsCallsGoOn)
{
    constexpr int FORKS = 1000;
    constexpr int CALLERS = 3;
    PrivateRuntimeDir dir;
    const Child hubProcess = StartHub();
    const sptr<IRemoteObject> hub = ConnectToHub();
    const sptr<IRemoteObject> object = MakeIn(hub);
    std::atomic<bool> isOver{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < CALLERS; ++caller) {
        callers.emplace_back([&, caller] {
            for (int32_t value = caller; !isOver; value += CALLERS) {
                failures += Echo(hub, value) != TAVO::IPC_OK;
                failures += Call(hub, TestCode::NOTE).Int(value).SendOneWay() == TAVO::IPC_BROKEN;
                failures += MakeIn(hub) == nullptr;  // takes and releases the platform's locks
            }
        });
    }
    for (int round = 0; round < FORKS; ++round) {
        const sptr<IRemoteObject> passing = MakeIn(hub);
        Child child = Child::Fork([&](LinePipe&) { return UseDeadLibrary(hub, passing); });
        ASSERT_EQ(child.WaitForExit(), "exit 0") << "fork " << round;
    }
    isOver = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Echo(object), TAVO::IPC_OK);
}

// The descriptors of a killed process stay open in its child: only the process itself tells of the death.
TEST(Fork, DeathIsNoticedWhileAChildHoldsTheSockets)
{
    PrivateRuntimeDir dir;
    ServeAsHub();
    Child peer = StartPeer("peer");
    const sptr<IRemoteObject> object = World::Get().Kept("peer");
    const sptr<CountingRecipient> recipient = TAVO::MakeRef<CountingRecipient>();
    ASSERT_TRUE(object->AddDeathRecipient(recipient));
    std::thread caller([object] { EXPECT_PRED1(IsConnectionError, Call(object, TestCode::WAIT).Send(30)); });
    EXPECT_EQ(peer.Ask("await-waiting 1"), "waiting");
    const pid_t grandchild = std::stoi(peer.Ask("fork-idle-child"));
    const Clock::time_point start = Clock::now();
    peer.Kill();
    EXPECT_TRUE(WaitFor([&recipient] { return recipient->told == 1; }));
    caller.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    EXPECT_EQ(::kill(grandchild, 0), 0) << "the child was to hold the sockets";
    ::kill(grandchild, SIGKILL);
}

TEST(Fork, AnExecutedProgramInheritsNoDescriptor)
{
    PrivateRuntimeDir dir;
    Child fresh = Child::Start({"transport_peer", "list-descriptors"});
    const std::string inheritedFromOutside = fresh.Pipe().Hear().value_or("silence");
    ServeAsHub();
    Child first = StartPeer("first");
    Child second = StartPeer("second");
    EXPECT_EQ(first.Ask("call-all second"), "called");
    EXPECT_EQ(second.Ask("call-all first"), "called");
    EXPECT_EQ(first.Ask("descriptors-after-exec"), inheritedFromOutside);
    EXPECT_EQ(second.Ask("descriptors-after-exec"), inheritedFromOutside);
}

struct Ending {
    const char* command;
    const char* result;
};

TEST(ProcessEnd, AnyWayOutWorksWithACallInFlight)
{
    constexpr int ROUNDS = 15;
    PrivateRuntimeDir dir;
    const sptr<TestObject> root = ServeAsHub();
    for (const Ending& ending : {Ending{"exit", "exit 4"}, Ending{"_exit", "exit 3"}, Ending{"abort", "signal 6"}}) {
        SCOPED_TRACE(ending.command);
        for (int round = 0; round < ROUNDS; ++round) {
            Child peer = StartPeer("peer");
            const sptr<CountingRecipient> recipient = TAVO::MakeRef<CountingRecipient>();
            ASSERT_EQ(peer.Ask("call-in-background"), "calling");
            ASSERT_TRUE(World::Get().AwaitWaiting(1));
            ASSERT_TRUE(World::Get().Kept("peer.more")->AddDeathRecipient(recipient));
            peer.Pipe().Say(ending.command);
            EXPECT_EQ(peer.WaitForExit(), ending.result);
            EXPECT_TRUE(WaitFor([&recipient] { return recipient->told == 1; }));
            World::Get().OpenGate();
            ASSERT_TRUE(WaitFor([] { return World::Get().Waiting() == 0; }));
        }
    }
}

}  // namespace
}  // namespace TransportTest
