// SPDX-License-Identifier: Apache-2.0
// A process whose control thread is out of memory notices deaths and connections all the same.
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "platform/transport/control_memory.h"
#include "platform/transport/descriptor_limit.h"
#include "platform/transport/raw_callee.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::PrivateRuntimeDir;
using TestSupport::WaitFor;

TEST(ControlThreadWithoutMemory, NotifiesOfADeath)
{
    const PrivateRuntimeDir dir;
    ServeAsHub();
    Child peer = StartPeer("peer");
    const sptr<IRemoteObject> object = World::Get().Kept("peer");
    const sptr<CountingRecipient> recipient = CountingRecipient::Of(object);
    g_noMemoryForControl = true;
    peer.Kill();
    EXPECT_TRUE(WaitFor([&object] { return !object->IsAlive(); }));
    g_noMemoryForControl = false;  // the thread that notifies could not be started before
    EXPECT_TRUE(recipient->AwaitTold());
}

// Its listener rests while there is no descriptor.
TEST(ControlThreadWithoutMemory, AcceptsAgainAfterwards)
{
    const PrivateRuntimeDir dir;
    Child client = Child::Fork([&dir](LinePipe& parent) {
        RawPeer raw(dir.Path());
        parent.Say(parent.Hear() && raw.Connect("manager").IsOpen() ? "connected" : "refused");
        return parent.Hear() ? 1 : 0;
    });
    ServeAsHub();
    RawPeer first(dir.Path());
    ASSERT_TRUE(first.OpenSession());
    {
        const NoDescriptorLeft full;
        g_noMemoryForControl = true;
        ASSERT_EQ(client.Ask("go"), "connected");
        ExpectIdle(::getpid(), [] { std::this_thread::sleep_for(1s); });
    }
    g_noMemoryForControl = false;
    RawPeer third(dir.Path());
    EXPECT_TRUE(third.OpenSession());
}

}  // namespace
}  // namespace TransportTest
