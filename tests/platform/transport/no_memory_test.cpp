// SPDX-License-Identifier: Apache-2.0
// A process whose control thread is out of memory still notices deaths and connections.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "os/threads.h"
#include "platform/transport/descriptor_limit.h"
#include "platform/transport/raw_callee.h"
#include "support/failing_memory.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::PrivateRuntimeDir;
using TestSupport::WaitFor;

bool IsControlThread()
{
    return TAVO::Transport::CurrentRole() == TAVO::Transport::ThreadRole::CONTROL;
}

TEST(ControlThreadWithoutMemory, NotifiesOfADeath)
{
    const PrivateRuntimeDir dir;
    ServeAsHub();
    Child peer = StartPeer("peer");
    const sptr<IRemoteObject> object = World::Get().Kept("peer");
    const sptr<CountingRecipient> recipient = CountingRecipient::Of(object);
    TestSupport::FailAllocationsOf(IsControlThread);
    peer.Kill();
    EXPECT_TRUE(WaitFor([&object] { return !object->IsAlive(); }));
    // The thread that notifies could not be started before; it needs no memory either.
    TestSupport::FailAllocationsOf(
        [] { return TAVO::Transport::CurrentRole() == TAVO::Transport::ThreadRole::DELIVERY; });
    EXPECT_TRUE(recipient->AwaitTold());
    TestSupport::FailAllocationsOf(nullptr);
}

// Its listener rests while there is no descriptor.
TEST(ControlThreadWithoutMemory, AcceptsAgainAfterwards)
{
    const PrivateRuntimeDir dir;
    Child client = Child::Fork([&dir](LinePipe& parent) {
        RawPeer raw(dir.Path());
        parent.Send(parent.Receive() && raw.Connect("manager").IsOpen() ? "connected" : "refused");
        return parent.Receive() ? 1 : 0;
    });
    ServeAsHub();
    RawPeer first(dir.Path());
    ASSERT_TRUE(first.OpenSession());
    {
        const NoDescriptorLeft full;
        TestSupport::FailAllocationsOf(IsControlThread);
        ASSERT_EQ(client.Ask("go"), "connected");
        ExpectIdle(::getpid(), [] { std::this_thread::sleep_for(1s); });
    }
    TestSupport::FailAllocationsOf(nullptr);
    RawPeer third(dir.Path());
    EXPECT_TRUE(third.OpenSession());
}

}  // namespace
}  // namespace TransportTest
