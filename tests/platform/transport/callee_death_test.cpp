// SPDX-License-Identifier: Apache-2.0
// Callees that die, hang up or reply wrongly: each call returns one result, in time, and never that of another call.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <future>

#include "platform/transport/raw_callee.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::Clock;

constexpr auto SOON = 6s;  // well below the 8 s that a call waits for a silent callee

// Raw peers are forked first, then this process becomes the hub.
class Callee : public ::testing::Test {
protected:
    void Add(const std::function<void(RawPeer& raw)>& script)
    {
        callees_.push_back(ForkCallee(dir_.Path(), std::to_string(callees_.size()), script));
    }
    // Answers every request on every lane.
    void AddServing(const std::function<void(RawSocket& lane, const RawFrame& request)>& answer)
    {
        Add([answer](RawPeer& raw) { ServeLanes(raw, answer); });
    }
    sptr<IRemoteObject> Start(size_t callee = 0)
    {
        EXPECT_TRUE(StartCallee(callees_[callee]));
        return World::Get().Kept(std::to_string(callee));
    }

    TestSupport::PrivateRuntimeDir dir_;
    std::vector<Child> callees_;
};

TEST_F(Callee, DeathBeforeReadingTheRequestFailsTheCallAtOnce)
{
    Add([](RawPeer& raw) {
        RawHello hello;
        raw.Accept(hello).AwaitReadable(TestSupport::TIMEOUT);
        ::raise(SIGKILL);
    });
    ServeAsHub();
    const sptr<IRemoteObject> object = Start();
    const Clock::time_point start = Clock::now();
    EXPECT_PRED1(IsConnectionError, Echo(object));
    EXPECT_LT(Clock::now() - start, SOON);
    EXPECT_TRUE(TestSupport::WaitFor([&object] { return !object->IsAlive(); }));
    EXPECT_EQ(Echo(object), TAVO::IPC_DEAD_OBJECT);
}

class BlockedCallers : public Callee, public testing::WithParamInterface<size_t> {};
INSTANTIATE_TEST_SUITE_P(Callee, BlockedCallers, testing::Values(12, 64));

// And IsAlive is false for those that learn of the death by their status, or they would call the object again. Of 64
// callers some may still be connecting: they may be refused a moment before the end of the session is known.
TEST_P(BlockedCallers, EachFailsOnceByTheDeath)
{
    constexpr size_t AT_ONCE = 12;  // so many of them reach the handler; the others wait behind them
    const bool allAreInTheHandler = GetParam() == AT_ONCE;
    ServeAsHub();
    Child callee = StartPeer("peer");
    const sptr<IRemoteObject> object = World::Get().Kept("peer");
    std::vector<std::future<bool>> calls(GetParam());
    for (std::future<bool>& call : calls) {
        call = std::async(std::launch::async, [object, allAreInTheHandler] {
            const int status = Call(object, TestCode::WAIT).Send(30);
            EXPECT_PRED1(IsConnectionError, status);
            return allAreInTheHandler && status == TAVO::IPC_DEAD_OBJECT && object->IsAlive();
        });
    }
    EXPECT_EQ(callee.Ask("await-waiting " + std::to_string(AT_ONCE)), "waiting");
    const Clock::time_point start = Clock::now();
    callee.Kill();
    for (std::future<bool>& call : calls) {
        EXPECT_FALSE(call.get());
    }
    EXPECT_LT(Clock::now() - start, SOON);
}

// So many bytes of a reply of 200.
Bytes PartOfReply(const RawFrame& request, size_t size)
{
    RawFrame reply = EchoReply(request);
    reply.data.resize(200 - RawFrame::HEADER_SIZE, 0x5a);
    Bytes bytes = reply.Encode();
    bytes.resize(size);
    return bytes;
}

// The caller that gets part of a reply sees none of it.
void ExpectReply(const sptr<IRemoteObject>& object, int32_t size)
{
    Call call(object, TestCode::ECHO);
    const int status = call.Int(size).Send();
    EXPECT_TRUE(size < 200 ? IsConnectionError(status) : status == TAVO::IPC_OK) << size << " bytes: " << status;
    EXPECT_EQ(call.reply.GetDataSize(), size < 200 ? 0 : 200 - RawFrame::HEADER_SIZE);
}

