// SPDX-License-Identifier: Apache-2.0
// Whatever becomes of the callee, each caller gets one answer, in time, and never somebody else's.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <thread>

#include "platform/transport/raw_callee.h"
#include "platform/transport/test_object.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::Clock;
using TestSupport::PrivateRuntimeDir;
using TestSupport::WaitFor;

constexpr auto SOON = 6s;  // well below the 8 s that a call waits for a silent callee

TEST(CalleeDeath, RequestThatWasNotReadFailsAtOnce)
{
    PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "raw", [](RawPeer& raw) {
        RawHello hello;
        const RawSocket lane = raw.Accept(hello);
        pollfd entry{lane.Fd(), POLLIN, 0};
        ::poll(&entry, 1, -1);  // the request is there
        ::raise(SIGKILL);
    });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("raw");
    const Clock::time_point start = Clock::now();
    EXPECT_PRED1(IsConnectionError, Echo(object));
    EXPECT_LT(Clock::now() - start, SOON);
    EXPECT_TRUE(WaitFor([&object] { return !object->IsAlive(); }));
    EXPECT_EQ(Echo(object), TAVO::IPC_DEAD_OBJECT);
}

TEST(CalleeDeath, DeathInTheHandlerFailsThatCall)
{
    PrivateRuntimeDir dir;
    ServeAsHub();
    for (int round = 0; round < 5; ++round) {
        Child callee = StartPeer("peer");
        const Clock::time_point start = Clock::now();
        EXPECT_PRED1(IsConnectionError, Call(World::Get().Kept("peer"), TestCode::DIE).Send());
        EXPECT_LT(Clock::now() - start, SOON);
        EXPECT_EQ(callee.WaitForExit(), "signal 9");
    }
}

TEST(CalleeDeath, EveryOneOf64CallersIsWokenOnce)
{
    constexpr int CALLERS = 64;
    constexpr int AT_ONCE = 12;  // so many of them reach the handler; the others wait behind them
    PrivateRuntimeDir dir;
    ServeAsHub();
    Child callee = StartPeer("peer");
    const sptr<IRemoteObject> object = World::Get().Kept("peer");
    std::vector<int> results(CALLERS, 0);
    std::vector<std::thread> callers;
    for (int& result : results) {
        callers.emplace_back([&result, object] { result = Call(object, TestCode::WAIT).Send(30); });
    }
    EXPECT_EQ(callee.Ask("await-waiting " + std::to_string(AT_ONCE)), "waiting");
    const Clock::time_point start = Clock::now();
    callee.Kill();
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_LT(Clock::now() - start, SOON);
    for (const int result : results) {
        EXPECT_PRED1(IsConnectionError, result);
    }
}

Bytes ReplyOf200Bytes(const RawFrame& request)
{
    RawFrame reply = EchoReply(request);
    reply.data.resize(200 - RawFrame::HEADER_SIZE, 0x5a);
    return reply.Encode();
}

// The caller that gets part of a reply sees none of it.
void ExpectCutReply(const sptr<IRemoteObject>& object, int32_t cutAt)
{
    Call call(object, TestCode::ECHO);
    call.Int(cutAt);
    EXPECT_PRED1(IsConnectionError, call.Send());
    EXPECT_EQ(call.reply.GetDataSize(), 0u);
}

TEST(CalleeDeath, ReplyCutAtAnyByteFailsTheCallAndLeavesTheSession)
{
    PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "raw", [](RawPeer& raw) {
        ServeLanes(raw, [](RawSocket& lane, const RawFrame& request) {
            Bytes reply = ReplyOf200Bytes(request);
            reply.resize(TestSupport::ReadAt<uint32_t>(request.data, 0));
            const bool isWhole = reply.size() == 200;
            lane.Send(reply);
            if (!isWhole) {
                lane.Close();
            }
        });
    });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("raw");
    for (int32_t cutAt = 0; cutAt < 200; ++cutAt) {
        SCOPED_TRACE(cutAt);
        ExpectCutReply(object, cutAt);
    }
    Call whole(object, TestCode::ECHO);
    EXPECT_EQ(whole.Int(200).Send(), TAVO::IPC_OK);
    EXPECT_EQ(whole.reply.GetDataSize(), 200 - RawFrame::HEADER_SIZE);
    EXPECT_TRUE(object->IsAlive());
}

TEST(CalleeDeath, DeathInTheMiddleOfAReplyFailsTheCall)
{
    PrivateRuntimeDir dir;
    const std::vector<size_t> cuts = {1, 31, 32, 33, 199};
    std::vector<Child> callees;
    for (const size_t cutAt : cuts) {
        callees.push_back(ForkCallee(dir.Path(), std::to_string(cutAt), [cutAt](RawPeer& raw) {
            ServeLanes(raw, [cutAt](RawSocket& lane, const RawFrame& request) {
                Bytes reply = ReplyOf200Bytes(request);
                reply.resize(cutAt);
                lane.Send(reply);
                ::raise(SIGKILL);
            });
        }));
    }
    ServeAsHub();
    for (size_t at = 0; at < cuts.size(); ++at) {
        SCOPED_TRACE(cuts[at]);
        ASSERT_TRUE(StartCallee(callees[at]));
        ExpectCutReply(World::Get().Kept(std::to_string(cuts[at])), 0);
    }
}

