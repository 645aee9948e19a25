// SPDX-License-Identifier: Apache-2.0
// References between processes: who keeps what alive, and that nothing is left over.
#include "platform/transport/peer_fixture.h"
#include "platform/transport/raw_callee.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::WaitFor;

// At the end of a test both sides have the objects that they had at first.
class References : public PeerFixture {
protected:
    void SetUp() override
    {
        PeerFixture::SetUp();
        liveThere_ = LiveThere();
    }
    void TearDown() override
    {
        EXPECT_TRUE(WaitFor([] { return World::Get().liveObjects == 1; })) << World::Get().liveObjects << " objects";
        EXPECT_TRUE(WaitFor([this] { return LiveThere() == liveThere_; })) << LiveThere() << " objects there";
    }
    int32_t LiveThere() { return Call(object_, TestCode::LIVE).SendForInt(); }

private:
    int32_t liveThere_ = 0;
};

TEST_F(References, ObjectsHeldByDeadProcessesAreFreed)
{
    {
        const Child left = StartPeer("left");
        const Child right = StartPeer("right");
        ASSERT_EQ(KeepIn(Kept("left"), "other", MakeIn(Kept("right"))), TAVO::IPC_OK);
        ASSERT_EQ(KeepIn(Kept("right"), "other", MakeIn(Kept("left"))), TAVO::IPC_OK);
        ASSERT_EQ(KeepIn(Kept("right"), "ours", TAVO::MakeRef<TestObject>()), TAVO::IPC_OK);
        ASSERT_EQ(KeepIn(Kept("right"), "of a third", MakeIn(object_)), TAVO::IPC_OK);
        EXPECT_EQ(CallKept(Kept("left"), "other"), TAVO::IPC_OK);
        EXPECT_EQ(CallKept(Kept("right"), "other"), TAVO::IPC_OK);
        EXPECT_EQ(World::Get().liveObjects, 2);
    }
    EXPECT_TRUE(WaitFor([] { return !Kept("left")->IsAlive() && !Kept("right")->IsAlive(); }));
}

// Small ones fill the socket, so that the next is refused whole, after its references have been counted.
TEST_F(References, RefusedOneWayRequestReleasesItsReferences)
{
    peer_.Stop();
    while (Call(object_, TestCode::NOTE).Int(1).SendOneWay() == TAVO::IPC_OK) {}
    EXPECT_EQ(Call(object_, TestCode::KEEP).Text("it").Object(TAVO::MakeRef<TestObject>()).SendOneWay(),
              TAVO::IPC_QUEUE_FULL);
    EXPECT_TRUE(WaitFor([] { return World::Get().liveObjects == 1; }));
    peer_.Continue();
}

// The receiver cannot acknowledge references whose owner does not answer it. The sender keeps a record of each message.
TEST(UnacknowledgedReferences, UnacknowledgedReferencesAreRefusedBeyondALimit)
{
    constexpr int LIMIT = 4096;
    const TestSupport::PrivateRuntimeDir dir;
    Child silent = ForkCallee(dir.Path(), "silent", [](RawPeer&) { ::pause(); });
    ServeAsHub();
    const Child peer = StartPeer("peer");
    ASSERT_TRUE(StartCallee(silent));
    const sptr<IRemoteObject> receiver = World::Get().Kept("peer");
    const sptr<IRemoteObject> passed = World::Get().Kept("silent");
    for (int message = 0; message < LIMIT; ++message) {
        ASSERT_EQ(KeepIn(receiver, "it", passed), TAVO::IPC_OK) << message;
    }
    EXPECT_EQ(KeepIn(receiver, "it", passed), TAVO::IPC_QUEUE_FULL);
    EXPECT_EQ(Call(receiver, TestCode::KEEP).Text("it").Object(passed).SendOneWay(), TAVO::IPC_QUEUE_FULL);
    EXPECT_EQ(Echo(receiver), TAVO::IPC_OK);
    silent.Kill();
    EXPECT_TRUE(WaitFor([&] { return KeepIn(receiver, "it", passed) == TAVO::IPC_OK; }));
}

