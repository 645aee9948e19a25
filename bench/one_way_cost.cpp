// SPDX-License-Identifier: Apache-2.0
// What reporting a game event costs its caller while the service keeps up, beside one blocking send of the same bytes.
#include "events.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"

namespace {

constexpr int BURST = 100;  // far fewer than the socket takes, so none is refused
constexpr int BURSTS = 40;  // a round
constexpr int ROUNDS = 25;

// Microseconds for one message; the wait for the receiver after each burst does not count.
template <typename Send, typename Wait>
double MicrosecondsPerMessage(Send send, Wait wait)
{
    double seconds = 0;
    for (int burst = 0; burst < BURSTS; ++burst) {
        const double start = Bench::Now();
        for (int i = 0; i < BURST; ++i) {
            send();
        }
        seconds += Bench::Now() - start;
        wait();
    }
    return seconds / (BURSTS * BURST) * 1e6;
}

}  // namespace

int main()
{
    Bench::RawPeer raw(1, {Bench::EVENT_BYTES, std::vector<uint8_t>(1), BURST});
    Bench::Platform platform(1, 0, Bench::Service::BENCH);
    Bench::EventSender events;
    int sent = events.Arrived();
    Bench::MeasureAndPrint(
        {"one_way_cost", "us", 2}, ROUNDS,
        [&] {
            // An event that is refused would be missed here.
            return MicrosecondsPerMessage([&] { events.Send(); }, [&] { events.AwaitArrived(sent += BURST); });
        },
        [&] { return MicrosecondsPerMessage([&] { raw.Send(); }, [&] { raw.Receive(); }); });
    return 0;
}
