// SPDX-License-Identifier: Apache-2.0
// One-way requests to a stopped receiver: refused without waiting or allocating, and the accepted ones run in order.
#include <unistd.h>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::Clock;
using TestSupport::ResidentBytes;

constexpr size_t ALLOWED_GROWTH = size_t{3} << 20;  // 1 MiB, and what the processes take for other ends meanwhile

class Flood : public PeerFixture {
protected:
    void SetUp() override
    {
        PeerFixture::SetUp();
        second_ = MakeIn(object_);
    }
    int SendNote(int32_t note, const std::string& text)
    {
        // The order is the session's, not the object's.
        return Call(note % 2 == 0 ? object_ : second_, TestCode::NOTE).Int(note).Text(text).SendOneWay();
    }

    sptr<IRemoteObject> second_;
};

TEST_F(Flood, RequestsToAStoppedReceiverNeitherAllocateNorWait)
{
    constexpr int REFUSALS = 100000;
    int32_t accepted = 0;
    for (const size_t size : {size_t{0}, size_t{60} << 10}) {
        SCOPED_TRACE(size);
        const std::string text(size, 't');
        EXPECT_EQ(Call(object_, TestCode::ECHO).Text(text).Send(), TAVO::IPC_OK);
        const size_t here = ResidentBytes(::getpid());
        const size_t there = ResidentBytes(peer_.Pid());
        peer_.Stop();
        const Clock::time_point start = Clock::now();
        for (int refused = 0; refused < REFUSALS;) {
            const int status = SendNote(accepted, text);
            ASSERT_TRUE(status == TAVO::IPC_OK || status == TAVO::IPC_QUEUE_FULL) << status;
            ++(status == TAVO::IPC_OK ? accepted : refused);
        }
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(20)) << "a one-way call waited";
        EXPECT_LT(ResidentBytes(::getpid()), here + ALLOWED_GROWTH);
        peer_.Continue();
        EXPECT_TRUE(AwaitNotesThere(static_cast<size_t>(accepted)));
        EXPECT_LT(ResidentBytes(peer_.Pid()), there + ALLOWED_GROWTH);
        EXPECT_EQ(SendNote(accepted++, text), TAVO::IPC_OK) << "there is room again";
        EXPECT_TRUE(AwaitNotesThere(static_cast<size_t>(accepted)));
    }
    EXPECT_EQ(NotesThere(), Counting(0, accepted));
}

}  // namespace
}  // namespace TransportTest
