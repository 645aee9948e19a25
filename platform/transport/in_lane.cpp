// SPDX-License-Identifier: Apache-2.0
// Serves a lane: assembles a request, finds its object, makes its references, has it run, replies, and looks for the
// next one. No step waits for the peer, except for a moment after a reply while another worker is free. A lane that
// needs more from the peer or from the byte budget waits in an epoll or with the control thread, without a worker. A
// peer that breaks the protocol loses the lane, and so does one that does not finish a message in time.
#include "transport/in_lane.h"

#include <sys/epoll.h>

#include <new>
#include <utility>

#include "base/parcel_access.h"
#include "base/warn_limited.h"
#include "os/threads.h"
#include "transport/dispatch.h"
#include "transport/object_gate.h"
#include "transport/session_host.h"

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
      input_(kind != ConnectionKind::CALL_LANE, &session_->Budget()),
      replies_(fd_, session_->References(), number)
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
    page_.Close();
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
    // With the rest of a reply the lane waited for EPOLLOUT. The caller sends no request before it has that reply.
    Proceed([this] { return replies_.HasRest() ? SendRestOfReply() : Next::GO_ON; });
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
        const bool isAtPage = wait && page_.InUse() != nullptr && !input_.HasStash();
        const Frame frame = isAtPage ? NextFrameOfPage() : NextFrame(wait);
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
                AwaitMore(input_.Reader().IsUnderWay());
                return Next::GONE;
        }
        if (const Next next = Handle(); next != Next::GO_ON) {
            return next;
        }
        if (!input_.HasStash()) {
            // The next request of a busy caller arrives within microseconds; waiting for it here saves an epoll round
            // and a wake-up of another worker. Not on the delivery thread, and not as the last free worker: then a lane
            // with a request could wait for this one. Nor after the first request of a lane, which may be the only one:
            // the first call of a service would then also pay for the start of a second worker.
            wait = CurrentRole() == ThreadRole::WORKER && LastTaken() > 1 &&
                   (page_.InUse() != nullptr || ++served < STAY_REQUESTS) && services_.workers.EnsureSpare();
            if (!wait) {
                AwaitMore(input_.Reader().IsUnderWay());
                return Next::GONE;
            }
        }
    }
}

InLane::Frame InLane::NextFrame(bool wait)
{
    Frame frame{input_.TakeStash()};
    while (frame.state == FrameReader::State::MORE && frame.io == IoStatus::OK) {
        const FrameReader::Room room = input_.Room();
        if (room.place == nullptr) {
            return {room.state};
        }
        const IoResult got = Receive(room.place, room.size, wait);
        frame = {input_.Received(room, got.bytes), got.status};
    }
    return frame;
}

InLane::Frame InLane::NextFrameOfPage()
{
    switch (page_.Await(spin_, services_.workers)) {
        case CallBox::FULL: {
            const FrameReader::State state = page_.Take(input_.Reader());
            return {state, state == FrameReader::State::MORE ? IoStatus::CLOSED : IoStatus::OK};
        }
        case CallBox::ABSENT:
            return {FrameReader::State::MORE, IoStatus::WOULD_BLOCK};
        case CallBox::SOCKET:
            return NextFrame(true);
        default:
            return {FrameReader::State::MORE, IoStatus::CLOSED};
    }
}

InLane::Next InLane::Handle()
{
    // The request is complete: from here on the time is the handler's, not the peer's.
    deadline_.Clear();
    FrameReader& reader = input_.Reader();
    Request request(reader.Header(), reader.TakeCharge());
    ParcelAccess::Swap(request.data, reader.Body());
    reader.Next();
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
        return Reply(header.number, IPC_BAD_MESSAGE, nothing);
    }
    if (request.target == nullptr) {
        return Reply(header.number, IPC_DEAD_OBJECT, nothing);
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
        if (page_.OnRequest(header.number, services_.host.Self(), Number())) {
            session_->Control().Send({RecordType::RING, 0, Number(), static_cast<uint64_t>(page_.Fd())});
        }
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
    return Reply(request.header.number, status, reply);
}

// One-way requests and notices have no reply.
InLane::Next InLane::Reply(uint64_t number, int status, MessageParcel& reply)
{
    return IsCallLane() ? AfterReply(replies_.Send(page_.InUse(), number, status, reply)) : Next::GO_ON;
}

InLane::Next InLane::AfterReply(IoStatus sent)
{
    if (sent == IoStatus::WOULD_BLOCK) {
        // The caller reads slowly. The epoll reports when the socket has room; the deadline limits how long.
        Await(EPOLLOUT, true);
        return Next::GONE;
    }
    if (sent != IoStatus::OK) {
        return Next::CLOSE;
    }
    page_.OnReply();
    return Next::GO_ON;
}

InLane::Next InLane::SendRestOfReply()
{
    const IoStatus sent = replies_.SendRest();
    if (sent != IoStatus::WOULD_BLOCK) {
        deadline_.Clear();
    }
    return AfterReply(sent);
}

void InLane::Await(uint32_t events, bool hasDeadline)
{
    if (hasDeadline && deadline_.Set()) {
        services_.timers.WatchDeadline(shared_from_this());
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
    const PeerDeadline::Outcome outcome = deadline_.Check(now);
    if (outcome == PeerDeadline::Outcome::EXPIRED) {
        // Wakes up the worker or the epoll; the lane is closed there, by the thread to which it belongs.
        ShutDown();
    }
    return outcome == PeerDeadline::Outcome::WATCH;
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
    deadline_.Clear();
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
