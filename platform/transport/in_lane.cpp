// SPDX-License-Identifier: Apache-2.0
// Serves a lane: assembles a request, finds its object, makes its references, has it run, replies, and looks for the
// next one. No step waits for the peer, except for a moment after a reply while another worker is free. A lane that
// needs more from the peer or from the byte budget waits in an epoll or with the control thread, without a worker. A peer that breaks the protocol
// loses the lane, and so does one that does not finish a message in time.
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
    SetTimeouts(fd_.Get(), STAY, STAY);
}

InLane::~InLane() = default;

void InLane::Join(int epoll)
{
    bool isArmed = false;
    {
        MutexLock lock(handOver_);
        epoll_ = epoll;
        self_ = shared_from_this();
        isArmed = Arm(EPOLL_CTL_ADD, EPOLLIN);
    }
    if (!isArmed) {
        Close();
    }
}

bool InLane::Arm(int operation, uint32_t events)
{
    epoll_event event{};
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
        MutexLock lock(handOver_);  // The thread that had the lane before does not touch it any more.
    }
    const bool callerGone = (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
    if (IsCallLane() && callerGone) {
        Close();  // No caller waits for a request that is still unread: it is not run.
        return;
    }
    if (IsInRing()) {
        TakeBells(false);
    }
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
            wait = CurrentRole() == ThreadRole::WORKER && ++served < STAY_REQUESTS && services_.workers.EnsureSpare();
            if (!wait) {
                AwaitMore(reader_.IsUnderWay());
                return Next::GONE;
            }
        }
    }
}

InLane::Frame InLane::NextFrame(bool wait)
{
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
    const IoResult got = Receive(scratch, LANE_SCRATCH_BYTES, wait);
    if (got.status != IoStatus::OK) {
        return {FrameReader::State::MORE, got.status};
    }
    const uint8_t* from = scratch;
    const FrameReader::State state = reader_.Consume(from, scratch + got.bytes);
    if (from != scratch + got.bytes) {
        stash_.assign(from, static_cast<const uint8_t*>(scratch + got.bytes));
        stashUsed_ = 0;
    }
    return {state};
}

InLane::Next InLane::Handle()
{
    peerDeadline_.store(0, std::memory_order_relaxed);
    Request request(reader_.Header(), reader_.TakeCharge());
    ParcelAccess::Swap(request.data, reader_.Body());
    reader_.Next();
    const FrameHeader& header = request.header;
    if (header.kind == FrameKind::REPLY || header.number != LastTaken() + 1) {
        WarnLimited("a peer sent a frame out of order", "its lane was closed");
        return Next::CLOSE;
    }
    if (header.kind == FrameKind::INTO_RING) {
        return GoIntoRing() ? Next::GO_ON : Next::CLOSE;
    }
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
        target = session_->Held().FindOneWayTarget(*this, header.number, header.serial);
        OfferRing(header.number);
    }
    return header.serial == 0 ? services_.objects.Root() : target;
}

InLane::Next InLane::EnterGate(Request& request)
{
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
    if (hasDeadline && peerDeadline_.load(std::memory_order_relaxed) == 0) {
        peerDeadline_.store((Clock::now() + PEER_TIMEOUT).time_since_epoch().count(), std::memory_order_relaxed);
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
        ShutDown();
    }
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
        ::epoll_ctl(epoll_, EPOLL_CTL_DEL, fd_.Get(), nullptr);
    }
    const std::shared_ptr<PeerLane> last = std::move(self_);
    peerDeadline_.store(0, std::memory_order_relaxed);
    {
        MutexLock lock(ringMutex_);
        if (ring_ != nullptr) {
            ring_->End();
        }
    }
    session_->InLanes().Remove(*this);
    ShutDown();
}

}  // namespace TAVO::Transport