TEST_F(Callee, ReplyCutAtAnyByteFailsTheCallAndKeepsTheSession)
{
    AddServing([](RawSocket& lane, const RawFrame& request) {
        const auto size = TestSupport::ReadAt<uint32_t>(request.data, 0);
        lane.Send(PartOfReply(request, size));
        if (size < 200) {
            lane.Close();
        }
    });
    ServeAsHub();
    const sptr<IRemoteObject> object = Start();
    for (int32_t size = 0; size <= 200; ++size) {
        ExpectReply(object, size);
    }
    EXPECT_TRUE(object->IsAlive());
}

TEST_F(Callee, WholeReplyOfADeadPeerIsDeliveredBeforeTheDeathNotice)
{
    std::vector<int32_t> sizes{1, 31, 32, 33, 199};
    sizes.resize(20, 200);
    for (size_t callee = 0; callee < sizes.size(); ++callee) {
        AddServing([](RawSocket& lane, const RawFrame& request) {
            lane.Send(PartOfReply(request, TestSupport::ReadAt<uint32_t>(request.data, 0)));
            ::raise(SIGKILL);
        });
    }
    ServeAsHub();
    for (size_t callee = 0; callee < sizes.size(); ++callee) {
        const sptr<IRemoteObject> object = Start(callee);
        const sptr<CountingRecipient> recipient = CountingRecipient::Of(object);
        ExpectReply(object, sizes[callee]);
        EXPECT_TRUE(recipient->AwaitTold());
        EXPECT_EQ(Echo(object), TAVO::IPC_DEAD_OBJECT);
    }
}

// The row is named by the first number of a request; the first row is right, the second right and sent twice.
const std::vector<std::pair<const char*, std::function<void(RawFrame& reply)>>> WRONG_REPLIES = {
    {"none wrong", [](RawFrame&) {}},
    {"sent twice", [](RawFrame&) {}},
    {"number of the next request", [](RawFrame& reply) { ++reply.number; }},
    {"number 0", [](RawFrame& reply) { reply.number = 0; }},
    {"a request", [](RawFrame& reply) { reply.kind = RawFrame::REQUEST; }},
    {"data of 4 GiB", [](RawFrame& reply) { reply.dataBytes = UINT32_MAX; }},
    {"reference behind the data",
     [](RawFrame& reply) { reply.Reference(TestSupport::RawInstance{}, 5).references[0].offset += 8; }},
};

TEST_F(Callee, InvalidReplyClosesThatLaneOnly)
{
    AddServing([](RawSocket& lane, const RawFrame& request) {
        const auto row = TestSupport::ReadAt<uint32_t>(request.data, 0);
        RawFrame reply = EchoReply(request);
        WRONG_REPLIES[row].second(reply);
        Bytes bytes = reply.Encode();
        if (row == 1) {
            const Bytes again = bytes;
            bytes.insert(bytes.end(), again.begin(), again.end());
        }
        lane.Send(bytes);
    });
    ServeAsHub();
    const sptr<IRemoteObject> object = Start();
    for (int32_t row = 0; row < static_cast<int32_t>(WRONG_REPLIES.size()); ++row) {
        SCOPED_TRACE(WRONG_REPLIES[static_cast<size_t>(row)].first);
        const int first = Echo(object, row);
        if (row != 1) {  // which may succeed, depending on how the bytes arrive
            EXPECT_EQ(first == TAVO::IPC_OK, row == 0);
        }
        EXPECT_NE(first, 1) << "a wrong answer was taken for the right one";
        EXPECT_NE(first, TAVO::IPC_TIMED_OUT);
        EXPECT_NE(Echo(object, 0), 1) << "the next call got what was left over";
        EXPECT_EQ(Echo(object, 0), TAVO::IPC_OK);
    }
    EXPECT_TRUE(object->IsAlive());
}

