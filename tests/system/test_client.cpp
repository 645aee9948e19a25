// SPDX-License-Identifier: Apache-2.0
// A game that runs the commands of its stdin, line by line, and prints their outcome. It uses the facade only.
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "support/game_callbacks.h"
#include "support/process.h"
#include "veltra_server_client.h"

namespace {

using TAVO::Veltra::VeltraClient;

void CallForEver(const std::string& text)
{
    std::thread([text] {
        VeltraClient client;
        for (;;) {
            client.CallAuth(text);
        }
    }).detach();
}

TestSupport::LinePipe& Parent()
{
    static auto& parent = *new TestSupport::LinePipe(STDIN_FILENO);
    return parent;
}

// Whether the result of the subscription has been said; events wait for it, so that their lines come later.
std::atomic<bool> g_isAnswered{false};

// Takes an event silently, or says "event" to each; or says "called" and does not return: because it waits for ever, or
// because it registers where it is being called, which is forbidden.
int32_t TakeEvent(const std::string& how)
{
    if (how == "silently") {
        return 0;
    }
    g_isAnswered.wait(false);
    if (how == "counting") {
        Parent().Send("event");
        return 0;
    }
    Parent().Send("called");
    if (how == "registering") {
        VeltraClient().RegisterGameCallback(std::make_unique<TAVO::Veltra::EventFunction>([](auto&) { return 0; }), 2);
        Parent().Send("registered");
    }
    for (;;) {
        ::pause();
    }
}

void Subscribe(const std::string& how)
{
    Parent().Send(std::to_string(VeltraClient().RegisterGameCallback(
        std::make_unique<TAVO::Veltra::EventFunction>([how](auto&) { return TakeEvent(how); }), 1)));
    g_isAnswered = true;
    g_isAnswered.notify_all();
}

// Says how many samples a batch has.
void TakeSamples()
{
    Parent().Send(std::to_string(
        VeltraClient().StartGetGpuPerfInfo(0, std::make_unique<TAVO::Veltra::GpuFunction>([](auto& samples) {
                                               Parent().Send("samples " + std::to_string(samples.size()));
                                               return 0;
                                           }))));
}

}  // namespace

int main()
{
    TestSupport::LinePipe& parent = Parent();
    VeltraClient client;
    while (const auto line = parent.Receive(std::chrono::hours(1))) {
        const std::string word = line->substr(0, line->find(' '));
        const std::string rest = line->size() > word.size() ? line->substr(word.size() + 1) : "";
        if (word == "auth") {
            parent.Send(std::to_string(client.CallAuth(rest)));
        } else if (word == "play") {
            parent.Send(std::to_string(client.UpdateGameInfo(1, rest, 0)));
        } else if (word == "call-for-ever") {
            CallForEver(rest);
        } else if (word == "subscribe") {
            Subscribe(rest);
        } else if (word == "take-samples") {
            TakeSamples();
        } else if (word == "abort") {
            const rlimit noCore{0, 0};
            ::setrlimit(RLIMIT_CORE, &noCore);
            std::abort();
        } else if (word == "exit") {
            std::exit(4);
        } else if (word == "_exit") {
            ::_exit(5);
        }
    }
    return 0;
}
