// SPDX-License-Identifier: Apache-2.0
// Requests that are read late: those that were accepted are run, and those that nobody waits for are not.
#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::Child;

class LateRequest : public PeerFixture {};

// Its lane, its requests and its end all lie there when the receiver looks.
TEST_F(LateRequest, TheFirstOneWayRequestsOfAProcessThatEndedAreRun)
{
    Child sender = StartPeer("sender");
    const sptr<IRemoteObject> world = World::Get().Kept("sender");
    ASSERT_EQ(Call(world, TestCode::KEEP).Text("receiver").Object(object_).Send(), TAVO::IPC_OK);
    ASSERT_EQ(Call(world, TestCode::ECHO_KEPT).Text("receiver").SendForInt(), TAVO::IPC_OK);
    peer_.Stop();
    ASSERT_EQ(Call(world, TestCode::SEND_NOTES).Int(3).Object(object_).Send(), TAVO::IPC_OK);
    sender.Kill();
    EXPECT_EQ(sender.WaitForExit(), "signal 9");
    peer_.Continue();
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    EXPECT_TRUE(TestSupport::WaitFor([this] { return NotesThere().size() == 3; }));
    EXPECT_EQ(NotesThere(), Counting(0, 3));
}

TEST_F(LateRequest, WhatWaitedForItsObjectIsNotRunForACallerThatGaveUp)
{
    const sptr<IRemoteObject> oneAtATime = MakeIn(object_, true);
    std::thread first([&oneAtATime] { EXPECT_EQ(Call(oneAtATime, TestCode::WAIT).Send(60), TAVO::IPC_OK); });
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    EXPECT_EQ(Call(oneAtATime, TestCode::NOTE).Int(1).Send(1), TAVO::IPC_TIMED_OUT);
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    first.join();
    EXPECT_EQ(Call(oneAtATime, TestCode::NOTE).Int(2).Send(), TAVO::IPC_OK);
    EXPECT_EQ(NotesThere(), Counting(2, 1));
}

}  // namespace
}  // namespace TransportTest
