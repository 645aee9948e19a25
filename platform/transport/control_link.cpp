// SPDX-License-Identifier: Apache-2.0
// Reads control connections and hellos, never more than there is.
#include "transport/control_link.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "base/warn_limited.h"

namespace TAVO::Transport {
namespace {

constexpr size_t ACCEPTS_PER_TURN = 64;
constexpr int READS_PER_TURN = 64;

}  // namespace

ControlLink::ControlLink(ControlThread& control, std::shared_ptr<Session> session, ConnectionFd fd,
                         const PeerIdentity& identity, bool answered)
    : control_(control), session_(std::move(session)), fd_(std::move(fd)), identity_(identity), answered_(answered)
{
}

ControlLink::~ControlLink()
{
    session_->Control().Detach(fd_.Get());
}

void ControlLink::WatchProcess()
try {
    bool hasEnded = false;
    UniqueFd pidFd = OpenPeerPidFd(fd_.Get(), identity_.pid, hasEnded);
    if (hasEnded) {
        control_.OnEnd(*this);
    } else if (pidFd.IsOpen()) {
        process_ = std::make_unique<Process>(*this, std::move(pidFd));
        if (!control_.AddPoll(process_->Fd(), EPOLLIN, process_.get())) {
            process_.reset();  // The end of the connection tells as well.
        }
    }
} catch (const std::bad_alloc&) {
    process_.reset();
}

void ControlLink::ShutDown() noexcept
{
    fd_.ShutDown();
}

void ControlLink::StopWatching()
{
    control_.RemovePoll(fd_.Get(), this);
    if (process_ != nullptr) {
        control_.RemovePoll(process_->Fd(), process_.get());
    }
}

void ControlLink::OnReady(uint32_t events)
{
    const bool hasRoom = (events & EPOLLOUT) != 0;
    const bool hasNews = (events & ~static_cast<uint32_t>(EPOLLOUT)) != 0;
    if ((hasRoom && !session_->Control().Flush()) || (hasNews && !ReadAll())) {
        control_.OnEnd(*this);
    }
}

void ControlLink::OnProcessEnd()
{
    ReadAll();
    control_.OnEnd(*this);
}

bool ControlLink::ReadAll()
try {
    for (int turn = 0; turn < READS_PER_TURN; ++turn) {
        const IoResult got = ReceiveNow(fd_.Get(), buffer_.data() + filled_, buffer_.size() - filled_);
        if (got.status != IoStatus::OK) {
            return got.status == IoStatus::WOULD_BLOCK;
        }
        filled_ += got.bytes;
        if (!TakeRecords()) {
            return false;
        }
    }
    return true;
} catch (const std::bad_alloc&) {
    WarnLimited("out of memory", "a session was closed");  // What a record said would be missed for ever.
    return false;
}

bool ControlLink::TakeRecords()
{
    size_t used = 0;
    if (!answered_) {
        if (filled_ < sizeof(Hello)) {
            return true;
        }
        Hello answer;
        std::memcpy(&answer, buffer_.data(), sizeof(answer));
        used = sizeof(answer);
        if (!answer.IsAcceptance()) {
            if (answer.IsValid()) {
                control_.OnAnswer(*this, answer);
            }
            return false;
        }
        control_.OnAnswer(*this, answer);
        if (session_->GetState() != Session::State::ESTABLISHED) {
            return false;
        }
    }
    for (; filled_ - used >= sizeof(ControlRecord); used += sizeof(ControlRecord)) {
        ControlRecord record;
        std::memcpy(&record, buffer_.data() + used, sizeof(record));
        if (!session_->OnRecord(record)) {
            WarnLimited("a peer sent an invalid control record", "its session was closed");
            return false;
        }
    }
    std::memmove(buffer_.data(), buffer_.data() + used, filled_ - used);
    filled_ -= used;
    return true;
}

void PendingConnection::OnReady(uint32_t)
{
    if (IsComplete()) {
        control_.OnConnectionSettled(this);  // It waited for its session, and something came or it hung up: too early.
        return;
    }
    const IoResult got = ReceiveNow(fd_.Get(), reinterpret_cast<uint8_t*>(&hello_) + got_, sizeof(hello_) - got_);
    got_ += got.bytes;
    if (got.status == IoStatus::CLOSED) {
        control_.OnConnectionSettled(this);
        return;
    }
    if (!IsComplete()) {
        return;
    }
    if (!hello_.IsValid()) {
        WarnLimited("a connection did not begin with a hello of this version",
                    "closed; the peer may be of another release");
        control_.OnConnectionSettled(this);
        return;
    }
    Retry();
}

void PendingConnection::Retry()
{
    HelloResult result = HelloResult::SETTLED;
    try {
        result = control_.OnHello(fd_, hello_, identity_);
    } catch (const std::bad_alloc&) {
        WarnLimited("out of memory", "a connection was refused");
    }
    if (result == HelloResult::SETTLED) {
        control_.OnConnectionSettled(this);
        return;
    }
    if (result == HelloResult::AWAITS_ROOM) {
        deadline_ = Clock::time_point::max();  // It lasts as long as its caller waits.
    }
    epoll_event quiet{};  // Its request may lie there already; it is read once a worker has the lane.
    quiet.data.ptr = static_cast<Pollable*>(this);
    ::epoll_ctl(control_.Epoll(), EPOLL_CTL_MOD, fd_.Get(), &quiet);
}

void Listener::OnReady(uint32_t)
{
    Accept(ACCEPTS_PER_TURN);
}

void Listener::Accept(size_t most)
{
    for (size_t turn = 0; turn < most; ++turn) {
        ConnectionFd fd(AboveStandardFds(::accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
        if (fd.IsOpen()) {
            control_.OnAccepted(std::move(fd));
            continue;
        }
        if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            control_.RestListener(*this);
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

}  // namespace TAVO::Transport
