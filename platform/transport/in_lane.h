// SPDX-License-Identifier: Apache-2.0
// The serving end of a lane that another process opened: reads requests, has them handled, answers.
#ifndef TAVO_TRANSPORT_IN_LANE_H
#define TAVO_TRANSPORT_IN_LANE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "os/fd.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/mutex.h"
#include "transport/exported_objects.h"
#include "transport/lane_timers.h"
#include "transport/peer_lane.h"
#include "transport/session.h"
#include "transport/worker_pool.h"
#include "wire/frame_reader.h"
#include "wire/ring.h"

namespace TAVO::Transport {

// What lanes are served with. Outlives all lanes.
struct LaneServices {
    WorkerPool& workers;
    LaneTimers& timers;
    ExportedObjects& objects;
    SessionHost& host;
};

// Belongs to one thread at a time: its one-shot registration in an epoll hands it from one to the next.
class InLane final : public PeerLane {
public:
    // An incomplete request, or a reply that is not read, ends the lane after this.
    static constexpr std::chrono::seconds PEER_TIMEOUT{8};

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

    // Takes a step, then goes on as it says; runs out of memory only at the lane's cost.
    template <typename Step>
    void Proceed(Step step);
    void Loop();
    FrameReader::State NextFrame(bool wait, IoStatus& io);
    IoResult Receive(void* place, size_t size, bool wait);
    // Takes the bells of the ring's writer, waiting a moment for one, and sees the end of the connection.
    void TakeBells(bool wait);
    Next Handle();
    // Offers a ring to whoever sends so much that it pays.
    void OfferRing(uint64_t number);
    // False when there is none.
    bool GoIntoRing();
    Next RunWaited(Request& request);
    Next Run(Request& request);
    Next Reply(uint64_t number, int status, MessageParcel& reply);
    Next FlushReply();
    void Await(uint32_t events, bool hasDeadline);
    // Waits for more to read; the lane is the caller's no longer.
    void AwaitMore(bool hasDeadline);
    // Asks the epoll for `events` once; from the return on another thread may have the lane.
    bool Arm(int operation, uint32_t events);
    void Close();
    std::shared_ptr<InLane> Self() { return std::static_pointer_cast<InLane>(shared_from_this()); }

    const ConnectionFd fd_;
    const std::shared_ptr<Session> session_;
    const LaneServices& services_;
    Mutex handOver_;  // held while the lane is armed again: the next thread begins after that
    int epoll_ = -1;
    std::shared_ptr<PeerLane> self_;  // while it waits in an epoll or is being served

    FrameReader reader_;
    std::vector<uint8_t> stash_;  // received behind the frame that is being handled
    size_t stashUsed_ = 0;
    Mutex ringMutex_;                     // not for the lane's thread once it is in the ring
    std::unique_ptr<RingReader> ring_;    // offered
    bool isInRing_ = false;               // requests come through it, and only bells through the socket; it stays
    bool hasEnded_ = false;               // of the socket, while there may still be something in the ring
    std::atomic<int64_t> ringUsedAt_{0};  // when it was offered, or the lane last went to sleep, in steady clock ticks
    Clock::time_point lastMark_;          // when a message was taken whose number OfferRing counts by
    MessageParcel unsent_;                // a reply that the socket took in part
    size_t unsentBytes_ = 0;              // of its frame, header included; 0: none
    size_t unsentDone_ = 0;
    std::atomic<int64_t> peerDeadline_{0};  // steady clock ticks; 0: not waiting for the peer to finish something
    std::atomic<bool> isWatched_{false};
};

}  // namespace TAVO::Transport

#endif
