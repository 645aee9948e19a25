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
#include "transport/call_lane.h"
#include "transport/session.h"
#include "wire/frame_reader.h"
#include "wire/ring.h"

namespace TAVO::Transport {

// Belongs to one thread at a time: its one-shot registration in an epoll hands it from one to the next.
class InLane : public std::enable_shared_from_this<InLane> {
public:
    // An incomplete request, or a reply that is not taken, ends the lane after this.
    static constexpr std::chrono::seconds PATIENCE{8};

    InLane(ConnectionFd fd, ConnectionKind kind, uint64_t number, std::shared_ptr<Session> session);
    ~InLane();

    uint64_t Number() const noexcept { return number_; }
    ConnectionKind Kind() const noexcept { return kind_; }
    // The last message that was taken from it.
    uint64_t LastTaken() const noexcept { return lastTaken_.load(std::memory_order_acquire); }
    void SetLastTaken(uint64_t number) noexcept { lastTaken_.store(number, std::memory_order_release); }

    // Begins to wait for requests in `epoll`; the lane keeps itself alive until it is closed.
    void Join(int epoll);
    // Handles what there is, after the epoll reported `events`.
    void Serve(uint32_t events);
    // Gives back what the calling thread kept for serving lanes.
    static void EndOfThread() noexcept;
    // Any thread: wakes the lane for its end.
    void ShutDown() noexcept;

    // Control thread: ends the lane if its patience is over. False when it needs no watching any more.
    bool CheckPatience(Clock::time_point now);
    // Control thread: has a lane that waited for the byte budget look again.
    void Rearm();
    // Control thread: gives the memory of a ring back that has not been used since `before`. One that was taken up goes
    // with its lane: the sender opens another. True while there is a ring.
    bool EndIdleRing(Clock::time_point before);

private:
    enum class Next {
        GO_ON,  // the lane is ready for the next request
        GONE,   // somebody else goes on with it, or an epoll does
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
    void Await(uint32_t events, bool impatient);
    // Waits for more to read; the lane is the caller's no longer.
    void AwaitMore(bool impatient);
    // Asks the epoll for `events` once; from the return on another thread may have the lane.
    bool Arm(int operation, uint32_t events);
    void Close();
    bool IsCallLane() const noexcept { return kind_ == ConnectionKind::CALL_LANE; }

    const ConnectionFd fd_;
    const ConnectionKind kind_;
    const uint64_t number_;
    const std::shared_ptr<Session> session_;
    Mutex handOver_;  // held while the lane is armed again: the next thread begins after that
    int epoll_ = -1;
    std::shared_ptr<InLane> self_;  // while it waits in an epoll or is being served

    Spin spin_{Spin::WORKER_POLLS};
    FrameReader reader_;
    std::vector<uint8_t> stash_;  // received behind the frame that is being handled
    size_t stashUsed_ = 0;
    Mutex ringMutex_;                     // not for the lane's thread once it is in the ring
    std::unique_ptr<RingReader> ring_;    // offered
    bool isInRing_ = false;               // requests come through it, and only bells through the socket; it stays
    bool hasEnded_ = false;               // of the socket, while there may still be something in the ring
    std::atomic<int64_t> ringUsedAt_{0};  // when it was offered, or the lane last went to sleep, in steady clock ticks
    Clock::time_point lastMark_;          // when a message was taken whose number OfferRing counts by
    std::atomic<uint64_t> lastTaken_{0};  // message number; for one-way lanes written with the target found
    MessageParcel unsent_;                // a reply that the socket took in part
    size_t unsentBytes_ = 0;              // of its frame, header included; 0: none
    size_t unsentDone_ = 0;
    std::atomic<int64_t> patienceEnds_{0};  // steady clock ticks; 0: not waiting for the peer to finish something
    std::atomic<bool> isWatched_{false};
};

}  // namespace TAVO::Transport

#endif