// The user has met neither of the others before: the hub is a process of its own.
TEST(PassedOn, ObjectOutlivesTheProcessThatPassedIt)
{
    const TestSupport::PrivateRuntimeDir dir;
    const Child hub = StartPeer("hub");
    Child owner = StartPeer("owner");
    Child passer = StartPeer("passer");
    const sptr<IRemoteObject> root = ConnectToHub();
    const sptr<IRemoteObject> passing = FetchFrom(root, "passer");
    ASSERT_EQ(KeepIn(passing, "object", MakeIn(FetchFrom(root, "owner"))), TAVO::IPC_OK);
    const sptr<IRemoteObject> object = FetchFrom(passing, "object");
    ASSERT_NE(object, nullptr);
    const sptr<CountingRecipient> ofPasser = CountingRecipient::Of(passing);
    const sptr<CountingRecipient> ofOwner = CountingRecipient::Of(object);
    passer.Kill();
    EXPECT_TRUE(ofPasser->AwaitTold());
    for (int count = 0; count < 10; ++count) {
        EXPECT_EQ(Echo(object), TAVO::IPC_OK);
    }
    EXPECT_EQ(ofOwner->told, 0);
    owner.Kill();
    EXPECT_TRUE(ofOwner->AwaitTold());
    EXPECT_EQ(Echo(object), TAVO::IPC_DEAD_OBJECT);
}

// The owner learns of the new holder and of the death of the only other one at the same time.
TEST_F(References, ReceiverHoldsAnObjectBeforeItsOwnerAnswers)
{
    Child owner = StartPeer("owner");
    Child passer = StartPeer("passer");
    const Child user = StartPeer("user");
    ASSERT_EQ(KeepIn(Kept("owner"), "passer", Kept("passer")), TAVO::IPC_OK);
    ASSERT_EQ(HandOn(Kept("owner"), "object", Kept("passer")), TAVO::IPC_OK);
    owner.Stop();
    EXPECT_EQ(HandOn(Kept("passer"), "object", Kept("user")), TAVO::IPC_OK);
    passer.Kill();
    passer.WaitForExit();
    owner.Continue();
    EXPECT_TRUE(WaitFor([] { return CallKept(Kept("owner"), "passer") == TAVO::IPC_DEAD_OBJECT; }));
    EXPECT_EQ(CallKept(Kept("user"), "object"), TAVO::IPC_OK);
}

TEST_F(References, ReturnedObjectIsTheLocalObject)
{
    const Child second = StartPeer("second");
    const sptr<IRemoteObject> ours = TAVO::MakeRef<TestObject>();
    ASSERT_EQ(KeepIn(object_, "hub's", ours), TAVO::IPC_OK);
    EXPECT_EQ(FetchFrom(object_, "hub's"), ours);
    // Over a third process, and the one proxy of another's object likewise.
    ASSERT_EQ(KeepIn(Kept("second"), "first", object_), TAVO::IPC_OK);
    const sptr<IRemoteObject> firstAgain = FetchFrom(Kept("second"), "first");
    EXPECT_EQ(firstAgain, object_);
    EXPECT_EQ(FetchFrom(firstAgain, "hub's"), ours);
    EXPECT_EQ(KeepIn(object_, "hub's", nullptr), TAVO::IPC_OK);
}

TEST_F(References, CallsDuringReleasesNeverReachAnotherObject)
{
    Threads(4, [this](int thread) {
        const std::string name = std::to_string(thread % 2);  // two threads to a name: both hold one proxy
        for (int round = 0; round < 500; ++round) {
            const sptr<IRemoteObject> made = MakeIn(object_);
            const int32_t number = Call(made, TestCode::NUMBER).SendForInt();
            EXPECT_GT(number, 0);
            EXPECT_EQ(KeepIn(object_, name, made), TAVO::IPC_OK);
            const sptr<IRemoteObject> kept = FetchFrom(object_, name);
            EXPECT_GT(Call(kept, TestCode::NUMBER).SendForInt(), 0);
            EXPECT_NE(Call(kept, TestCode::NOTE).Int(round).SendOneWay(), TAVO::IPC_DEAD_OBJECT);
            EXPECT_EQ(Call(made, TestCode::NUMBER).SendForInt(), number);
        }
    });
    KeepIn(object_, "0", nullptr);
    KeepIn(object_, "1", nullptr);
}

