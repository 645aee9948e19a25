// SPDX-License-Identifier: Apache-2.0
// Game events of a fixed size, and how their sender knows what became of them.
#ifndef VELTRA_BENCH_EVENTS_H
#define VELTRA_BENCH_EVENTS_H

#include <string>

#include "facade_bytes.h"
#include "tavo/scrivo_print.h"
#include "veltra_server_client.h"

namespace Bench {

// Sends events to the service. ReportGameEvent reports a failure only in the log, so a hook counts the
// error lines. One object, one thread.
class EventSender {
public:
    EventSender();
    ~EventSender() { TAVO::SetScrivoHook(nullptr, nullptr); }
    EventSender(const EventSender&) = delete;
    EventSender& operator=(const EventSender&) = delete;

    // False: it was not accepted. `state` is the event's.
    bool Send(int32_t state = 0)
    {
        const int before = failures_;
        event_.int32Value = state;
        client_.ReportGameEvent(event_);
        return failures_ == before;
    }
    // How many the service of service.cpp has received.
    int Arrived() { return client_.CallAuth(""); }
    // Returns once that service has received `count` events; ends the program when that takes too long.
    void AwaitArrived(int count);

private:
    TAVO::Veltra::VeltraClient client_;
    TAVO::Veltra::GameInfo event_;
    int failures_ = 0;
};

}  // namespace Bench

#endif
