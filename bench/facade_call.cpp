// SPDX-License-Identifier: Apache-2.0
// What a blocking call of the facade costs beside the bare round trip between the same processors: with threads that
// sleep as the raw ones do (TAVO_SPIN=off), with polling, and on one processor.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "facade_bytes.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"
#include "veltra_server_client.h"

namespace {

constexpr int CALLS = 4000;  // a round
constexpr int ROUNDS = 25;

// Makes a round of calls, each timed. Both sides read the clock as often, about 0.03 us a call.
template <typename Call>
double MicrosecondsPerCall(Call call, std::vector<double>& singles)
{
    const double start = Bench::Now();
    double last = start;
    for (int i = 0; i < CALLS; ++i) {
        call();
        const double now = Bench::Now();
        singles.push_back((now - last) * 1e6);
        last = now;
    }
    return (last - start) / CALLS * 1e6;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    const bool isOneCpu = mode == "--one-cpu";
    if (mode.empty()) {
        ::setenv("TAVO_SPIN", "off", 1);
    }
    const int otherProcessor = isOneCpu ? 0 : 1;
    Bench::RawPeer raw(otherProcessor,
                       {Bench::CALL_AUTH_REQUEST_BYTES, std::vector<uint8_t>(Bench::CALL_AUTH_REPLY_BYTES)});
    Bench::Platform platform(otherProcessor, 0);
    TAVO::Veltra::VeltraClient client;
    const std::string text(Bench::CALL_AUTH_TEXT_BYTES, 'x');
    if (client.CallAuth(text) == TAVO::Veltra::RESULT_NO_SERVICE) {
        std::fprintf(stderr, "bench: the service cannot be reached\n");
        return 1;
    }
    const Bench::Row row = isOneCpu           ? Bench::Row{"facade_call_one_cpu", "us", 1.5}
                           : mode == "--spin" ? Bench::Row{"facade_call_spin", "us", 0.25}
                                              : Bench::Row{"facade_call", "us", 1.25};
    bool isBroken = false;
    std::vector<double> calls;
    std::vector<double> rawCalls;
    for (std::vector<double>* singles : {&calls, &rawCalls}) {
        singles->reserve(CALLS * (ROUNDS + 1));
    }
    Bench::MeasureAndPrint(
        row, ROUNDS,
        [&] {
            return MicrosecondsPerCall(
                [&] { isBroken = client.CallAuth(text) == TAVO::Veltra::RESULT_NO_SERVICE || isBroken; }, calls);
        },
        [&] { return MicrosecondsPerCall([&] { raw.Call(); }, rawCalls); }, &calls);
    return isBroken ? 1 : 0;
}
