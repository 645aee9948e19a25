// SPDX-License-Identifier: Apache-2.0
// Peers that announce much, send little and read nothing: they get 8 s, a little memory and no thread.
#include <gtest/gtest.h>

#include "platform/transport/hub_fixture.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::Clock;

constexpr int LANES = 40;  // more than there are workers

class SilentPeer : public HubFixture {
protected:
    // So many lanes that carry `request` and nothing else.
    std::vector<RawSocket> SendOnLanes(const RawFrame& request)
    {
        start_ = Clock::now();
        std::vector<RawSocket> lanes;
        for (int lane = 0; lane < LANES; ++lane) {
            lanes.push_back(raw_->OpenLane());
            EXPECT_TRUE(lanes.back().Send(request.Encode()));
        }
        return lanes;
    }

    // Others are served at once while the lanes wait; then all of them end after 8 s, but for the session's control.
    void ExpectTheyEndInTime()
    {
        for (int round = 0; round < 20; ++round) {
            ExpectServes();
        }
        EXPECT_LT(Clock::now() - start_, 6s) << "others waited";
        EXPECT_TRUE(
            TestSupport::WaitFor([this] { return TestSupport::CountDescriptors(hub_.Pid()) <= descriptors_ + 2; }));
        EXPECT_GE(Clock::now() - start_, 7s) << "they were given up too early";
        EXPECT_TRUE(raw_->Ping()) << "the session was to stay";
    }

    Clock::time_point start_;  // of the sending
};

TEST_F(SilentPeer, AnnouncedSizeOf64MebibytesAllocatesNothingAndHoldsNoWorker)
{
    const size_t before = TestSupport::ResidentBytes(hub_.Pid());
    RawFrame large = RequestFor(TestCode::ECHO);
    large.dataBytes = (64 << 20) - RawFrame::HEADER_SIZE;
    large.data.resize(100 << 10);
    const std::vector<RawSocket> lanes = SendOnLanes(large);
    ExpectServes();
    EXPECT_LT(TestSupport::ResidentBytes(hub_.Pid()), before + LANES * (size_t{512} << 10) + (size_t{4} << 20));
    ExpectTheyEndInTime();
}

TEST_F(SilentPeer, UnreadLargeRepliesBlockNoWorker)
{
    const std::vector<RawSocket> lanes = SendOnLanes(RequestFor(TestCode::ECHO).String(std::string(1 << 20, 's')));
    ExpectTheyEndInTime();
}

}  // namespace
}  // namespace TransportTest
