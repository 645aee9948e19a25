// SPDX-License-Identifier: Apache-2.0
// A game in which one allocation fails: the one whose number from the first operation on is its argument.
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "support/failing_memory.h"
#include "support/game_callbacks.h"
#include "veltra_server_client.h"

namespace {

using namespace TAVO::Veltra;

void TryEverything(VeltraClient& client)
{
    const auto attempt = [](const auto& operation) {
        try {
            operation();
        } catch (const std::bad_alloc&) {  // of an argument
        }
    };
    attempt([&] { client.CallAuth("a text that is too long to be kept within a string"); });
    attempt([&] { client.GetDeviceInfo({}); });
    attempt([&] { client.SyncAppType("app", 1); });
    attempt([&] { client.RegisterGameCallback(std::make_unique<EventFunction>([](auto&) { return 0; }), 1); });
    attempt([&] {
        GameInfo info;
        client.ReportGameEvent(info);
    });
    attempt([&] { client.UnRegisterGameCallback(1); });
    attempt([&] {
        GameState state;
        client.QueryGameState(state);
    });
}

}  // namespace

// Exit status 0: it failed, and did no lasting harm; 1: harm; 2: there were not so many.
int main(int, char** arguments)
{
    VeltraClient client;
    TestSupport::FailAllocation(std::atol(arguments[1]));
    TryEverything(client);
    TestSupport::FailAllocation(0);
    if (client.CallAuth("after") != 0) {
        return 1;
    }
    return TestSupport::HasAllocationFailed() ? 0 : 2;
}
