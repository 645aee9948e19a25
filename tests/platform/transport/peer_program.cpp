// SPDX-License-Identifier: Apache-2.0
// A process for transport tests: the hub, or a peer whose object the hub keeps. It obeys lines from stdin.
#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/transport/test_object.h"

namespace {

using namespace TransportTest;
using TestSupport::LinePipe;

// "fds 0>TARGET 1>TARGET ...", what the descriptors lead to; pipes and files of whoever started us are among them.
std::string ListDescriptors()
{
    std::string list = "fds";
    DIR* dir = ::opendir("/proc/self/fd");
    while (const dirent* entry = ::readdir(dir)) {
        const int fd = std::atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd > STDERR_FILENO && fd != ::dirfd(dir)) {
            char target[256] = "";
            const ssize_t length = ::readlinkat(::dirfd(dir), entry->d_name, target, sizeof(target) - 1);
            list += ' ' + std::string(target, length > 0 ? static_cast<size_t>(length) : 0);
        }
    }
    ::closedir(dir);
    return list;
}

// What a program that this process starts finds open.
std::string DescriptorsAfterExec()
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return "no pipe";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        ::execl("/proc/self/exe", "transport_peer", "list-descriptors", nullptr);
        ::_exit(127);
    }
    ::close(ends[1]);
    std::string line = LinePipe(ends[0], -1).Hear().value_or("silence");
    ::waitpid(child, nullptr, 0);
    return line;
}

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

// A call to the hub that is under way while the process ends; its object watches the hub and is kept there.
std::string CallInBackground(const sptr<IRemoteObject>& hub, const std::string& name)
{
    hub->AddDeathRecipient(TAVO::MakeRef<CountingRecipient>());
    if (Call(hub, TestCode::KEEP).Text(name + ".more").Object(TAVO::MakeRef<TestObject>()).Send() != TAVO::IPC_OK) {
        return "cannot reach the hub";
    }
    std::thread([hub] { Call(hub, TestCode::WAIT).Send(); }).detach();
    return "calling";
}

std::string Obey(const std::string& line, const sptr<IRemoteObject>& hub, const std::string& name)
{
    if (line.rfind("await-waiting ", 0) == 0) {
        return World::Get().AwaitWaiting(std::stoi(line.substr(14))) ? "waiting" : "nobody";
    }
    if (line == "descriptors-after-exec") {
        return DescriptorsAfterExec();
    }
    if (line == "fork-idle-child") {
        return ForkIdleChild();
    }
    if (line == "call-in-background") {
        return CallInBackground(hub, name);
    }
    if (line == "_exit") {
        ::_exit(3);
    }
    if (line == "abort") {
        std::abort();
    }
    if (line == "exit") {
        std::exit(4);
    }
    return "what?";
}

// The first call of each side at the same time as the other's: everybody calls the object of everybody else.
std::string CallAll(const sptr<IRemoteObject>& hub, const std::string& names)
{
    size_t from = 0;
    while (from < names.size()) {
        const size_t to = std::min(names.find(' ', from), names.size());
        const sptr<IRemoteObject> other =
            Call(hub, TestCode::FETCH).Text(names.substr(from, to - from)).SendForObject();
        if (const int status = Echo(other); status != TAVO::IPC_OK) {
            return TAVO::IpcStatusText(status);
        }
        from = to + 1;
    }
    return "called";
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string name = argc > 1 ? argv[1] : "";
    if (name == "list-descriptors") {
        std::puts(ListDescriptors().c_str());
        return 0;
    }
    LinePipe parent(STDIN_FILENO, STDOUT_FILENO);
    sptr<IRemoteObject> hub;
    sptr<IRemoteObject> self;
    if (name == "hub") {
        self = ServeAsHub();
    } else {
        hub = ConnectToHub();
        self = TAVO::MakeRef<TestObject>();
        if (hub == nullptr || Call(hub, TestCode::KEEP).Text(name).Object(self).Send() != TAVO::IPC_OK) {
            return 1;
        }
    }
    parent.Say("ready");
    constexpr auto LIFETIME = std::chrono::minutes(10);
    while (const auto line = parent.Hear(LIFETIME)) {
        parent.Say(line->rfind("call-all ", 0) == 0 ? CallAll(hub, line->substr(9)) : Obey(*line, hub, name));
    }
    return 0;
}
