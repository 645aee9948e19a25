// SPDX-License-Identifier: Apache-2.0
// Workers that have had nothing to do for a while go, but never the last one that is free.
#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using IdleWorker = PeerFixture;

// Longer than an idle worker stays, shorter than an idle lane does.
constexpr std::chrono::seconds REST{7};

TEST_F(IdleWorker, OneStaysWhileAllOthersAreInHandlers)
{
    ASSERT_EQ(Call(object_, TestCode::NOTE).Int(0).SendOneWay(), TAVO::IPC_OK);
    std::thread busy([this] {  // as many as are kept for good
        InThreads(4, [this](int) { EXPECT_EQ(Call(object_, TestCode::WAIT).Send(60), TAVO::IPC_OK); });
    });
    EXPECT_EQ(peer_.Ask("await-waiting 4"), "waiting");
    EXPECT_TRUE(AwaitNotesThere(1));    // a lane is left idle by this
    std::this_thread::sleep_for(REST);  // the fact itself takes that long
    EXPECT_EQ(Call(object_, TestCode::NOTE).Int(1).SendOneWay(), TAVO::IPC_OK);
    EXPECT_TRUE(AwaitNotesThere(2));
    EXPECT_EQ(Call(object_, TestCode::OPEN).Send(), TAVO::IPC_OK);
    busy.join();
}

}  // namespace
}  // namespace TransportTest
