// SPDX-License-Identifier: Apache-2.0
// How often a blocking call allocates memory, in the game and in veltra_server together, once both are warm.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "facade_bytes.h"
#include "malloc_hook.h"
#include "platform.h"
#include "row.h"
#include "veltra_server_client.h"

namespace {

constexpr int CALLS = 1000;  // a round
constexpr int ROUNDS = 15;

// A counter that started processes find, and the library that makes them count.
std::atomic<int64_t>& ShareCounter()
{
    const int fd = ::memfd_create("bench-allocations", 0);
    std::atomic<int64_t>* const counter =
        fd >= 0 && ::ftruncate(fd, sizeof(int64_t)) == 0 ? Bench::MapCounter(fd) : nullptr;
    if (counter == nullptr) {
        Bench::GiveUp("cannot share memory");
    }
    const std::string path = "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(fd);
    ::setenv(Bench::ALLOCATION_COUNTER_VARIABLE, path.c_str(), 1);
    ::setenv("LD_PRELOAD", BENCH_MALLOC_HOOK, 1);
    return *counter;
}

}  // namespace

int main()
{
    const std::atomic<int64_t>& others = ShareCounter();
    Bench::Platform platform(0, 0);
    TAVO::Veltra::VeltraClient client;
    const std::string text(Bench::CALL_AUTH_TEXT_BYTES, 'x');
    std::vector<double> both;
    for (int round = 0; round <= ROUNDS; ++round) {
        const int64_t ownBefore = Bench::g_ownAllocations;
        const int64_t othersBefore = others;
        for (int i = 0; i < CALLS; ++i) {
            if (client.CallAuth(text) != 0) {
                Bench::GiveUp("a call was not answered");
            }
        }
        const int64_t allocations = Bench::g_ownAllocations - ownBefore + others - othersBefore;
        both.push_back(static_cast<double>(allocations) / CALLS);
    }
    if (others == 0) {
        Bench::GiveUp("the service does not count");
    }
    both.erase(both.begin());  // the first round: starting and warming up
    // 1 in the game: the proxy that each call makes. 2 in the service: the interface token and the text. A quarter more
    // is for what the service does from time to time.
    Bench::Print({"allocations_per_call", "", 2.25}, both);
    return 0;
}
