// SPDX-License-Identifier: Apache-2.0
// A service that starts well or badly. Usage: manager_test_service HOW ID; it appends its pid to the file $TEST_NOTES.
// Without arguments a client: "check ID", "load ID", "add ID", "remove ID" on stdin, one line of answer each.
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
    ManagerTest::NoteStart();
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
    ManagerTest::NoteStart();
    if (how == "when-told") {
        ManagerTest::WaitUntilTold();
    }
    if (how == "ignore-term") {
        ::signal(SIGTERM, SIG_IGN);
    }
    return Serve(id, how == "end-slowly");
}
