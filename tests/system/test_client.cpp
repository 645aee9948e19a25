// SPDX-License-Identifier: Apache-2.0
// A game that does what its stdin says, line by line, and says what came of it. It knows the facade only.
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

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

}  // namespace

int main()
{
    TestSupport::LinePipe parent(STDIN_FILENO, STDOUT_FILENO);
    VeltraClient client;
    while (const auto line = parent.Hear(std::chrono::hours(1))) {
        const std::string word = line->substr(0, line->find(' '));
        const std::string rest = line->size() > word.size() ? line->substr(word.size() + 1) : "";
        if (word == "auth") {
            parent.Say(std::to_string(client.CallAuth(rest)));
        } else if (word == "play") {
            parent.Say(std::to_string(client.UpdateGameInfo(1, rest, 0)));
        } else if (word == "call-for-ever") {
            CallForEver(rest);
        } else if (word == "exit") {
            std::exit(4);
        } else if (word == "_exit") {
            ::_exit(5);
        }
    }
    return 0;
}
