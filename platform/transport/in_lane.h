// SPDX-License-Identifier: Apache-2.0
// The serving end of a lane that another process opened: reads requests, has them handled, answers.
#ifndef TAVO_TRANSPORT_IN_LANE_H
#define TAVO_TRANSPORT_IN_LANE_H

#include <atomic>
#include <cstdint>
#include <memory>

#include "os/fd.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/mutex.h"
#include "transport/exported_objects.h"
#include "transport/lane_input.h"
#include "transport/lane_page.h"
#include "transport/lane_timers.h"
#include "transport/peer_deadline.h"
#include "transport/peer_lane.h"
#include "transport/reply_sender.h"
#include "transport/session.h"
#include "transport/spin.h"
#include "transport/worker_pool.h"
#include "wire/ring.h"

namespace TAVO::Transport {

// The parts of the process that a lane uses. They outlive all lanes.
struct LaneServices {
    WorkerPool& workers;
    LaneTimers& timers;
    ExportedObjects& objects;
    SessionHost& host;
};

// Belongs to one thread at a time: its one-shot registration in an epoll hands it from one to the next.
class InLane final : public PeerLane {
public:
    InLane(ConnectionFd fd, ConnectionKind kind, uint64_t number, std::shared_ptr<Session> session,
           const LaneServices& services);
    ~InLane() override;

    void Join(int epoll) override;
    void Serve(uint32_t events) override;
    void ShutDown() noexcept override;
    bool CheckDeadline(Clock::time_point now) override;
    void Rearm() override;
    bool EndIdleRing(Clock::time_point before) override;

private:
    enum class Next {
        GO_ON,  // the lane is ready for the next request
        GONE,   // another thread or an epoll has the lane
        CLOSE,  // it must end
    };
    struct Request;

    // Runs one step, then acts on its result. If out of memory, the lane is closed.
    template <typename Step>
    void Proceed(Step step);
    // Handles requests until there is none, or the lane must end.
    Next Loop();
    // The state of the next frame, and of the socket if it was read for that.
    struct Frame {
        FrameReader::State state;
        IoStatus io = IoStatus::OK;
    };
    Frame NextFrame(bool wait);
    IoResult Receive(void* place, size_t size, bool wait);
    // As NextFrame, but waits at the page.
    Frame NextFrameOfPage();
    // Reads the bells of the ring's writer, waiting a moment for one, and notices the end of the connection.
    void TakeBells(bool wait);
    Next Handle();
    // The object of a request, which counts as accepted from then on. Null: unknown, or not held by the peer.
    sptr<IPCObjectStub> FindTarget(const FrameHeader& header);
    // Runs the request, or leaves it in the gate of its object.
    Next EnterGate(Request& request);
    // Offers a ring to a peer that sends many requests.
    void OfferRing(uint64_t number);
    // False when there is none.
    bool GoIntoRing();
    Next RunWaited(Request& request);
    Next Run(Request& request);
    Next Reply(uint64_t number, int status, MessageParcel& reply);
    Next AfterReply(IoStatus sent);
    Next SendRestOfReply();
    void Await(uint32_t events, bool hasDeadline);
    // Waits for more to read. From then on another thread may have the lane.
    void AwaitMore(bool hasDeadline);
    // Asks the epoll for `events` once. From the release of the lock on another thread may have the lane.
    bool Arm(int operation, uint32_t events) TAVO_REQUIRES(handOver_);
    void Close();
    // For the lane's thread, without the lock: it alone enters the ring, and the ring is not replaced after that.
    bool IsInRing() const TAVO_NO_THREAD_ANALYSIS { return isInRing_; }
    RingReader& OwnRing() TAVO_NO_THREAD_ANALYSIS { return *ring_; }
    std::shared_ptr<InLane> Self() { return std::static_pointer_cast<InLane>(shared_from_this()); }

    const ConnectionFd fd_;
    const std::shared_ptr<Session> session_;
    const LaneServices& services_;
    Mutex handOver_;  // held while the lane is armed again: the next thread begins after that
    int epoll_ TAVO_GUARDED_BY(handOver_) = -1;
    std::shared_ptr<PeerLane> self_;  // while it waits in an epoll or is being served

    Spin spin_{Spin::WORKER_POLLS};
    LaneInput input_;
    Mutex ringMutex_;
    std::unique_ptr<RingReader> ring_ TAVO_GUARDED_BY(ringMutex_);  // offered
    bool isInRing_ TAVO_GUARDED_BY(ringMutex_) = false;  // requests come through it, only bells through the socket
    bool hasEnded_ = false;               // of the socket, while there may still be something in the ring
    std::atomic<int64_t> ringUsedAt_{0};  // when it was offered, or the lane last went to sleep, in steady clock ticks
    Clock::time_point lastMark_;  // when the last message was accepted whose number is a multiple of RING_MESSAGES
    LanePage page_;               // of a call lane
    ReplySender replies_;         // of a call lane
    PeerDeadline deadline_;       // for the request that is incomplete, or the reply that is not read
};

}  // namespace TAVO::Transport

#endif
