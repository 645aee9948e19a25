// SPDX-License-Identifier: Apache-2.0
// The memory of a stream that has ended is given back at both ends, and the next request finds its way all the same.
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using IdleRing = PeerFixture;

bool HasRing(pid_t pid)
{
    const std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::ostringstream all;
    all << maps.rdbuf();
    return all.str().find("/memfd:tavo-lane") != std::string::npos;
}

TEST_F(IdleRing, IsGivenBackAtBothEnds)
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
