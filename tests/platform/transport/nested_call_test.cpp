// SPDX-License-Identifier: Apache-2.0
// Calls within calls: they end, however many are under way at once, or fail at once where threads run out.
#include "platform/transport/peer_fixture.h"
#include "tavo/ipc_threads.h"
#include "transport/object_gate.h"
#include "transport/outgoing_call.h"
#include "transport/worker_pool.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TAVO::IpcThreads;
using TestSupport::Clock;

constexpr auto SOON = 6s;  // well below the 8 s that a call waits for its answer

// Waits at the gate, then calls `target`.
class CallingBack : public TAVO::IPCObjectStub {
public:
    explicit CallingBack(const sptr<IRemoteObject>& target) : target_(target) {}
    int OnRemoteRequest(uint32_t, MessageParcel&, MessageParcel& reply, MessageOption&) override
    {
        World::Get().WaitAtGate();
        reply.WriteInt32(0);
        return Echo(target_);
    }

private:
    const sptr<IRemoteObject> target_;
};

class NestedCalls : public PeerFixture {
protected:
    // The levels below, as the partners count them.
    static int32_t Nest(const sptr<IRemoteObject>& theirs, const sptr<IRemoteObject>& ours, int32_t depth)
    {
        return Call(theirs, TestCode::NEST).Int(depth).Object(ours).SendForInt();
    }
};

TEST_F(NestedCalls, NestedCallsOfSixteenThreadsReturn)
{
    constexpr int THREADS = 16;
    constexpr int32_t DEEPEST = 4;
    const sptr<TestObject> shared = TAVO::MakeRef<TestObject>();
    const Clock::time_point start = Clock::now();
    for (const bool isShared : {false, true}) {  // every caller with two objects of its own, or two for all
        SCOPED_TRACE(isShared ? "one object on each side" : "objects of their own");
        std::atomic<int> right{0};
        Threads(THREADS, [this, isShared, &shared, &right](int) {
            const sptr<TestObject> ours = isShared ? shared : TAVO::MakeRef<TestObject>();
            const sptr<IRemoteObject> theirs = isShared ? object_ : MakeIn(object_);
            for (int32_t round = 0; round < 10; ++round) {
                const int32_t depth = 1 + round % DEEPEST;
                right += Nest(theirs, ours, depth) == depth;
            }
        });
        EXPECT_EQ(right, THREADS * 10);
    }
    EXPECT_LT(Clock::now() - start, SOON) << "calls waited for each other";
}

TEST_F(NestedCalls, CallsNestedDeeperThanTheThreadLimitFailAtOnce)
{
    const sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
    const Clock::time_point start = Clock::now();
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(Call(object_, TestCode::NEST).Int(300).Object(ours).Send(), TAVO::IPC_NO_RESOURCES);
        EXPECT_EQ(Nest(object_, ours, 50), 50);
    }
    EXPECT_LT(Clock::now() - start, SOON);
    EXPECT_LE(TestSupport::CountThreads(peer_.Pid()), IpcThreads::MAX_THREADS + 1 + 2) << "main, control, delivery";
}

// A handler that waits for a reply lets one other request of its object run. If it also waits for a reference to be
// acquired during that call, no second request may enter.
TEST(ObjectGate, WaitingHandlerAdmitsOneOtherRequest)
{
    using TAVO::Transport::ObjectGate;
    using TAVO::Transport::OutgoingCall;
    ObjectGate gate(false);
    const auto enters = [&gate] { return gate.EnterOrWait([] { return std::function<void()>([] {}); }); };
    for (int request = 0; request < ObjectGate::CONCURRENT; ++request) {
        ASSERT_TRUE(enters());
    }
    TAVO::Transport::WorkerPool workers([] { return true; });
    const TAVO::Transport::HandlerScope handler(gate, workers);
    {
        const OutgoingCall call;
        const OutgoingCall acquisition;
        EXPECT_TRUE(enters());
        EXPECT_FALSE(enters());
    }
    EXPECT_FALSE(enters()) << "the handler is back";
}

// The peer calls more objects of ours than there are workers, each of which calls back or within the process.
TEST_F(NestedCalls, CallsFromTheHandlersOfAllWorkersReturn)
{
    constexpr int WORKERS = static_cast<int>(IpcThreads::DEFAULT_WORKERS);
    for (const sptr<IRemoteObject>& target : {object_, sptr<IRemoteObject>(root_)}) {
        const Clock::time_point start = Clock::now();
        std::atomic<int> right{0};
        std::atomic<int> ended{0};
        std::thread gateKeeper([&ended] {
            EXPECT_TRUE(World::Get().AwaitWaiting(WORKERS));
            EXPECT_TRUE(TestSupport::WaitFor([&ended] {
                World::Get().OpenGate();  // the last one may come only now
                return ended == WORKERS + 1;
            }));
        });
        Threads(WORKERS + 1, [this, &target, &right, &ended](int) {
            right += Nest(MakeIn(object_), TAVO::MakeRef<CallingBack>(target), 1) == 1;
            ++ended;
        });
        gateKeeper.join();
        EXPECT_EQ(right, WORKERS + 1);
        EXPECT_LT(Clock::now() - start, SOON);
    }
}

}  // namespace
}  // namespace TransportTest
