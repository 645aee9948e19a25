// SPDX-License-Identifier: Apache-2.0
#include "events.h"

#include <sched.h>

#include "row.h"

namespace Bench {
namespace {

constexpr double ARRIVAL_SECONDS = 10;

}  // namespace

EventSender::EventSender()
{
    const std::string text(EVENT_TEXT_BYTES, 'x');
    event_.text1 = event_.text2 = event_.text3 = event_.text4 = event_.text5 = event_.text6 = text;
    TAVO::SetScrivoHook(
        [](const TAVO::ScrivoRecord& record, void* sender) {
            static_cast<EventSender*>(sender)->failures_ += record.level >= TAVO::SCRIVO_ERROR;
        },
        this);
}

void EventSender::AwaitArrived(int count)
{
    for (const double start = Now(); Arrived() != count;) {
        if (Now() - start > ARRIVAL_SECONDS) {
            GiveUp("not every event that was sent has arrived");
        }
        ::sched_yield();
    }
}

}  // namespace Bench
