// SPDX-License-Identifier: Apache-2.0
// A forked child holds copies of its parent's descriptors: neither the parent nor its peers are affected.
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "platform/transport/peer_fixture.h"
#include "platform/transport/raw_callee.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::Clock;
using TestSupport::LinePipe;

using ForkOfAPeer = PeerFixture;

// The descriptors of a killed process stay open in its child: only the pidfd of the process shows the death.
TEST_F(ForkOfAPeer, DeathOfTheParentIsNoticedAlthoughTheChildHoldsItsSockets)
{
    const sptr<CountingRecipient> recipient = CountingRecipient::Of(object_);
    std::thread caller([this] { EXPECT_PRED1(IsConnectionError, Call(object_, TestCode::WAIT).Send(30)); });
    EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
    const pid_t grandchild = std::stoi(peer_.Ask("fork-idle-child"));
    const Clock::time_point start = Clock::now();
    peer_.Kill();
    EXPECT_TRUE(recipient->AwaitTold());
    caller.join();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    EXPECT_EQ(::kill(grandchild, 0), 0) << "the child was to hold the sockets";
    ::kill(grandchild, SIGKILL);
}

TEST_F(ForkOfAPeer, ExitOfAForkedChildLeavesTheParentsSocket)
{
    const auto sockets = [this] {
        const std::filesystem::directory_iterator entries(dir_.Path() + "/p");
        return std::distance(begin(entries), end(entries));
    };
    ASSERT_EQ(KeepIn(object_, "ours", TAVO::MakeRef<TestObject>()), TAVO::IPC_OK);
    const auto before = sockets();
    Child child = Child::Fork([](LinePipe&) -> int { std::exit(3); });
    EXPECT_NE(child.WaitForExit(), "running");  // a sanitizer may change its exit status
    EXPECT_EQ(sockets(), before);
}

// A child of this process that holds all its descriptors and does nothing.
Child ForkIdleChild()
{
    return Child::Fork([](LinePipe& parent) { return parent.Receive(std::chrono::minutes(10)) ? 1 : 0; });
}

// The callee sees the end of a lane that its caller has closed. Returns which lane's end it did not see; 0: none.
int AwaitEndsOfLanes(RawPeer& raw)
{
    RawHello hello;
    const auto acceptWithRequest = [&raw, &hello](bool answers) {
        RawSocket lane = raw.Accept(hello);
        const auto request = lane.ReceiveFrame();
        return request && (!answers || lane.Send(EchoReply(*request).Encode())) ? std::move(lane) : RawSocket();
    };
    RawSocket timedOut = acceptWithRequest(true);
    RawSocket refused = acceptWithRequest(false);
    if (!timedOut.ReceiveFrame() || !timedOut.WaitForEnd()) {
        return 1;
    }
    raw.Control().Send(RawRecord{RawRecord::LANE_CLOSED, 0, hello.lane, 1}.Encode());
    return refused.WaitForEnd() ? 0 : 2;
}

TEST(ForkOfACaller, PeerNoticesClosedLanesAlthoughTheChildHoldsTheirSockets)
{
    const TestSupport::PrivateRuntimeDir dir;
    Child callee = ForkCallee(dir.Path(), "raw", [](RawPeer& raw) { ::_exit(AwaitEndsOfLanes(raw)); });
    ServeAsHub();
    ASSERT_TRUE(StartCallee(callee));
    const sptr<IRemoteObject> object = World::Get().Kept("raw");
    ASSERT_EQ(Echo(object), TAVO::IPC_OK);
    ASSERT_EQ(Call(object, TestCode::NOTE).SendOneWay(), TAVO::IPC_OK);
    const Child holder = ForkIdleChild();
    EXPECT_EQ(Call(object, TestCode::ECHO).Send(1), TAVO::IPC_TIMED_OUT);
    EXPECT_EQ(callee.WaitForExit(), "exit 0");
}

// The owner dies before its first session. Connecting to its socket still succeeds.
TEST(ForkOfAnOwner, DeathBeforeTheFirstSessionIsNoticedAlthoughTheChildHoldsTheSocket)
{
    const TestSupport::PrivateRuntimeDir dir;
    const Child hub = StartPeer("hub");
    Child owner = StartPeer("owner");
    const sptr<IRemoteObject> root = ConnectToHub();
    const pid_t grandchild = std::stoi(owner.Ask("fork-idle-child"));
    owner.Kill();
    ASSERT_EQ(owner.WaitForExit(), "signal 9");
    const Clock::time_point start = Clock::now();
    const sptr<IRemoteObject> object = FetchFrom(root, "owner");
    ASSERT_NE(object, nullptr);
    EXPECT_PRED1(IsConnectionError, Echo(object));
    EXPECT_TRUE(TestSupport::WaitFor([&object] { return !object->IsAlive(); }));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    EXPECT_EQ(::kill(grandchild, 0), 0) << "the child was to hold the sockets";
    ::kill(grandchild, SIGKILL);
}

TEST(StandardDescriptors, StayFreeInAHostThatClosedThem)
{
    const TestSupport::PrivateRuntimeDir dir;
    const Child hub = StartPeer("hub");
    Child host = Child::Fork([](LinePipe&) {
        for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            ::close(fd);
        }
        const sptr<IRemoteObject> root = ConnectToHub();
        if (KeepIn(root, "ours", TAVO::MakeRef<TestObject>()) != TAVO::IPC_OK ||
            Call(root, TestCode::NOTE).SendOneWay() != TAVO::IPC_OK || CallKept(root, "ours") != TAVO::IPC_OK) {
            return 1;
        }
        for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            if (::fcntl(fd, F_GETFD) != -1) {
                return 2;
            }
        }
        return 0;
    });
    EXPECT_EQ(host.WaitForExit(), "exit 0");
}

// Deliberate: not under the sanitizers. UBSan opens a pipe where it checks the type of an object, and a program that is
// started in that moment inherits both ends.
#ifndef TAVO_SANITIZED

// How many descriptors a program would find open that this process starts.
int CountInheritable(pid_t pid)
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fdinfo")) {
        std::ifstream info(entry.path());
        for (std::string word; info >> word;) {
            if (word == "flags:" && info >> word) {
                count += (std::stoi(word, nullptr, 8) & O_CLOEXEC) == 0;
            }
        }
    }
    return count;
}

TEST(Fork, ExecutedProgramInheritsNoDescriptor)
{
    const TestSupport::PrivateRuntimeDir dir;
    const Child plain = Child::Start({"/bin/cat"});
    ServeAsHub();
    Child first = StartPeer("first");
    Child second = StartPeer("second");
    EXPECT_EQ(first.Ask("call-all second"), "called");
    EXPECT_EQ(second.Ask("call-all first"), "called");
    for (const pid_t pid : {::getpid(), first.Pid(), second.Pid()}) {
        EXPECT_EQ(CountInheritable(pid), CountInheritable(plain.Pid()));
        EXPECT_GT(TestSupport::CountDescriptors(pid), static_cast<size_t>(CountInheritable(pid)));
    }
}

#endif

}  // namespace
}  // namespace TransportTest
