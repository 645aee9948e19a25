// SPDX-License-Identifier: Apache-2.0
// The page of a call lane at the end that serves it: when it is offered, and how a worker waits there.
#ifndef TAVO_TRANSPORT_LANE_PAGE_H
#define TAVO_TRANSPORT_LANE_PAGE_H

#include <cstdint>

#include "transport/call_page.h"
#include "transport/lane_key.h"
#include "transport/spin.h"
#include "transport/worker_pool.h"
#include "wire/frame_reader.h"

namespace TAVO::Transport {

// Used by the thread that has the lane, but for Close.
class LanePage {
public:
    // The page once the caller uses it, else null.
    CallPage* InUse() const noexcept { return isUsed_ ? slot_.Get() : nullptr; }

    // Request `number` has come through the socket or the page. True if the caller calls so often that a page is to be
    // offered now: its Fd.
    bool OnRequest(uint64_t number, const Instance& self, uint64_t lane);
    int Fd() const noexcept { return slot_.Get()->Fd(); }

    // With a page in use: waits for the next request. The result is that of CallBox::Wait; with SOCKET the request
    // comes through the socket, now or soon.
    uint32_t Await(Spin& spin, WorkerPool& workers);
    // After FULL. MORE: the caller has withdrawn the request.
    FrameReader::State Take(FrameReader& reader);
    // The reply is sent. A worker that was woken up for the request may have taken the processor of its caller, who then
    // goes on before the worker does.
    void OnReply() noexcept;

    // Any thread: the lane has ended.
    void Close() noexcept { slot_.Close(); }

private:
    CallPageSlot slot_;
    bool isUsed_ = false;          // by the caller
    bool wasWokenUp_ = false;      // the worker, for the request that it handles
    Clock::time_point awaitedAt_;  // when a worker last began to wait at the page
    Clock::time_point markedAt_;   // when a request came whose number is a multiple of PAGE_CALLS, until the offer
};

}  // namespace TAVO::Transport

#endif
