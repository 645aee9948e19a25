// SPDX-License-Identifier: Apache-2.0
// In a forked child every operation fails at once, whatever the other threads of its parent were doing.
#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "platform/transport/peer_fixture.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TestSupport::Child;
using TestSupport::Clock;
using TestSupport::LinePipe;

// What the child of a process with live sessions tries; the number of the first thing that did not fail as it should.
int UseDeadLibrary(const sptr<IRemoteObject>& hub, sptr<IRemoteObject> last)
{
    const bool failsAsItShould[] = {
        TAVO::Transport::IsForkedChild(),
        Echo(hub) == TAVO::IPC_UNAVAILABLE,
        Call(hub, TestCode::NOTE).Int(-1).SendOneWay() == TAVO::IPC_UNAVAILABLE,
        TAVO::Transport::ConnectManager(Clock::now() + std::chrono::seconds(5)) == nullptr,
        !hub->AddDeathRecipient(TAVO::MakeRef<CountingRecipient>()),
        Echo(TAVO::MakeRef<TestObject>()) != TAVO::IPC_OK,  // it is served by a worker, and the child has none
    };
    last = nullptr;  // must give nothing back in the parent's name
    const auto* const wrong = std::find(std::begin(failsAsItShould), std::end(failsAsItShould), false);
    return wrong == std::end(failsAsItShould) ? 0 : static_cast<int>(wrong - failsAsItShould) + 1;
}

TEST(Fork, AThousandForkedChildrenFailAtOnceAndTheParentsCallsSucceed)
{
    constexpr int CALLERS = 3;
    const TestSupport::PrivateRuntimeDir dir;
    const Child hubProcess = StartPeer("hub");
    const sptr<IRemoteObject> hub = ConnectToHub();
    const sptr<IRemoteObject> object = MakeIn(hub);
    std::atomic<bool> isOver{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < CALLERS; ++caller) {
        callers.emplace_back([&, caller] {
            for (int32_t value = caller; !isOver; value += CALLERS) {
                failures += Echo(hub, value) != TAVO::IPC_OK;
                failures += Call(hub, TestCode::NOTE).Int(value).SendOneWay() == TAVO::IPC_BROKEN;
                failures += MakeIn(hub) == nullptr;  // takes and releases the platform's locks
            }
        });
    }
    for (int round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
        const sptr<IRemoteObject> passing = MakeIn(hub);
        Child child = Child::Fork([&](LinePipe&) { return UseDeadLibrary(hub, passing); });
        EXPECT_EQ(child.WaitForExit(), "exit 0") << "fork " << round;
    }
    isOver = true;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(Echo(object), TAVO::IPC_OK);
}

}  // namespace
}  // namespace TransportTest
