// SPDX-License-Identifier: Apache-2.0
// A hub in a process of its own, and this process, which does not use the platform, as a raw peer of it.
#ifndef VELTRA_TESTS_TRANSPORT_HUB_FIXTURE_H
#define VELTRA_TESTS_TRANSPORT_HUB_FIXTURE_H

#include <gtest/gtest.h>

#include <memory>

#include "platform/transport/raw_callee.h"

namespace TransportTest {

// The status of an answer; 1 when there was none.
inline int StatusOf(const std::optional<RawFrame>& answer)
{
    return answer ? answer->Status() : 1;
}

// At the end of each test the hub is alive, serves requests, has as many descriptors as before, and exits with 0.
class HubFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        hub_ = StartPeer("hub");
        MakeObject(*NewPeer());  // opens everything that the hub opens only once
        ASSERT_TRUE(TestSupport::WaitFor([this] { return IntFrom(*NewPeer(), TestCode::LIVE) == 1; })) << "the root";
        ASSERT_TRUE(TestSupport::WaitFor([this] {
            const size_t before = descriptors_;
            descriptors_ = TestSupport::CountDescriptors(hub_.Pid());
            return before == descriptors_;
        }));
        raw_ = NewPeer();
    }

    void TearDown() override
    {
        ExpectServes();
        raw_.reset();
        EXPECT_TRUE(TestSupport::WaitFor([this] { return TestSupport::CountDescriptors(hub_.Pid()) <= descriptors_; }))
            << TestSupport::CountDescriptors(hub_.Pid()) << " descriptors in the hub, " << descriptors_ << " before";
        EXPECT_LE(TestSupport::CountThreads(hub_.Pid()), 1u + 2 + 16) << "main, control, delivery, workers";
        hub_.Pipe().CloseWriting();
        EXPECT_EQ(hub_.WaitForExit(), "exit 0");  // not 0 if a sanitizer reports an error or a leak there
    }

    // One with a session.
    std::unique_ptr<RawPeer> NewPeer()
    {
        auto peer = std::make_unique<RawPeer>(dir_.Path());
        EXPECT_TRUE(peer->OpenSession());
        return peer;
    }

    // An honest peer is served.
    void ExpectServes()
    {
        const RawFrame echo = RequestFor(TestCode::ECHO).Int32(4711);
        const auto answer = NewPeer()->CallOnce(echo);
        ASSERT_EQ(StatusOf(answer), TAVO::IPC_OK);
        EXPECT_EQ(answer->data, echo.data);
        EXPECT_EQ(answer->number, 1u);
    }

    // The serial of a new object that only `peer` holds.
    static uint64_t MakeObject(RawPeer& peer)
    {
        RawSocket lane = peer.OpenLane();
        lane.Send(RequestFor(TestCode::MAKE).Int32(0).Encode());
        const auto answer = lane.ReceiveFrame();
        if (!answer || answer->references.size() != 1) {
            ADD_FAILURE() << "no object was made";
            return 0;
        }
        EXPECT_EQ(answer->references[0].instance, peer.Target());
        EXPECT_EQ(answer->references[0].descriptor, u"test.Object");
        peer.Control().Send(RawRecord{RawRecord::TAKEN, RawRecord::OWN_LANE, peer.LastLane(), 1}.Encode());
        EXPECT_TRUE(peer.Ping());  // the lane may end: its message is known to be taken
        return answer->references[0].serial;
    }

    static int32_t IntFrom(RawPeer& peer, TestCode code)
    {
        const auto answer = peer.CallOnce(RequestFor(code));
        return answer && answer->data.size() == 4 ? TestSupport::ReadAt<int32_t>(answer->data, 0) : -1;
    }
    int32_t LiveObjects() { return IntFrom(*raw_, TestCode::LIVE); }
    bool AwaitLiveObjects(int32_t count)
    {
        return TestSupport::WaitFor([this, count] { return LiveObjects() == count; });
    }

    // The outcome of the hub's call to the object that it keeps under that name.
    int32_t EchoKept(const std::string& name)
    {
        const auto echo = static_cast<int32_t>(TestCode::ECHO);
        const auto answer = raw_->CallOnce(RequestFor(TestCode::CALL_KEPT).String(name).Int32(echo));
        return answer && answer->data.size() == 4 ? TestSupport::ReadAt<int32_t>(answer->data, 0) : 1;
    }

    TestSupport::PrivateRuntimeDir dir_;
    Child hub_;
    std::unique_ptr<RawPeer> raw_;
    size_t descriptors_ = 0;
};

}  // namespace TransportTest

#endif
