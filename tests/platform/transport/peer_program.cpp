// SPDX-License-Identifier: Apache-2.0
// A process for transport tests: the hub, or a peer whose object the hub keeps. It obeys lines from stdin.
#include <unistd.h>

#include <sstream>
#include <string>

#include "platform/transport/test_object.h"

namespace {

using namespace TransportTest;

// A child that holds all the descriptors of this process and does nothing, until it is killed.
std::string ForkIdleChild()
{
    const pid_t child = ::fork();
    if (child == 0) {
        for (;;) {
            ::pause();
        }
    }
    return std::to_string(child);
}

// The first call of each side at the same time as the other's: everybody calls the object of everybody else.
std::string CallAll(const sptr<IRemoteObject>& hub, std::istringstream& names)
{
    for (std::string name; names >> name;) {
        if (const int status = Echo(FetchFrom(hub, name)); status != TAVO::IPC_OK) {
            return TAVO::IpcStatusText(status);
        }
    }
    return "called";
}

std::string Obey(const std::string& line, const sptr<IRemoteObject>& hub)
{
    std::istringstream words(line);
    std::string verb;
    words >> verb;
    if (verb == "await-waiting") {
        int handlers = 0;
        words >> handlers;
        return World::Get().AwaitWaiting(handlers) ? "waiting" : "nobody";
    }
    return verb == "call-all" ? CallAll(hub, words) : ForkIdleChild();
}

}  // namespace

int main(int, char** argv)
{
    const std::string name = argv[1];
    TestSupport::LinePipe parent(STDIN_FILENO);
    sptr<IRemoteObject> hub;
    sptr<IRemoteObject> self;
    if (name == "hub") {
        self = ServeAsHub();
    } else {
        hub = ConnectToHub();
        self = TAVO::MakeRef<TestObject>();
        if (KeepIn(hub, name, self) != TAVO::IPC_OK) {
            return 1;
        }
    }
    parent.Send("ready");
    while (const auto line = parent.Receive(std::chrono::minutes(10))) {
        parent.Send(Obey(*line, hub));
    }
    return 0;
}