// The rest of a half-sent request is sent by the control thread; until then there is room for no other frame.
TEST_F(Callee, HalfSentOneWayRequestIsNotMixedWithTheNext)
{
    static constexpr uint64_t REQUESTS = 2000;
    Add([](RawPeer& raw) {
        RawHello hello;
        RawSocket lane = raw.Accept(hello);
        for (uint64_t number = 1; number <= REQUESTS; ++number) {
            const auto frame = lane.ReceiveFrame(5s);
            if (!frame || frame->number != number || frame->kind != RawFrame::REQUEST) {
                ::_exit(1);
            }
        }
        ::_exit(0);
    });
    ServeAsHub();
    const sptr<IRemoteObject> object = Start();
    const std::string texts[] = {"", std::string(60 << 10, 'l')};
    std::string end = "running";
    for (size_t attempt = 0; end == "running"; ++attempt) {
        Call(object, TestCode::NOTE).Text(texts[attempt % 2]).SendOneWay();
        end = callees_[0].WaitForExit(0s);
    }
    EXPECT_EQ(end, "exit 0");
}

// Otherwise an object could be destroyed before the last request to it runs.
TEST_F(Callee, ReleaseIsSentAfterTheOneWayRequestsToTheObject)
{
    Add([](RawPeer& raw) {
        RawHello hello;
        RawSocket lane = raw.Accept(hello);
        const auto request = lane.ReceiveFrame();
        const auto after = raw.AwaitRecord(RawRecord::AFTER);
        const auto release = raw.Control().ReceiveRecord();
        const bool isRight = request && after && release && after->a == hello.lane && after->b == request->number &&
                             release->type == RawRecord::RELEASE && release->a == request->serial;
        ::_exit(isRight ? 0 : 1);
    });
    ServeAsHub();
    sptr<IRemoteObject> object = Start();
    EXPECT_EQ(Call(object, TestCode::NOTE).SendOneWay(), TAVO::IPC_OK);
    World::Get().Keep("0", nullptr);
    object = nullptr;
    EXPECT_EQ(callees_[0].WaitForExit(), "exit 0");
}

TEST_F(Callee, ClosedOneWayLaneIsReplacedAlsoForReferences)
{
    Add([](RawPeer& raw) {
        RawHello hello;
        RawSocket first = raw.Accept(hello);
        const auto request = first.ReceiveFrame();
        raw.Control().Send(RawRecord{RawRecord::LANE_CLOSED, 0, hello.lane, 1}.Encode());  // and left open
        RawSocket second = raw.Accept(hello);
        const auto next = second.ReceiveFrame();
        ::_exit(request && next && next->references.size() == 1 ? 0 : 1);
    });
    ServeAsHub();
    const sptr<IRemoteObject> object = Start();
    EXPECT_EQ(Call(object, TestCode::NOTE).SendOneWay(), TAVO::IPC_OK);
    const sptr<IRemoteObject> ours = TAVO::MakeRef<TestObject>();
    EXPECT_TRUE(TestSupport::WaitFor([&] {  // until it is known here that the lane was closed
        Call(object, TestCode::KEEP).Text("ours").Object(ours).SendOneWay();
        return callees_[0].WaitForExit(0s) == "exit 0";
    }));
}

TEST_F(Callee, DescriptorsSentWithRepliesAreNotOpenInTheCaller)
{
    AddServing([](RawSocket& lane, const RawFrame& request) {
        lane.SendWithDescriptors(EchoReply(request).Encode(), 1 + request.number % 253);
    });
    ServeAsHub();
    const sptr<IRemoteObject> object = Start();
    EXPECT_EQ(Echo(object), TAVO::IPC_OK);
    const size_t before = TestSupport::CountDescriptors(::getpid());
    for (int32_t round = 0; round < 1000; ++round) {
        ASSERT_EQ(Echo(object, round), TAVO::IPC_OK);
        ASSERT_LE(TestSupport::CountDescriptors(::getpid()), before);
    }
}

// A connection that breaks under a large request must not raise SIGPIPE, which ends a program that left it alone.
TEST_F(Callee, LaneClosedDuringALargeRequestRaisesNoSignal)
{
    Add([](RawPeer& raw) {
        RawHello hello;
        for (int round = 0; round < 3; ++round) {
            raw.Accept(hello).Receive(1000);
        }
    });
    ServeAsHub();
    const sptr<IRemoteObject> object = Start();
    for (int round = 0; round < 3; ++round) {
        EXPECT_PRED1(IsConnectionError, Call(object, TestCode::ECHO).Text(std::string(8 << 20, 'x')).Send());
    }
    struct sigaction disposition {};
    ::sigaction(SIGPIPE, nullptr, &disposition);
    EXPECT_EQ(disposition.sa_handler, SIG_DFL);
}

}  // namespace
}  // namespace TransportTest