// References of all kinds, so often that a count which is off by one in a thousand shows.
TEST_F(References, ObjectsPassedAHundredThousandTimesAreFreed)
{
    constexpr int ROUNDS = 100000;
    constexpr std::chrono::seconds LONGEST{20};  // a sanitizer gets through fewer
    const sptr<TestObject> ours = TAVO::MakeRef<TestObject>();
    ASSERT_EQ(KeepIn(object_, "theirs", MakeIn(object_)), TAVO::IPC_OK);
    const int32_t number = Call(FetchFrom(object_, "theirs"), TestCode::NUMBER).SendForInt();
    const TestSupport::Clock::time_point end = TestSupport::Clock::now() + LONGEST;
    for (int round = 0; round < ROUNDS && TestSupport::Clock::now() < end; ++round) {
        ASSERT_EQ(KeepIn(object_, "ours", ours), TAVO::IPC_OK);
        const sptr<IRemoteObject> theirs = FetchFrom(object_, "theirs");
        if (round % 100 == 0) {
            ASSERT_EQ(Call(theirs, TestCode::NUMBER).SendForInt(), number);
            ASSERT_EQ(Call(theirs, TestCode::NOTE).Int(round).SendOneWay(), TAVO::IPC_OK);
        }
        if (round % 3 == 0) {  // it goes at once, or with all that were received since
            ASSERT_EQ(KeepIn(object_, "ours", nullptr), TAVO::IPC_OK);
        }
    }
    EXPECT_EQ(KeepIn(object_, "ours", nullptr), TAVO::IPC_OK);
    EXPECT_EQ(KeepIn(object_, "theirs", nullptr), TAVO::IPC_OK);
}

TEST_F(References, ReferenceToADeadOwnerReadsAsADeadProxy)
{
    Child owner = StartPeer("owner");
    const sptr<CountingRecipient> witness = CountingRecipient::Of(Kept("owner"));
    ASSERT_EQ(KeepIn(object_, "object", MakeIn(Kept("owner"))), TAVO::IPC_OK);
    Call unread(object_, TestCode::FETCH);
    ASSERT_EQ(unread.Text("object").Send(), TAVO::IPC_OK);
    owner.Kill();
    ASSERT_TRUE(witness->AwaitTold());
    // One parcel that arrived while the owner lived, one that comes after its death.
    Call late(object_, TestCode::FETCH);
    ASSERT_EQ(late.Text("object").Send(), TAVO::IPC_OK);
    for (Call* call : {&unread, &late}) {
        const sptr<IRemoteObject> object = call->reply.ReadRemoteObject();
        ASSERT_NE(object, nullptr);
        EXPECT_EQ(Echo(object), TAVO::IPC_DEAD_OBJECT);
        EXPECT_FALSE(object->IsAlive());
        EXPECT_FALSE(object->AddDeathRecipient(TAVO::MakeRef<CountingRecipient>()));
    }
}

TEST_F(References, UnreadReferencesAreReleasedWithTheirParcel)
{
    for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(Call(object_, TestCode::MAKE).Int(0).Send(), TAVO::IPC_OK);
        Call ignored(object_, TestCode::ECHO);  // the reference is not read there
        EXPECT_EQ(ignored.Object(TAVO::MakeRef<TestObject>()).Send(), TAVO::IPC_OK);
        Call unknown(object_, static_cast<TestCode>(4711));
        EXPECT_EQ(unknown.Object(TAVO::MakeRef<TestObject>()).Send(), TAVO::IPC_UNKNOWN_CODE);
    }
}

}  // namespace
}  // namespace TransportTest
