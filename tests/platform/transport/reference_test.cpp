// SPDX-License-Identifier: Apache-2.0
// References between processes: who keeps what alive, who is told of a death, and that nobody is left over.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "platform/transport/test_object.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::PrivateRuntimeDir;
using TestSupport::WaitFor;

// This process is the hub. At the end of a test, when its peers are gone, it holds as many descriptors as after the
// first peer that came and went.
class References : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = ServeAsHub();
        {
            const Child first = StartPeer("first");
            const sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
            ASSERT_EQ(Call(Kept("first"), TestCode::KEEP).Text("ours").Object(ours).Send(), TAVO::IPC_OK);
        }
        ASSERT_TRUE(WaitFor([] { return !Kept("first")->IsAlive(); }));
        ASSERT_TRUE(FlushDeliveries());
        World::Get().Forget("first");
        ASSERT_TRUE(WaitFor([] { return World::Get().liveObjects == 1; })) << "the root alone";
        baseObjects_ = World::Get().liveObjects;
        WaitFor([this] {
            const size_t before = baseDescriptors_;
            baseDescriptors_ = TestSupport::CountDescriptors(::getpid());
            return before == baseDescriptors_;
        });
    }

    void ExpectNothingLeft()
    {
        const pid_t self = ::getpid();
        EXPECT_TRUE(WaitFor([this, self] { return TestSupport::CountDescriptors(self) <= baseDescriptors_; }))
            << TestSupport::CountDescriptors(self) << " descriptors, " << baseDescriptors_ << " before";
        EXPECT_TRUE(WaitFor([this] { return World::Get().liveObjects == baseObjects_; }))
            << World::Get().liveObjects << " objects, " << baseObjects_ << " before";
    }

    static sptr<IRemoteObject> Kept(const std::string& name) { return World::Get().Kept(name); }
    // What ran on the delivery thread before now has come to its end.
    static bool FlushDeliveries()
    {
        auto isThrough = std::make_shared<std::atomic<bool>>(false);
        return TAVO::Transport::RunOnDeliveryThread([isThrough] { *isThrough = true; }) &&
               WaitFor([&isThrough] { return isThrough->load(); });
    }

    PrivateRuntimeDir dir_;
    sptr<TestObject> root_;
    int32_t baseObjects_ = 0;
    size_t baseDescriptors_ = 0;
};

TEST_F(References, EachRecipientIsToldOnceOfADeathAndWhatTheDeadHeldIsFreed)
{
    Child peer = StartPeer("peer");
    const sptr<IRemoteObject> world = Kept("peer");
    const sptr<IRemoteObject> other = MakeIn(world);
    std::vector<sptr<CountingRecipient>> recipients;
    for (int count = 0; count < 6; ++count) {
        recipients.push_back(TAVO::MakeRef<CountingRecipient>());
        ASSERT_TRUE((count < 4 ? world : other)->AddDeathRecipient(recipients.back()));
    }
    for (int count = 0; count < 10; ++count) {
        const sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
        ASSERT_EQ(Call(world, TestCode::KEEP).Text(std::to_string(count)).Object(ours).Send(), TAVO::IPC_OK);
    }
    EXPECT_EQ(World::Get().liveObjects, baseObjects_ + 10);
    peer = Child();
    for (const sptr<CountingRecipient>& recipient : recipients) {
        EXPECT_TRUE(WaitFor([&recipient] { return recipient->told == 1; }));
    }
    EXPECT_TRUE(FlushDeliveries());
    for (const sptr<CountingRecipient>& recipient : recipients) {
        EXPECT_EQ(recipient->told, 1);
    }
    ExpectNothingLeft();
}

TEST_F(References, TwoProcessesThatHoldEachOtherMayBothDie)
{
    Child left = StartPeer("left");
    Child right = StartPeer("right");
    ASSERT_EQ(Call(Kept("left"), TestCode::KEEP).Text("other").Object(Kept("right")).Send(), TAVO::IPC_OK);
    ASSERT_EQ(Call(Kept("right"), TestCode::KEEP).Text("other").Object(Kept("left")).Send(), TAVO::IPC_OK);
    EXPECT_EQ(Call(Kept("left"), TestCode::ECHO_KEPT).Text("other").SendForInt(), TAVO::IPC_OK);
    EXPECT_EQ(Call(Kept("right"), TestCode::ECHO_KEPT).Text("other").SendForInt(), TAVO::IPC_OK);
    left = Child();
    right = Child();
    EXPECT_TRUE(WaitFor([] { return !Kept("left")->IsAlive() && !Kept("right")->IsAlive(); }));
    ExpectNothingLeft();
}

