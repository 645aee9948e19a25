// SPDX-License-Identifier: Apache-2.0
// A game in which one allocation fails: the one whose number from the first operation on is its argument.
#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "support/game_callbacks.h"
#include "veltra_server_client.h"

namespace {

std::atomic<long> g_left{0};  // until one fails; 0: none does
std::atomic<bool> g_hasFailed{false};

void* Allocate(size_t size) noexcept
{
    if (g_left > 0 && g_left.fetch_sub(1) == 1) {
        g_hasFailed = true;
        return nullptr;
    }
    return std::malloc(size != 0 ? size : 1);
}

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

void* operator new(size_t size)
{
    if (void* const memory = Allocate(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

// Exit status 0: it failed, and did no lasting harm; 1: harm; 2: there were not so many.
int main(int, char** arguments)
{
    VeltraClient client;
    g_left = std::atol(arguments[1]);
    TryEverything(client);
    g_left = 0;
    if (client.CallAuth("after") != 0) {
        return 1;
    }
    return g_hasFailed ? 0 : 2;
}