TEST(CalleeDeath, ReplyThatWasSentWholeIsDeliveredAndThenTheDeath)
{
    constexpr int ROUNDS = 20;
    PrivateRuntimeDir dir;
    std::vector<Child> callees;
    for (int round = 0; round < ROUNDS; ++round) {
        callees.push_back(ForkCallee(dir.Path(), std::to_string(round), [](RawPeer& raw) {
            ServeLanes(raw, [](RawSocket& lane, const RawFrame& request) {
                lane.Send(EchoReply(request).Encode());
                ::raise(SIGKILL);
            });
        }));
    }
    ServeAsHub();
    for (int round = 0; round < ROUNDS; ++round) {
        ASSERT_TRUE(StartCallee(callees[static_cast<size_t>(round)]));
        const sptr<IRemoteObject> object = World::Get().Kept(std::to_string(round));
        const sptr<CountingRecipient> recipient = TAVO::MakeRef<CountingRecipient>();
        ASSERT_TRUE(object->AddDeathRecipient(recipient));
        EXPECT_EQ(Echo(object, round), TAVO::IPC_OK);
        EXPECT_TRUE(WaitFor([&recipient] { return recipient->told == 1; }));
        EXPECT_EQ(Echo(object, round), TAVO::IPC_DEAD_OBJECT);
    }
}

// What a callee does with a request whose first number names the row.
struct WrongReply {
    const char* name;
    std::function<Bytes(const RawFrame& request)> bytes;
    std::optional<bool> firstCallSucceeds;  // not set: it may, depending on how the bytes arrive
};

const std::vector<WrongReply> WRONG_REPLIES = {
    {"none wrong", [](const RawFrame& request) { return EchoReply(request).Encode(); }, true},
    {"sent twice",
     [](const RawFrame& request) {
         Bytes bytes = EchoReply(request).Encode();
         const Bytes again = bytes;
         bytes.insert(bytes.end(), again.begin(), again.end());
         return bytes;
     },
     std::nullopt},
    {"number of the next request",
     [](const RawFrame& request) {
         RawFrame reply = EchoReply(request);
         ++reply.number;
         return reply.Encode();
     },
     false},
    {"number 0",
     [](const RawFrame& request) {
         RawFrame reply = EchoReply(request);
         reply.number = 0;
         return reply.Encode();
     },
     false},
    {"a request", [](const RawFrame& request) { return request.Encode(); }, false},
    {"data of 4 GiB",
     [](const RawFrame& request) {
         RawFrame reply = EchoReply(request);
         reply.dataBytes = UINT32_MAX;
         return reply.Encode();
     },
     false},
    {"reference behind the data",
     [](const RawFrame& request) {
         RawFrame reply = EchoReply(request);
         reply.Reference(TestSupport::RawInstance{}, 5);
         reply.references[0].offset += 8;
         return reply.Encode();
     },
     false},
};

TEST(CalleeMisbehaves, WrongReplyEndsItsLaneAndNothingElse)
{
    PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "raw", [](RawPeer& raw) {
        ServeLanes(raw, [](RawSocket& lane, const RawFrame& request) {
            lane.Send(WRONG_REPLIES[TestSupport::ReadAt<uint32_t>(request.data, 0)].bytes(request));
        });
    });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("raw");
    const Clock::time_point start = Clock::now();
    for (int32_t row = 0; row < static_cast<int32_t>(WRONG_REPLIES.size()); ++row) {
        const WrongReply& wrong = WRONG_REPLIES[static_cast<size_t>(row)];
        SCOPED_TRACE(wrong.name);
        const int first = Echo(object, row);
        EXPECT_EQ(first == TAVO::IPC_OK, wrong.firstCallSucceeds.value_or(first == TAVO::IPC_OK));
        EXPECT_NE(first, 1) << "a wrong answer was taken for the right one";
        EXPECT_NE(Echo(object, 0), 1) << "the next call got what was left over";
        EXPECT_EQ(Echo(object, 0), TAVO::IPC_OK);
    }
    EXPECT_TRUE(object->IsAlive());
    EXPECT_LT(Clock::now() - start, 8s * WRONG_REPLIES.size()) << "calls ran into their time-out";
}

TEST(CalleeMisbehaves, DescriptorsWithRepliesAreNeverOpenInTheCaller)
{
    PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "raw", [](RawPeer& raw) {
        ServeLanes(raw, [](RawSocket& lane, const RawFrame& request) {
            lane.SendWithDescriptors(EchoReply(request).Encode(), 1 + request.number % 253);
        });
    });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("raw");
    EXPECT_EQ(Echo(object), TAVO::IPC_OK);
    const size_t before = TestSupport::CountDescriptors(::getpid());
    for (int32_t round = 0; round < 1000; ++round) {
        ASSERT_EQ(Echo(object, round), TAVO::IPC_OK);
        ASSERT_LE(TestSupport::CountDescriptors(::getpid()), before);
    }
}

// A connection that breaks under a large request must not raise SIGPIPE, which ends a program that left it alone.
TEST(CalleeMisbehaves, LaneClosedUnderALargeRequestRaisesNoSignal)
{
    PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "raw", [](RawPeer& raw) {
        RawHello hello;
        for (int round = 0; round < 3; ++round) {
            RawSocket lane = raw.Accept(hello);
            lane.Receive(1000);
        }
    });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("raw");
    for (int round = 0; round < 3; ++round) {
        Call call(object, TestCode::ECHO);
        call.Text(std::string(8 << 20, 'x'));
        EXPECT_PRED1(IsConnectionError, call.Send());
    }
    struct sigaction disposition {};
    ::sigaction(SIGPIPE, nullptr, &disposition);
    EXPECT_EQ(disposition.sa_handler, SIG_DFL);
}

}  // namespace
}  // namespace TransportTest
