// SPDX-License-Identifier: Apache-2.0
// How many blocking calls a second eight threads of one process make together, beside eight bare connections with a
// thread at either end.
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "facade_bytes.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"
#include "veltra_server_client.h"

namespace {

constexpr int THREADS = 8;
constexpr int CALLS = 2000;  // of each thread in a round
constexpr int ROUNDS = 25;

template <typename Call>
double CallsPerSecond(Call call)
{
    const double start = Bench::Now();
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&call, i] {
            for (int count = 0; count < CALLS; ++count) {
                call(i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return THREADS * CALLS / (Bench::Now() - start);
}

}  // namespace

int main()
{
    Bench::RawPeer raw(
        1, {Bench::CALL_AUTH_REQUEST_BYTES, std::vector<uint8_t>(Bench::CALL_AUTH_REPLY_BYTES), 1, THREADS});
    Bench::Platform platform(1, 0);
    TAVO::Veltra::VeltraClient client;
    const std::string text(Bench::CALL_AUTH_TEXT_BYTES, 'x');
    std::atomic<int> lost{0};
    const auto call = [&](int) { lost += client.CallAuth(text) == TAVO::Veltra::RESULT_NO_SERVICE; };
    Bench::MeasureAndPrint(
        {"threads_8", "calls/s", 0.9, Bench::Holds::AT_LEAST}, ROUNDS, [&] { return CallsPerSecond(call); },
        [&] { return CallsPerSecond([&raw](int connection) { raw.Call(connection); }); });
    if (lost != 0) {
        std::fprintf(stderr, "bench: %d calls did not reach the service\n", lost.load());
    }
    return lost != 0 ? 1 : 0;
}