TEST_F(References, ACycleOverTwoProcessesIsFreedWhenBothSidesLetGo)
{
    const Child peer = StartPeer("peer");
    const sptr<IRemoteObject> world = Kept("peer");
    const int32_t liveThere = Call(world, TestCode::LIVE).SendForInt();
    sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
    sptr<IRemoteObject> theirs = MakeIn(world);
    ASSERT_EQ(Call(theirs, TestCode::ADOPT).Object(ours).Send(), TAVO::IPC_OK);
    ASSERT_EQ(Call(ours, TestCode::ADOPT).Object(theirs).Send(), TAVO::IPC_OK);
    EXPECT_EQ(Call(world, TestCode::LIVE).SendForInt(), liveThere + 1);
    EXPECT_EQ(Call(theirs, TestCode::ABANDON).Send(), TAVO::IPC_OK);
    EXPECT_EQ(Call(ours, TestCode::ABANDON).Send(), TAVO::IPC_OK);
    ours = nullptr;
    theirs = nullptr;
    EXPECT_TRUE(WaitFor([this] { return World::Get().liveObjects == baseObjects_; }));
    EXPECT_TRUE(WaitFor([&world, liveThere] { return Call(world, TestCode::LIVE).SendForInt() == liveThere; }));
}

TEST_F(References, AnObjectOutlivesTheProcessThatPassedItOn)
{
    Child owner = StartPeer("owner");
    Child passer = StartPeer("passer");
    Child user = StartPeer("user");
    ASSERT_EQ(Call(Kept("passer"), TestCode::KEEP).Text("object").Object(MakeIn(Kept("owner"))).Send(), TAVO::IPC_OK);
    ASSERT_EQ(Call(Kept("user"), TestCode::KEEP).Text("passer").Object(Kept("passer")).Send(), TAVO::IPC_OK);
    {
        const sptr<IRemoteObject> passed = Call(Kept("passer"), TestCode::FETCH).Text("object").SendForObject();
        ASSERT_EQ(Call(Kept("user"), TestCode::KEEP).Text("object").Object(passed).Send(), TAVO::IPC_OK);
    }
    ASSERT_EQ(Call(Kept("user"), TestCode::WATCH).Text("object").SendForInt(), 1);
    passer.Kill();
    EXPECT_EQ(passer.WaitForExit(), "signal 9");
    for (int count = 0; count < 10; ++count) {
        EXPECT_EQ(Call(Kept("user"), TestCode::ECHO_KEPT).Text("object").SendForInt(), TAVO::IPC_OK);
    }
    EXPECT_EQ(Call(Kept("user"), TestCode::NOTICES).SendForInt(), 0);
    owner.Kill();
    EXPECT_TRUE(WaitFor([] { return Call(Kept("user"), TestCode::NOTICES).SendForInt() == 1; }));
    EXPECT_EQ(Call(Kept("user"), TestCode::ECHO_KEPT).Text("object").SendForInt(), TAVO::IPC_DEAD_OBJECT);
}

TEST_F(References, AnObjectThatComesHomeIsTheLocalOne)
{
    const Child first = StartPeer("first");
    const Child second = StartPeer("second");
    const sptr<IRemoteObject> ours = TAVO::MakeRef<TestObject>();
    ASSERT_EQ(Call(Kept("first"), TestCode::KEEP).Text("hub's").Object(ours).Send(), TAVO::IPC_OK);
    EXPECT_EQ(Call(Kept("first"), TestCode::FETCH).Text("hub's").SendForObject(), ours);
    // Over a third process, and the one proxy of another's object likewise.
    ASSERT_EQ(Call(Kept("second"), TestCode::KEEP).Text("first").Object(Kept("first")).Send(), TAVO::IPC_OK);
    const sptr<IRemoteObject> firstAgain = Call(Kept("second"), TestCode::FETCH).Text("first").SendForObject();
    EXPECT_EQ(firstAgain, Kept("first"));
    EXPECT_EQ(Call(firstAgain, TestCode::FETCH).Text("hub's").SendForObject(), ours);
}

