// SPDX-License-Identifier: Apache-2.0
// A service that starts well or badly. Usage: manager_test_service HOW ID; it appends its pid to the file $TEST_NOTES.
// Without arguments a client: "check ID", "load ID", "add ID", "remove ID" on stdin, one line of answer each.
#include <fcntl.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "platform/manager/ability_client.h"
#include "tavo/ipc_threads.h"

namespace {

// A test that is itself killed cannot end its services.
constexpr unsigned LONGEST_LIFE_SECONDS = 170;

// The path that the test put into the environment; empty, which cannot be opened, when it did not.
std::string PathIn(const char* variable)
{
    const char* const path = std::getenv(variable);
    return path != nullptr ? path : "";
}

void NoteStart(pid_t process = ::getpid())
{
    const int notes = ::open(PathIn("TEST_NOTES").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    ::dprintf(notes, "%d\n", process);
    ::close(notes);
}

// Connections made after this are closed before those made earlier when the process ends, and milliseconds apart: the
// kernel closes the last descriptor first. Notes once more when it is so.
void EndSlowly()
{
    constexpr int DESCRIPTORS = 10000;
    struct rlimit limit {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4 * DESCRIPTORS);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    const int count = std::min<int>(DESCRIPTORS, static_cast<int>(limit.rlim_cur / 2));
    for (int i = 0; i < count; ++i) {
        ::eventfd(0, EFD_CLOEXEC);
    }
    NoteStart();
}

int Serve(int id, bool endsSlowly)
{
    const std::string status = ManagerTest::Add(id);
    if (status != "status 0") {
        std::fprintf(stderr, "test service %d: %s\n", id, status.c_str());
        return 3;
    }
    if (endsSlowly) {
        EndSlowly();
    }
    TAVO::IpcThreads::JoinPool();
}

int ObeyLines()
{
    std::string verb;
    int id = 0;
    while (std::cin >> verb >> id) {
        const auto act = verb == "check"  ? &ManagerTest::Check
                         : verb == "load" ? &ManagerTest::Load
                         : verb == "add"  ? &ManagerTest::Add
                                          : &ManagerTest::Remove;
        std::cout << act(id) << std::endl;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        return ObeyLines();
    }
    const std::string how = argv[1];
    const int id = std::atoi(argv[2]);
    ::alarm(LONGEST_LIFE_SECONDS);
    NoteStart();
    if (how == "exit") {
        return 1;
    }
    if (how == "exit-after-fork") {
        const pid_t left = ::fork();
        if (left == 0) {
            ::alarm(LONGEST_LIFE_SECONDS);  // A fork does not inherit it.
            ::pause();
        }
        NoteStart(left);  // Here, or the test could be over before.
        return 0;
    }
    if (how == "when-told") {  // Waits until another process opens the fifo for writing.
        ::close(::open(PathIn("TEST_FIFO").c_str(), O_RDONLY | O_CLOEXEC));
    }
    if (how == "ignore-term") {
        ::signal(SIGTERM, SIG_IGN);
    }
    return Serve(id, how == "end-slowly");
}
