// SPDX-License-Identifier: Apache-2.0
// A session puts its parts together and gives them one life. Connecting: our hello is sent, or the peer's accepted.
// Established: records and lanes go both ways. End: the state changes first, so that no thread that is woken up finds
// the peer's objects alive; then each part releases what it has, in an order in which callers learn of the end before
// death recipients do. None of these steps allocates memory.
#include "transport/session.h"

#include <new>
#include <utility>

#include "transport/session_host.h"

namespace TAVO::Transport {
namespace {

std::atomic<uint64_t> g_nextSession{1};

// The peer's record names a lane from the peer's side: its own lane is one that it opened, so not ours.
LaneKey KeyOf(const ControlRecord& record)
{
    return {(record.flags & ControlRecord::OWN_LANE) == 0, record.a};
}

}  // namespace

std::shared_ptr<Session> Session::Create(SessionHost& host, std::string path, const Instance& peer)
{
    auto session = std::make_shared<Session>(host, std::move(path), peer);
    // The parts hold the session weakly, through their context. Only this function can set it: there is no shared_ptr
    // to the object during its constructor.
    session->context_.session = session;
    return session;
}

Session::Session(SessionHost& host, std::string path, const Instance& peer)
    : id_(g_nextSession.fetch_add(1)),
      context_(host, std::move(path), peer),
      budget_(ByteBudget::PEER_LIMIT, &host.Budget()),
      held_(context_, control_),
      proxies_(context_, control_),
      references_(context_, control_, held_, proxies_),
      opener_(context_, control_, held_),
      callLanes_(context_, opener_),
      oneWay_(ConnectionKind::ONE_WAY_LANE, context_, opener_, references_),
      notice_(ConnectionKind::NOTICE_LANE, context_, opener_, references_),
      inLanes_(context_, control_, held_)
{
}

ControlChannel::HelloSent Session::SendHello(int fd)
{
    const auto result = control_.SendHello(fd, context_.host.Self());
    if (result == ControlChannel::HelloSent::SENT) {
        NotifyChanged();
    }
    return result;
}

void Session::Establish(int controlFd, int controlEpoll, void* tag, const PeerIdentity& identity)
{
    // Written without a lock. Readers see it because they check for ESTABLISHED first, which is stored below.
    identity_ = {identity.pid, identity.uid, id_};
    control_.Establish(controlFd, controlEpoll, tag);
    isSuspect_.store(false, std::memory_order_relaxed);
    // Only from CONNECTING: End() on another thread may have been first, and DEAD is final.
    auto expected = State::CONNECTING;
    context_.state.compare_exchange_strong(expected, State::ESTABLISHED);
    NotifyChanged();
}

void Session::End() noexcept
{
    control_.Close();
    // Exactly one thread passes here, so each part is closed once.
    if (context_.state.exchange(State::DEAD) == State::DEAD) {
        return;
    }
    NotifyChanged();
    // Workers first: they wake up by the shutdown and remove their lanes by themselves. Then the callers that wait for
    // replies. Proxies, whose death recipients run next, come after them: a caller gets its error before the recipient
    // runs. What the peer held is released last, since the destructors of these objects may call the transport.
    inLanes_.ShutDown();
    callLanes_.Close();
    oneWay_.Close();
    notice_.Close();
    proxies_.Close();
    held_.Close();
}

void Session::NotifyChanged()
{
    {
        MutexLock lock(mutex_);  // A thread that is about to wait has either seen the change or waits by now.
    }
    changed_.notify_all();
}

Session::State Session::WaitEstablished(Deadline deadline)
{
    if (GetState() == State::CONNECTING) {
        MutexLock lock(mutex_);
        lock.WaitUntil(changed_, deadline, [this] { return GetState() != State::CONNECTING; });
    }
    return GetState();
}

bool Session::WaitForLanes(Deadline deadline)
{
    const auto mayOpen = [this] { return control_.HasSentHello() || GetState() != State::CONNECTING; };
    if (mayOpen()) {
        return true;
    }
    MutexLock lock(mutex_);
    return lock.WaitUntil(changed_, deadline, mayOpen);
}

int Session::Call(const CallRequest& request)
{
    using Lane = CallResult::Lane;
    for (;;) {
        // A lane may be opened before the session is established: the peer reads the control hello first. That saves
        // the first call one round trip.
        if (GetState() == State::CONNECTING && !WaitForLanes(request.deadline)) {
            return IPC_TIMED_OUT;
        }
        const auto [lane, status] = callLanes_.Take(request.deadline);
        if (lane == nullptr) {
            return status;
        }
        const CallResult result = lane->Call(request, references_, budget_);
        if (result.lane == Lane::REUSABLE) {
            callLanes_.Return(lane);
            return result.status;
        }
        callLanes_.Drop(lane);
        if (result.lane == Lane::FINISHED) {
            return result.status;
        }
        // The lane ended before a byte of the request was sent, so sending the request again on another lane runs it at
        // most once.
        if (result.lane == Lane::UNUSED && WaitEstablished(request.deadline) == State::ESTABLISHED) {
            continue;
        }
        if (result.lane == Lane::NO_REPLY) {
            // The request was sent on a session that is still CONNECTING, and the lane ended without a reply.
            WaitEstablished(request.deadline);  // If the peer refuses the session, its end is about to be noticed.
        }
        // The kernel may report the end of the lane before the control thread has noticed the death. The session's
        // state decides which of the two errors the caller gets.
        return result.status == IPC_BROKEN && GetState() == State::DEAD ? IPC_DEAD_OBJECT : result.status;
    }
}

int Session::SendOneWay(ConnectionKind kind, uint64_t serial, uint32_t code, MessageParcel& data, Deadline deadline,
                        MessagePlace& place)
{
    switch (WaitEstablished(deadline)) {
        case State::CONNECTING:
            return IPC_TIMED_OUT;
        case State::DEAD:
            return IPC_DEAD_OBJECT;
        default:
            return LaneOf(kind).Send(serial, code, data, place);
    }
}

bool Session::CloseIdleLanes(Clock::time_point before)
{
    // Both are called: `||` in one expression would skip the call lanes while there are rings.
    const bool haveRings = inLanes_.EndIdleRings(before);
    return callLanes_.CloseIdle(before) || haveRings;
}

void Session::Suspect()
{
    if (!isSuspect_.exchange(true)) {
        // The answer, whenever it comes, clears the mark. exchange() makes this one PING for all callers that time out
        // together.
        control_.Send({RecordType::PING, 0, id_, 0});
    }
}

bool Session::OnRecord(const ControlRecord& record)
{
    // An unknown flag or type is of a later protocol version, which this process could not serve correctly.
    if ((record.flags & ~ControlRecord::OWN_LANE) != 0) {
        return false;
    }
    const LaneKey lane = KeyOf(record);
    switch (record.type) {
        case RecordType::RELEASE:
            return held_.OnRelease(record.a, record.b);
        case RecordType::ACQUIRE:
            held_.OnAcquire(record.a);
            return true;
        case RecordType::ACQUIRED:
            return proxies_.OnAcquired(record.a, record.b != 0);
        case RecordType::TAKEN:
            held_.OnTaken(lane, record.b);
            return true;
        case RecordType::LANE_CLOSED:
            held_.OnLaneClosed(lane, record.b);
            if (lane.own) {
                // Only the one-way lane learns it from a record. A call lane has a thread in recv(), which sees the end
                // of its socket.
                oneWay_.OnClosedByPeer(lane.number);
            }
            return true;
        case RecordType::AFTER:
            return held_.OnAfter(lane, record.b);
        case RecordType::RING:
            return OnRing(lane, record.b);
        case RecordType::PING:
            control_.Send({RecordType::PONG, 0, record.a, 0});
            return true;
        case RecordType::PONG:
            isSuspect_.store(false, std::memory_order_relaxed);
            return true;
    }
    return false;
}

bool Session::OnRing(LaneKey lane, uint64_t descriptor)
try {
    if (const auto callLane = callLanes_.Find(lane.number); callLane == nullptr) {
        oneWay_.OfferRing(lane.number, RingWriter::Open(identity_.pid, descriptor, context_.peer, lane.number));
    } else if (callLane->page.Get() == nullptr) {
        callLane->page.Set(CallPage::Open(identity_.pid, descriptor, context_.peer, lane.number));
    }
    // Memory is offered for a lane of this process only; anything else breaks the protocol.
    return lane.own;
} catch (const std::bad_alloc&) {
    return true;  // An offer need not be accepted.
}

}  // namespace TAVO::Transport