TEST_F(References, ReleaseRacingWithCallsNeverReachesAnotherObject)
{
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 500;
    const Child peer = StartPeer("peer");
    const sptr<IRemoteObject> world = Kept("peer");
    const int32_t liveThere = Call(world, TestCode::LIVE).SendForInt();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([world, name = std::to_string(thread % 2)] {  // two threads to a name: both hold one proxy
            for (int round = 0; round < ROUNDS; ++round) {
                const sptr<IRemoteObject> made = MakeIn(world);
                const int32_t number = Call(made, TestCode::NUMBER).SendForInt();
                EXPECT_GT(number, 0);
                EXPECT_EQ(Call(world, TestCode::KEEP).Text(name).Object(made).Send(), TAVO::IPC_OK);
                const sptr<IRemoteObject> kept = Call(world, TestCode::FETCH).Text(name).SendForObject();
                EXPECT_GT(Call(kept, TestCode::NUMBER).SendForInt(), 0);
                EXPECT_NE(Call(kept, TestCode::NOTE).Int(round).SendOneWay(), TAVO::IPC_DEAD_OBJECT);
                EXPECT_EQ(Call(made, TestCode::NUMBER).SendForInt(), number);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Call(world, TestCode::FORGET).Text("0").Send();
    Call(world, TestCode::FORGET).Text("1").Send();
    EXPECT_TRUE(WaitFor([&world, liveThere] { return Call(world, TestCode::LIVE).SendForInt() == liveThere; }));
}

// References of all kinds, so often that a count which is off by one in a thousand shows.
TEST_F(References, ObjectsPassedAndReleasedCountlessTimesAreFreedInTheEnd)
{
    constexpr int ROUNDS = 100000;
    constexpr std::chrono::seconds LONGEST{20};  // a sanitizer gets through fewer
    const Child peer = StartPeer("peer");
    const sptr<IRemoteObject> world = Kept("peer");
    const int32_t liveThere = Call(world, TestCode::LIVE).SendForInt();
    sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
    ASSERT_EQ(Call(world, TestCode::KEEP).Text("theirs").Object(MakeIn(world)).Send(), TAVO::IPC_OK);
    const int32_t number =
        Call(Call(world, TestCode::FETCH).Text("theirs").SendForObject(), TestCode::NUMBER).SendForInt();
    const TestSupport::Clock::time_point end = TestSupport::Clock::now() + LONGEST;
    for (int round = 0; round < ROUNDS && TestSupport::Clock::now() < end; ++round) {
        ASSERT_EQ(Call(world, TestCode::ADOPT).Object(ours).Send(), TAVO::IPC_OK);
        const sptr<IRemoteObject> theirs = Call(world, TestCode::FETCH).Text("theirs").SendForObject();
        if (round % 100 == 0) {
            ASSERT_EQ(Call(theirs, TestCode::NUMBER).SendForInt(), number);
            ASSERT_EQ(Call(theirs, TestCode::NOTE).Int(round).SendOneWay(), TAVO::IPC_OK);
        }
        if (round % 3 == 0) {  // it goes at once, or with all that were received since
            ASSERT_EQ(Call(world, TestCode::ABANDON).Send(), TAVO::IPC_OK);
        }
    }
    EXPECT_EQ(Call(world, TestCode::ABANDON).Send(), TAVO::IPC_OK);
    ours = nullptr;
    EXPECT_EQ(Call(world, TestCode::FORGET).Text("theirs").Send(), TAVO::IPC_OK);
    EXPECT_TRUE(WaitFor([this] { return World::Get().liveObjects == baseObjects_; }));
    EXPECT_TRUE(WaitFor([&world, liveThere] { return Call(world, TestCode::LIVE).SendForInt() == liveThere; }));
}

TEST_F(References, OwnerThatDiedBeforeTheParcelIsReadYieldsADeadProxy)
{
    Child owner = StartPeer("owner");
    const Child keeper = StartPeer("keeper");
    const sptr<IRemoteObject> world = Kept("owner");
    const sptr<CountingRecipient> witness = TAVO::MakeRef<CountingRecipient>();
    ASSERT_TRUE(world->AddDeathRecipient(witness));
    ASSERT_EQ(Call(Kept("keeper"), TestCode::KEEP).Text("object").Object(MakeIn(world)).Send(), TAVO::IPC_OK);
    Call unread(Kept("keeper"), TestCode::FETCH);
    ASSERT_EQ(unread.Text("object").Send(), TAVO::IPC_OK);
    owner.Kill();
    ASSERT_TRUE(WaitFor([&witness] { return witness->told == 1; }));
    // One parcel that arrived while the owner lived, one that comes after its death.
    Call late(Kept("keeper"), TestCode::FETCH);
    ASSERT_EQ(late.Text("object").Send(), TAVO::IPC_OK);
    for (Call* call : {&unread, &late}) {
        const sptr<IRemoteObject> object = call->reply.ReadRemoteObject();
        ASSERT_NE(object, nullptr);
        EXPECT_EQ(Echo(object), TAVO::IPC_DEAD_OBJECT);
        EXPECT_FALSE(object->IsAlive());
        EXPECT_FALSE(object->AddDeathRecipient(TAVO::MakeRef<CountingRecipient>()));
    }
}

TEST_F(References, UnreadReferencesAreGivenBackWithTheirParcel)
{
    const Child peer = StartPeer("peer");
    const sptr<IRemoteObject> world = Kept("peer");
    const int32_t liveThere = Call(world, TestCode::LIVE).SendForInt();
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(Call(world, TestCode::MAKE).Int(0).Send(), TAVO::IPC_OK);
        Call ignored(world, TestCode::ECHO);  // nobody reads the reference there
        EXPECT_EQ(ignored.Object(TAVO::MakeRef<TestObject>()).Send(), TAVO::IPC_OK);
        Call unknown(world, static_cast<TestCode>(4711));
        EXPECT_EQ(unknown.Object(TAVO::MakeRef<TestObject>()).Send(), TAVO::IPC_UNKNOWN_CODE);
    }
    EXPECT_TRUE(WaitFor([&world, liveThere] { return Call(world, TestCode::LIVE).SendForInt() == liveThere; }));
    EXPECT_TRUE(WaitFor([this] { return World::Get().liveObjects == baseObjects_; }));
}

}  // namespace
}  // namespace TransportTest
