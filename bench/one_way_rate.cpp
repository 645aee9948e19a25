// SPDX-License-Identifier: Apache-2.0
// How many game events a second go from one game to the service, all received, beside the same bytes on a bare stream.
#include <sched.h>

#include "events.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"

namespace {

constexpr int MESSAGES = 30000;  // a round
constexpr int ROUNDS = 15;

template <typename Send, typename Wait>
double MessagesPerSecond(Send send, Wait wait)
{
    const double start = Bench::Now();
    for (int i = 0; i < MESSAGES; ++i) {
        send();
    }
    wait();
    return MESSAGES / (Bench::Now() - start);
}

}  // namespace

int main()
{
    Bench::RawPeer raw(1, {Bench::EVENT_BYTES, std::vector<uint8_t>(1), MESSAGES});
    Bench::Platform platform(1, 0, Bench::Service::BENCH);
    Bench::EventSender events;
    int sent = events.Arrived();
    const auto sendUntilTaken = [&] {
        while (!events.Send()) {
            ::sched_yield();
        }
    };
    Bench::MeasureAndPrint(
        {"one_way_rate", "msgs/s", 0.7, Bench::Holds::AT_LEAST}, ROUNDS,
        [&] { return MessagesPerSecond(sendUntilTaken, [&] { events.AwaitArrived(sent += MESSAGES); }); },
        [&] { return MessagesPerSecond([&] { raw.Send(); }, [&] { raw.Receive(); }); });
    return 0;
}
