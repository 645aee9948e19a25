// SPDX-License-Identifier: Apache-2.0
// A flood of one-way requests costs memory on neither side, however long the receiver stands still.
#include <unistd.h>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::ResidentBytes;
using TestSupport::WaitFor;

constexpr size_t ALLOWED_GROWTH = size_t{3} << 20;  // 1 MiB, and what the processes take for other ends meanwhile

class Flood : public PeerFixture {
protected:
    // Sends until so many were refused; returns how many were accepted.
    int32_t FloodUntilRefused(int refusals, const std::string& text)
    {
        int32_t accepted = 0;
        for (int refused = 0; refused < refusals;) {
            const int status = Call(object_, TestCode::NOTE).Int(accepted).Text(text).SendOneWay();
            if (status != TAVO::IPC_OK) {
                EXPECT_EQ(status, TAVO::IPC_QUEUE_FULL);
                ++refused;
            } else {
                ++accepted;
            }
        }
        return accepted;
    }
};

TEST_F(Flood, IntoAStoppedReceiverCostsNoMemory)
{
    constexpr int REFUSALS = 100000;
    for (const size_t size : {size_t{0}, size_t{60} << 10}) {
        SCOPED_TRACE(size);
        const std::string text(size, 't');
        const size_t before = NotesThere().size();
        EXPECT_EQ(Call(object_, TestCode::ECHO).Text(text).Send(), TAVO::IPC_OK);
        const size_t here = ResidentBytes(::getpid());
        const size_t there = ResidentBytes(peer_.Pid());
        peer_.Stop();
        const int32_t accepted = FloodUntilRefused(REFUSALS, text);
        EXPECT_LT(ResidentBytes(::getpid()), here + ALLOWED_GROWTH);
        peer_.Continue();
        const size_t all = before + static_cast<size_t>(accepted);
        EXPECT_TRUE(WaitFor([this, all] { return NotesThere().size() >= all; }));
        EXPECT_LT(ResidentBytes(peer_.Pid()), there + ALLOWED_GROWTH);
    }
}

}  // namespace
}  // namespace TransportTest
