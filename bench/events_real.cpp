// SPDX-License-Identifier: Apache-2.0
// How many game events a second veltra_server handles from one game, beside the same bytes on a bare stream. The state
// that the service reports for the game is the number of the last event, since events are handled in order.
#include <sched.h>

#include "events.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"

namespace {

constexpr int EVENTS = 30000;  // a round
constexpr int ROUNDS = 15;
constexpr double HANDLED_SECONDS = 10;

void AwaitHandled(TAVO::Veltra::VeltraClient& client, int32_t number)
{
    const double start = Bench::Now();
    for (TAVO::Veltra::GameState state; client.QueryGameState(state) != 0 || state.state != number;) {
        if (Bench::Now() - start > HANDLED_SECONDS) {
            Bench::GiveUp("not every event that was sent has been handled");
        }
        ::sched_yield();
    }
}

}  // namespace

int main()
{
    Bench::RawPeer raw(1, {Bench::EVENT_BYTES, std::vector<uint8_t>(1), EVENTS});
    Bench::Platform platform(1, 0);
    TAVO::Veltra::VeltraClient client;
    client.CallAuth("");  // starts the service
    Bench::EventSender events;
    int32_t number = 100;  // clear of the numbers with a meaning
    Bench::MeasureAndPrint(
        {"events_real", "events/s", 0.7, Bench::Holds::AT_LEAST}, ROUNDS,
        [&] {
            const double start = Bench::Now();
            for (int i = 0; i < EVENTS; ++i) {
                for (++number; !events.Send(number);) {
                    ::sched_yield();
                }
            }
            AwaitHandled(client, number);
            return EVENTS / (Bench::Now() - start);
        },
        [&] {
            const double start = Bench::Now();
            for (int i = 0; i < EVENTS; ++i) {
                raw.Send();
            }
            raw.Receive();
            return EVENTS / (Bench::Now() - start);
        });
    return 0;
}
