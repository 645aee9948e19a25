// SPDX-License-Identifier: Apache-2.0
// A process without a descriptor left gets or gives errors, does not spin, and is well again once some are free.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "platform/transport/descriptor_limit.h"
#include "platform/transport/raw_callee.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::Child;
using TestSupport::Clock;
using TestSupport::PrivateRuntimeDir;
using TestSupport::WaitFor;

constexpr auto SOON = 6s;  // well below the 8 s that a call waits for its answer

// The hub and a peer are other processes; this one calls both, and has met neither before the test.
class DescriptorLimit : public ::testing::Test {
protected:
    // Starts a call that takes the lane that is idle, so that the next one needs another.
    std::thread TakeIdleLane(const sptr<IRemoteObject>& object, Child& callee)
    {
        std::thread caller([object] { EXPECT_EQ(Call(object, TestCode::WAIT).Send(2), TAVO::IPC_TIMED_OUT); });
        EXPECT_EQ(callee.Ask("await-waiting 1"), "waiting");
        return caller;
    }

    static void ExpectWell(const sptr<IRemoteObject>& object)
    {
        ASSERT_NE(object, nullptr);
        // A manager that did not answer in time is not asked again until it has shown that it lives.
        EXPECT_TRUE(WaitFor([&object] { return Echo(object) != TAVO::IPC_TIMED_OUT; }));
        EXPECT_EQ(Echo(object), TAVO::IPC_OK);
        EXPECT_EQ(Call(object, TestCode::NEST).Int(4).Object(TAVO::MakeRef<TestObject>()).SendForInt(), 4);
        EXPECT_EQ(Call(object, TestCode::NOTE).Int(1).SendOneWay(), TAVO::IPC_OK);
    }

    PrivateRuntimeDir dir_;
    Child hub_ = StartPeer("hub");
    Child peer_ = StartPeer("peer");
};

TEST_F(DescriptorLimit, FirstUseFailsAtOnceAndTheNextSucceeds)
{
    {
        const NoDescriptorLeft full;
        const Clock::time_point start = Clock::now();
        EXPECT_EQ(ConnectToHub(), nullptr);
        EXPECT_EQ(Echo(TAVO::MakeRef<TestObject>()), TAVO::IPC_NO_RESOURCES);
        EXPECT_LT(Clock::now() - start, SOON);
    }
    ExpectWell(ConnectToHub());
    EXPECT_EQ(Echo(TAVO::MakeRef<TestObject>()), TAVO::IPC_OK);
}

TEST_F(DescriptorLimit, CallerFailsOnlyWhatNeedsAnotherDescriptor)
{
    const sptr<IRemoteObject> root = ConnectToHub();
    ASSERT_EQ(Echo(root), TAVO::IPC_OK);
    const sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
    {
        const NoDescriptorLeft full;
        EXPECT_EQ(Echo(root), TAVO::IPC_OK) << "there is a lane";
        EXPECT_PRED1(IsConnectionError, Echo(FetchFrom(root, "peer"))) << "it was never met";
        ExpectIdle(::getpid(), [&] {
            std::thread caller = TakeIdleLane(root, hub_);
            EXPECT_EQ(Echo(root), TAVO::IPC_NO_RESOURCES);
            EXPECT_EQ(Call(root, TestCode::NOTE).Int(1).SendOneWay(), TAVO::IPC_NO_RESOURCES);
            EXPECT_EQ(KeepIn(root, "ours", ours), TAVO::IPC_NO_RESOURCES);
            caller.join();
        });
    }
    ExpectWell(root);
    ExpectWell(FetchFrom(root, "peer"));
    EXPECT_EQ(KeepIn(root, "ours", ours), TAVO::IPC_OK);
}

TEST_F(DescriptorLimit, NewLanesToTheCalleeTimeOutUntilDescriptorsAreFree)
{
    const sptr<IRemoteObject> root = ConnectToHub();
    RawPeer asking(dir_.Path());
    ASSERT_TRUE(asking.OpenSession());
    const auto fetched = asking.CallOnce(RequestFor(TestCode::FETCH).String("peer"));
    ASSERT_TRUE(fetched && fetched->references.size() == 1);
    struct Callee {
        Child& process;
        sptr<IRemoteObject> object;
        std::string path;
    };
    const std::string peerPath = "p/" + TestSupport::ToHex(fetched->references[0].instance);
    for (const Callee& callee : {Callee{hub_, root, "manager"}, Callee{peer_, FetchFrom(root, "peer"), peerPath}}) {
        SCOPED_TRACE(callee.path);
        const pid_t pid = callee.process.Pid();
        ASSERT_EQ(Echo(callee.object), TAVO::IPC_OK);
        LimitDescriptors(pid, FEW);
        {
            RawPeer greedy(dir_.Path());
            ASSERT_TRUE(greedy.OpenSession(callee.path));
            std::vector<RawSocket> lanes;
            for (rlim_t count = 0; count < FEW; ++count) {
                lanes.push_back(greedy.OpenLane());
            }
            ASSERT_TRUE(WaitFor([pid] { return TestSupport::CountDescriptors(pid) >= FEW; }));
            EXPECT_EQ(Echo(callee.object), TAVO::IPC_OK) << "there is a lane";
            ExpectIdle(pid, [&] {
                std::thread caller = TakeIdleLane(callee.object, callee.process);
                EXPECT_EQ(Call(callee.object, TestCode::NOTE).Int(-1).Send(2), TAVO::IPC_TIMED_OUT);
                caller.join();
            });
        }
        ExpectWell(callee.object);
        Call notes(callee.object, TestCode::NOTES);
        EXPECT_EQ(notes.Send(), TAVO::IPC_OK);
        EXPECT_NE(notes.reply.ReadInt32(), -1) << "a request was run that its caller had given up";
        EXPECT_EQ(Call(callee.object, TestCode::OPEN).Send(), TAVO::IPC_OK);
    }
    for (Child* process : {&peer_, &hub_}) {
        process->Pipe().CloseWriting();
        EXPECT_EQ(process->WaitForExit(), "exit 0");
    }
}

}  // namespace
}  // namespace TransportTest
