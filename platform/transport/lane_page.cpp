// SPDX-License-Identifier: Apache-2.0
// The receiver of the requests decides, as for a ring: it offers a page to a caller that calls often, and the caller may
// ignore it. The caller announces in the page what it sends through the socket. The first announcement shows that it has
// opened the page; from then on a worker that stays with the lane waits at the page, and never at the socket.
#include "transport/lane_page.h"

#include <sched.h>

#include <utility>

namespace TAVO::Transport {
namespace {

constexpr uint64_t PAGE_CALLS = 32;           // So many calls within
constexpr std::chrono::seconds PAGE_TIME{2};  // that time are worth a page: a game calls 30 times a second or more.
constexpr std::chrono::milliseconds STAY{1};  // how long a worker waits for the next request
constexpr std::chrono::milliseconds LONG_STAY{50};  // at a lane that is called once in each frame

}  // namespace

bool LanePage::OnRequest(uint64_t number, const Instance& self, uint64_t lane)
{
    const bool isMark = number % PAGE_CALLS == 0;
    if (CallPage* const page = slot_.Get(); page != nullptr) {
        isUsed_ = page->Requests().ReleaseSocket() || isUsed_;
        // The caller has opened it, or has had time to: its control thread opens it, and may have to wait for a
        // processor while 32 calls take less than a millisecond.
        if (isUsed_ || (isMark && Clock::now() - markedAt_ > PAGE_TIME)) {
            page->CloseFd();
        }
        return false;
    }
    if (!isMark) {
        return false;
    }
    const Clock::time_point before = std::exchange(markedAt_, Clock::now());
    if (markedAt_ - before > PAGE_TIME) {
        return false;
    }
    slot_.Set(CallPage::Create(self, lane));
    return slot_.Get() != nullptr;
}

uint32_t LanePage::Await(Spin& spin, WorkerPool& workers)
{
    CallBox& requests = slot_.Get()->Requests();
    if (!requests.Attend()) {
        return CallBox::SOCKET;
    }
    const Clock::time_point now = Clock::now();
    // At a lane that is called in each frame the worker stays until the next one: a sleep in the page costs the caller
    // half of what a sleep in the epoll does.
    const bool isRegular = now - std::exchange(awaitedAt_, now) < LONG_STAY;
    const bool staysLong = isRegular && workers.BeginLongStay();
    const CallBox::Waited waited = requests.Wait(&spin, now + (staysLong ? LONG_STAY : STAY));
    if (staysLong) {
        workers.EndLongStay();
    }
    // Not between calls without a pause: beside a program that computes, giving up the processor would then cost a time
    // slice for each call.
    wasWokenUp_ = waited.hasSlept && Spin::IsTurnedOn() && Clock::now() - now > STAY;
    return waited.state;
}

void LanePage::OnReply() noexcept
{
    if (std::exchange(wasWokenUp_, false)) {
        ::sched_yield();
    }
}

FrameReader::State LanePage::Take(FrameReader& reader)
{
    CallBox& requests = slot_.Get()->Requests();
    auto [from, end] = requests.Frame();
    const FrameReader::State state = reader.Consume(from, end);
    if (!requests.Release()) {
        return FrameReader::State::MORE;
    }
    // A frame is whole, and alone.
    const bool isAlone = state != FrameReader::State::COMPLETE || from == end;
    return state != FrameReader::State::MORE && isAlone ? state : FrameReader::State::BAD;
}

}  // namespace TAVO::Transport
