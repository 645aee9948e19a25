// SPDX-License-Identifier: Apache-2.0
// Serves a lane: assembles a request, finds its object, makes its references, has it run, replies, and looks for the
// next one. No step waits for the peer, except for a moment after a reply while another worker is free. A lane that
// needs more from the peer or from the byte budget waits in an epoll or with the control thread, without a worker. A
// peer that breaks the protocol loses the lane, and so does one that does not finish a message in time.
#include "transport/in_lane.h"

#include <sys/epoll.h>

#include <cstring>
#include <new>
#include <utility>

#include "base/parcel_access.h"
#include "base/warn_limited.h"
#include "os/threads.h"
#include "transport/dispatch.h"
#include "transport/lane_scratch.h"
#include "transport/object_gate.h"

namespace TAVO::Transport {
namespace {

constexpr int STAY_REQUESTS = 32;             // so that other lanes get their turn
constexpr std::chrono::milliseconds STAY{1};  // how long a worker waits for a busy lane's next request

}  // namespace

struct InLane::Request {
    Request(const FrameHeader& ofHeader, ByteCharge ofData) : header(ofHeader), charge(std::move(ofData)) {}

    FrameHeader header;
    ByteCharge charge;  // until the handler has the data
    MessageParcel data;
    sptr<IPCObjectStub> target;
};

InLane::InLane(ConnectionFd fd, ConnectionKind kind, uint64_t number, std::shared_ptr<Session> session,
               const LaneServices& services)
    : PeerLane(kind, number),
      fd_(std::move(fd)),
      session_(std::move(session)),
      services_(services),
      reader_(kind != ConnectionKind::CALL_LANE, MessageKind::REQUEST, &session_->Budget())
{
    // Worker threads wait at most this long in a blocking recv() or send() on the lane (SO_RCVTIMEO, SO_SNDTIMEO).
    SetTimeouts(fd_.Get(), STAY, STAY);
}

InLane::~InLane() = default;

void InLane::Join(int epoll)
{
    bool isArmed = false;
    {
        MutexLock lock(handOver_);
        epoll_ = epoll;
        // The epoll stores a raw pointer. This reference keeps the lane alive until Close, however early others drop
        // theirs.
        self_ = shared_from_this();
        // A worker may begin to serve the lane before this function returns. It then waits for handOver_ in Serve.
        isArmed = Arm(EPOLL_CTL_ADD, EPOLLIN);
    }
    if (!isArmed) {
        Close();
    }
}

bool InLane::Arm(int operation, uint32_t events)
{
    epoll_event event{};
    // One-shot: the kernel disarms the registration when it reports it, so no second worker gets the lane until the
    // first arms it again.
    event.events = events | EPOLLRDHUP | EPOLLONESHOT;
    event.data.ptr = static_cast<PeerLane*>(this);
    return ::epoll_ctl(epoll_, operation, fd_.Get(), &event) == 0;
}

void InLane::ShutDown() noexcept
{
    fd_.ShutDown();
}

void InLane::Serve(uint32_t events)
{
    {
        // Another worker may have the lane as soon as it is armed. It waits in Serve for this lock, and after the
        // release this thread touches no member.
        MutexLock lock(handOver_);  // The thread that had the lane before does not touch it any more.
    }
    // A one-way lane is read to its end instead: requests that were sent before the sender died still run.
    const bool callerGone = (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
    if (IsCallLane() && callerGone) {
        Close();  // No caller waits for a request that is still unread: it is not run.
        return;
    }
    if (IsInRing()) {
        TakeBells(false);
    }
    // With an unsent reply the lane waited for EPOLLOUT. The caller sends no request before it has that reply.
    Proceed([this] { return unsentBytes_ != 0 ? FlushReply() : Next::GO_ON; });
}

template <typename Step>
void InLane::Proceed(Step step)
try {
    Next next = step();
    if (next == Next::GO_ON) {
        next = Loop();
    }
    if (next == Next::CLOSE) {
        Close();
    }
} catch (const std::bad_alloc&) {
    WarnLimited("out of memory", "a lane was closed");
    Close();
}

InLane::Next InLane::Loop()
{
    bool wait = false;
    for (int served = 0;;) {
        const Frame frame = NextFrame(wait);
        switch (frame.state) {
            case FrameReader::State::COMPLETE:
                break;
            case FrameReader::State::STALLED:
                // The byte budget of the peer or of the process is used up. No event of the socket announces that there
                // is room again, so the control thread looks again from time to time.
                services_.timers.RetryLater(Self());
                return Next::GONE;
            case FrameReader::State::BAD:
                WarnLimited("a peer sent an impossible frame", "its lane was closed");
                return Next::CLOSE;
            case FrameReader::State::NO_MEMORY:
                throw std::bad_alloc();
            case FrameReader::State::MORE:
                if (frame.io == IoStatus::CLOSED) {
                    return Next::CLOSE;
                }
                AwaitMore(reader_.IsUnderWay());
                return Next::GONE;
        }
        if (const Next next = Handle(); next != Next::GO_ON) {
            return next;
        }
        if (stash_.empty()) {
            // The next request of a busy caller arrives within microseconds; waiting for it here saves an epoll round
            // and a wake-up of another worker. Not on the delivery thread, and not as the last free worker: then a lane
            // with a request could wait for this one.
            const Clock::time_point before = std::exchange(handledAt_, Clock::now());
            wait = handledAt_ - before < Spin::BUSY && CurrentRole() == ThreadRole::WORKER &&
                   ++served < STAY_REQUESTS && services_.workers.EnsureSpare();
            if (!wait) {
                AwaitMore(reader_.IsUnderWay());
                return Next::GONE;
            }
        }
    }
}

InLane::Frame InLane::NextFrame(bool wait)
{
    // Bytes received earlier come first: they precede what is in the socket.
    Frame frame{stash_.empty() ? FrameReader::State::MORE : TakeStash()};
    while (frame.state == FrameReader::State::MORE && frame.io == IoStatus::OK) {
        frame = reader_.HasHeader() ? ReceiveBody(wait) : ReceiveHeader(wait);
    }
    return frame;
}

FrameReader::State InLane::TakeStash()
{
    const uint8_t* from = stash_.data() + stashUsed_;
    const uint8_t* const end = stash_.data() + stash_.size();
    const FrameReader::State state = reader_.Consume(from, end);
    stashUsed_ = static_cast<size_t>(from - stash_.data());
    if (from == end) {
        // clear() would keep the memory. A lane without a request in progress keeps no buffer: 1,000 idle clients would
        // cost one each.
        std::vector<uint8_t>().swap(stash_);
        stashUsed_ = 0;
    }
    return state;
}

InLane::Frame InLane::ReceiveBody(bool wait)
{
    const FrameReader::Room room = reader_.RoomForBody();
    if (room.place == nullptr) {
        return {room.state};
    }
    const IoResult got = Receive(room.place, room.size, wait);
    return {reader_.Received(got.bytes), got.status};
}

InLane::Frame InLane::ReceiveHeader(bool wait)
{
    uint8_t* const scratch = LaneScratch();
    // A scratch buffer of the thread takes what has arrived, which is often a header and its whole body, in one system
    // call.
    const IoResult got = Receive(scratch, LANE_SCRATCH_BYTES, wait);
    if (got.status != IoStatus::OK) {
        return {FrameReader::State::MORE, got.status};
    }
    const uint8_t* from = scratch;
    const FrameReader::State state = reader_.Consume(from, scratch + got.bytes);
    if (from != scratch + got.bytes) {
        // The next thread to serve the lane has another scratch buffer, so the bytes behind the frame move into the
        // lane.
        stash_.assign(from, static_cast<const uint8_t*>(scratch + got.bytes));
        stashUsed_ = 0;
    }
    return {state};
}

InLane::Next InLane::Handle()
{
    // The request is complete: from here on the time is the handler's, not the peer's.
    peerDeadline_.store(0, std::memory_order_relaxed);
    Request request(reader_.Header(), reader_.TakeCharge());
    ParcelAccess::Swap(request.data, reader_.Body());
    reader_.Next();
    const FrameHeader& header = request.header;
    // Numbers without a gap are what TAKEN, AFTER and LANE_CLOSED rely on: each names a message by lane and number.
    if (header.kind == FrameKind::REPLY || header.number != LastTaken() + 1) {
        WarnLimited("a peer sent a frame out of order", "its lane was closed");
        return Next::CLOSE;
    }
    if (header.kind == FrameKind::INTO_RING) {
        return GoIntoRing() ? Next::GO_ON : Next::CLOSE;
    }
    // Before the references: FindTarget accepts the message (LastTaken). If it was rejected for its table, it is still
    // accepted as far as counts are concerned, and its sender takes back nothing.
    request.target = FindTarget(header);
    MessageParcel nothing;
    if (!session_->References().Take({false, Number()}, header, request.data)) {
        WarnLimited("a peer sent an invalid reference table", "its request was refused");
        return IsCallLane() ? Reply(header.number, IPC_BAD_MESSAGE, nothing) : Next::GO_ON;
    }
    if (request.target == nullptr) {
        return IsCallLane() ? Reply(header.number, IPC_DEAD_OBJECT, nothing) : Next::GO_ON;
    }
    if (Kind() == ConnectionKind::NOTICE_LANE) {
        return request.target->RunsOnDeliveryThread() ? Run(request) : Next::GO_ON;
    }
    return EnterGate(request);
}

sptr<IPCObjectStub> InLane::FindTarget(const FrameHeader& header)
{
    sptr<IPCObjectStub> target;
    if (IsCallLane()) {
        SetLastTaken(header.number);
        target = session_->Held().Find(header.serial);
        if (target == nullptr && header.kind == FrameKind::FIRST_REQUEST) {
            target = services_.objects.Find(header.serial);  // As its ACQUIRE will find it.
        }
    } else {
        // Under one lock with the acceptance of the number: a RELEASE behind this request must not remove its target in
        // between.
        target = session_->Held().FindOneWayTarget(*this, header.number, header.serial);
        OfferRing(header.number);
    }
    // Null in every process but the manager.
    return header.serial == 0 ? services_.objects.Root() : target;
}

InLane::Next InLane::EnterGate(Request& request)
{
    // The function is called only if the gate is full. Then the request moves to the heap, and this thread gives the
    // lane away with it: the thread that leaves the gate posts it to the workers.
    const bool runs = ObjectGate::Of(*request.target).EnterOrWait([this, &request] {
        auto waiting = std::make_shared<Request>(request.header, std::move(request.charge));
        waiting->target = request.target;
        ParcelAccess::Swap(waiting->data, request.data);
        return std::function<void()>(
            [lane = Self(), waiting] { lane->Proceed([&] { return lane->RunWaited(*waiting); }); });
    });
    return runs ? Run(request) : Next::GONE;
}

// A request that has waited for its object: its caller may have given up meanwhile.
InLane::Next InLane::RunWaited(Request& request)
{
    if (IsCallLane() && HasHungUp(fd_.Get())) {
        LeaveGate(*request.target, services_.workers);
        return Next::CLOSE;
    }
    return Run(request);
}

InLane::Next InLane::Run(Request& request)
{
    // The data now belongs to a handler, of which at most 64 run at a time. The budget limits queued requests,
    // not those that run.
    request.charge.Release();
    MessageParcel reply;
    MessageOption option(IsCallLane() ? MessageOption::FLAG_SYNC : MessageOption::FLAG_ONE_WAY);
    const CallingPeer& peer = session_->Identity();
    const uint32_t code = request.header.codeOrStatus;
    const int status =
        Kind() == ConnectionKind::NOTICE_LANE
            ? Dispatch(*request.target, peer, code, request.data, reply, option)
            : DispatchInGate(*request.target, services_.workers, peer, code, request.data, reply, option);
    return IsCallLane() ? Reply(request.header.number, status, reply) : Next::GO_ON;
}

InLane::Next InLane::Reply(uint64_t number, int status, MessageParcel& reply)
{
    FrameHeader header;
    header.kind = FrameKind::REPLY;
    header.number = number;
    header.dataBytes = static_cast<uint32_t>(reply.GetDataSize());
    if (!ParcelAccess::References(reply).empty()) {
        // May wait for an object of the caller that is still being acquired, so with a deadline.
        const int passed =
            session_->References().Pass({false, Number()}, number, reply, header, Clock::now() + PEER_TIMEOUT);
        if (passed == IPC_BAD_MESSAGE) {
            MessageParcel nothing;
            return Reply(number, IPC_BAD_MESSAGE, nothing);
        }
        if (passed != IPC_OK) {
            return Next::CLOSE;
        }
    }
    header.codeOrStatus = static_cast<uint32_t>(status);
    if (!header.IsPossible(false)) {
        return Next::CLOSE;  // More than a message may carry: the caller sees a broken call.
    }
    // Parcels keep room in front of their data, so header and body are one buffer and one system call.
    uint8_t* const frame = ParcelAccess::Headroom(reply, sizeof(header));
    if (frame == nullptr) {
        return Next::CLOSE;
    }
    std::memcpy(frame, &header, sizeof(header));
    const size_t size = sizeof(header) + header.BodyBytes();
    const IoResult sent = SendNow(fd_.Get(), frame, size);
    if (sent.status != IoStatus::WOULD_BLOCK) {
        return sent.status == IoStatus::OK ? Next::GO_ON : Next::CLOSE;
    }
    // The caller reads slowly. No worker waits for it: the epoll reports when the socket has room, and PEER_TIMEOUT
    // limits how often.
    ParcelAccess::Swap(unsent_, reply);
    unsentBytes_ = size;
    unsentDone_ = sent.bytes;
    Await(EPOLLOUT, true);
    return Next::GONE;
}

InLane::Next InLane::FlushReply()
{
    const uint8_t* const frame = unsent_.GetData() - sizeof(FrameHeader);
    const IoResult sent = SendNow(fd_.Get(), frame + unsentDone_, unsentBytes_ - unsentDone_);
    unsentDone_ += sent.bytes;
    if (sent.status == IoStatus::WOULD_BLOCK) {
        Await(EPOLLOUT, true);
        return Next::GONE;
    }
    ParcelAccess::Clear(unsent_);
    unsentBytes_ = 0;
    peerDeadline_.store(0, std::memory_order_relaxed);
    return sent.status == IoStatus::OK ? Next::GO_ON : Next::CLOSE;
}

void InLane::Await(uint32_t events, bool hasDeadline)
{
    // The first wait sets the deadline, later ones for the same message keep it: a peer that sends one byte a second
    // does not extend it.
    if (hasDeadline && peerDeadline_.load(std::memory_order_relaxed) == 0) {
        // In one order with the look at isWatched_, as CheckDeadline looks at the two the other way round.
        peerDeadline_.store((Clock::now() + PEER_TIMEOUT).time_since_epoch().count());
        // One entry in the timers at a time, however often the lane waits.
        if (!isWatched_.exchange(true)) {
            services_.timers.WatchDeadline(shared_from_this());
        }
    }
    MutexLock lock(handOver_);
    Arm(EPOLL_CTL_MOD, events);
}

void InLane::AwaitMore(bool hasDeadline)
{
    if (IsInRing()) {
        ringUsedAt_.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
        services_.timers.ExpectIdleLanes();
    }
    // Sleep() returns false if the sender has written meanwhile: then no bell will come, and the lane must be served
    // again at once. Posted instead of looped, so that other lanes get their turn.
    if (!IsInRing() || OwnRing().Sleep()) {
        Await(EPOLLIN, hasDeadline);
    } else if (!services_.workers.Post([lane = Self()] { lane->Proceed([] { return Next::GO_ON; }); })) {
        WarnLimited("out of memory", "a lane was closed");
        Close();
    }
}

bool InLane::CheckDeadline(Clock::time_point now)
{
    const int64_t ends = peerDeadline_.load(std::memory_order_relaxed);
    if (ends != 0 && now.time_since_epoch().count() < ends) {
        return true;
    }
    if (ends != 0) {
        // Wakes up the worker or the epoll; the lane is closed there, by the thread to which it belongs.
        ShutDown();
    }
    // Sequentially consistent, as are the load and the exchange below: with Await on another thread, which stores the
    // deadline before it reads isWatched_, at least one of the two sees the other.
    isWatched_.store(false);
    // It may have begun to wait in between, seen that it is watched, and relied on that.
    return ends == 0 && peerDeadline_.load() != 0 && !isWatched_.exchange(true);
}

void InLane::Rearm()
{
    Proceed([this] {
        AwaitMore(true);
        return Next::GONE;
    });
}

void InLane::Close()
{
    {
        MutexLock lock(handOver_);
        // Explicitly: if a forked child of this process holds the descriptor too, closing it here would leave the
        // registration in the epoll, with a pointer to a destroyed lane.
        ::epoll_ctl(epoll_, EPOLL_CTL_DEL, fd_.Get(), nullptr);
    }
    // Destroys the lane at the end of this function, unless the table or a timer still holds it.
    const std::shared_ptr<PeerLane> last = std::move(self_);
    peerDeadline_.store(0, std::memory_order_relaxed);
    {
        MutexLock lock(ringMutex_);
        if (ring_ != nullptr) {
            ring_->End();
        }
    }
    // Notifies the peer of the last accepted message, so before the shutdown that lets it open the next lane.
    session_->InLanes().Remove(*this);
    ShutDown();
}

}  // namespace TAVO::Transport
