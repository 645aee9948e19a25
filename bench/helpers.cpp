// SPDX-License-Identifier: Apache-2.0
#include "helpers.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "row.h"

namespace Bench {
namespace {

constexpr int CONNECTING_AT_ONCE = 16;

bool ReadByte(int fd)
{
    char byte = 0;
    return ::read(fd, &byte, 1) == 1;
}

void WriteByte(int fd)
{
    const char byte = 0;
    if (::write(fd, &byte, 1) != 1) {
        GiveUp("a process of the benchmark is gone");
    }
}

struct Pipe {
    Pipe()
    {
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            GiveUp("cannot make a pipe");
        }
    }
    int ends[2] = {-1, -1};
};

}  // namespace

Helpers::Helpers(int count, const Work& work)
{
    for (int i = 0; i < count; ++i) {
        int pair[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
            GiveUp("cannot make a socket pair");
        }
        const pid_t process = ::fork();
        if (process == 0) {
            // Also in the middle of its work, which may take seconds.
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            ::close(pair[0]);
            for (const Helper& other : helpers_) {  // else these would not see their ends close
                ::close(other.socket);
            }
            char command = 0;
            while (::recv(pair[1], &command, 1, 0) == 1) {
                const double figure = work(i, command);
                ::send(pair[1], &figure, sizeof(figure), MSG_NOSIGNAL);
            }
            std::exit(0);
        }
        ::close(pair[1]);
        helpers_.push_back({process, pair[0]});
    }
}

Helpers::~Helpers()
{
    for (const Helper& helper : helpers_) {
        ::close(helper.socket);
    }
    for (const Helper& helper : helpers_) {
        ::waitpid(helper.process, nullptr, 0);
    }
}

double Helpers::Run(int helper, char command)
{
    Send(helpers_[static_cast<size_t>(helper)], command);
    return Receive(helpers_[static_cast<size_t>(helper)]);
}

void Helpers::RunAll(char command)
{
    for (const Helper& helper : helpers_) {
        Send(helper, command);
    }
    for (const Helper& helper : helpers_) {
        Receive(helper);
    }
}

void Helpers::Send(const Helper& helper, char command)
{
    if (::send(helper.socket, &command, 1, MSG_NOSIGNAL) != 1) {
        GiveUp("a process of the benchmark is gone");
    }
}

double Helpers::Receive(const Helper& helper)
{
    double figure = 0;
    if (::recv(helper.socket, &figure, sizeof(figure), MSG_WAITALL) != sizeof(figure)) {
        GiveUp("a process of the benchmark has given up");
    }
    return figure;
}

Crowd::Crowd(int count, const std::function<void()>& connect)
{
    const Pipe go;
    const Pipe done;
    const Pipe stay;
    for (int i = 0; i < count; ++i) {
        const pid_t process = ::fork();
        if (process < 0) {
            GiveUp("cannot start enough processes");
        }
        if (process == 0) {
            ::close(go.ends[1]);
            ::close(stay.ends[1]);
            if (ReadByte(go.ends[0])) {
                connect();
                WriteByte(done.ends[1]);
                ReadByte(stay.ends[0]);
            }
            ::_exit(0);
        }
        processes_.push_back(process);
    }
    ::close(go.ends[0]);
    ::close(done.ends[1]);
    ::close(stay.ends[0]);
    go_ = go.ends[1];
    done_ = done.ends[0];
    stay_ = stay.ends[1];
}

void Crowd::Connect()
{
    const size_t count = processes_.size();
    for (size_t started = 0, connected = 0; connected < count; ++connected) {
        for (; started < std::min(count, connected + CONNECTING_AT_ONCE); ++started) {
            WriteByte(go_);
        }
        if (!ReadByte(done_)) {
            GiveUp("the clients are gone");
        }
    }
}

void Crowd::Leave()
{
    for (const int fd : {go_, done_, stay_}) {
        ::close(fd);
    }
    go_ = done_ = stay_ = -1;
    for (const pid_t process : processes_) {
        ::waitpid(process, nullptr, 0);
    }
    processes_.clear();
}

}  // namespace Bench
