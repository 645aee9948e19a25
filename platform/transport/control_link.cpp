// SPDX-License-Identifier: Apache-2.0
// Reads what has arrived on a control connection, never waits for more. First comes the answer to our hello, unless the
// peer opened the connection; then records, which the session acts on. The link ends when the connection does, when the
// peer breaks the protocol, or when the kernel reports the end of its process: a forked child of the peer may keep the
// connection open after that.
#include "transport/control_link.h"

#include <sys/epoll.h>

#include <cstring>
#include <new>

#include "base/warn_limited.h"

namespace TAVO::Transport {
namespace {

constexpr int READS_PER_TURN = 64;

}  // namespace

ControlLink::ControlLink(EventLoop& loop, Owner& owner, std::shared_ptr<Session> session, ConnectionFd fd,
                         const PeerIdentity& identity, bool isAnswered)
    : loop_(loop),
      owner_(owner),
      session_(std::move(session)),
      fd_(std::move(fd)),
      identity_(identity),
      isAnswered_(isAnswered)
{
}

ControlLink::~ControlLink()
{
    // Under the channel's lock: afterwards no other thread sends on this descriptor, which is closed next and may be
    // reused by the kernel.
    session_->Control().Detach(fd_.Get());
}

void ControlLink::WatchProcess()
try {
    bool hasEnded = false;
    // When a process is killed and a forked child of it still holds the connection, the end of file comes only with the
    // end of the child. The pidfd becomes readable at the kill.
    UniqueFd pidFd = OpenPeerPidFd(fd_.Get(), identity_.pid, hasEnded);
    if (hasEnded) {
        EndLater();
    } else if (pidFd.IsOpen()) {
        process_ = std::make_unique<Process>(*this, std::move(pidFd));
        if (!loop_.AddPoll(process_->Fd(), EPOLLIN, process_.get())) {
            process_.reset();  // The end of the connection is noticed as well.
        }
    }
} catch (const std::bad_alloc&) {
    process_.reset();
}

void ControlLink::ShutDown() noexcept
{
    fd_.ShutDown();
}

void ControlLink::StopWatching() noexcept
{
    loop_.RemovePoll(fd_.Get(), this);
    if (process_ != nullptr) {
        loop_.RemovePoll(process_->Fd(), process_.get());
    }
}

void ControlLink::EndLater()
{
    // Not now: other connections may still have data that was sent before this end. The loop reads them first.
    loop_.EndLater(this);
    // The end is noticed once; a level-triggered epoll would report it in each round.
    StopWatching();
}

void ControlLink::OnReady(uint32_t events)
{
    const bool hasRoom = (events & EPOLLOUT) != 0;
    const bool hasNews = (events & ~static_cast<uint32_t>(EPOLLOUT)) != 0;
    if ((hasRoom && !session_->Control().Flush()) || (hasNews && !ReadAll())) {
        EndLater();
    }
}

void ControlLink::OnProcessEnd()
{
    // (What the process had sent before it ended.)
    ReadAll();
    EndLater();
}

bool ControlLink::ReadAll()
try {
    for (int turn = 0; turn < READS_PER_TURN; ++turn) {
        // A hello or a record may be split at any byte; the beginning of one stays in buffer_ for the next read. An end
        // with unread data of ours at the peer is ECONNRESET instead of an end of file; both are CLOSED.
        const IoResult got = ReceiveNow(fd_.Get(), buffer_.data() + filled_, buffer_.size() - filled_);
        if (got.status != IoStatus::OK) {
            return got.status == IoStatus::WOULD_BLOCK;
        }
        filled_ += got.bytes;
        const bool mayHaveMore = filled_ == buffer_.size();
        // Records of the peer may follow its answer in the same read.
        if (!isAnswered_ && filled_ >= sizeof(Hello) && !TakeAnswer()) {
            return false;
        }
        if (isAnswered_ && !TakeRecords()) {
            return false;
        }
        // What arrives from here on, or the end of the connection, is reported by the epoll: no call is spent on it.
        if (!mayHaveMore) {
            return true;
        }
    }
    return true;
} catch (const std::bad_alloc&) {
    WarnLimited("out of memory", "a session was closed");  // The effect of a record would be missing for ever.
    return false;
}

bool ControlLink::TakeAnswer()
{
    Hello answer;
    std::memcpy(&answer, buffer_.data(), sizeof(answer));
    Consume(sizeof(answer));
    if (answer.IsValid()) {
        owner_.OnAnswer(*this, answer);
    }
    return answer.IsAcceptance() && session_->GetState() == Session::State::ESTABLISHED;
}

bool ControlLink::TakeRecords()
{
    size_t used = 0;
    for (; filled_ - used >= sizeof(ControlRecord); used += sizeof(ControlRecord)) {
        ControlRecord record;
        std::memcpy(&record, buffer_.data() + used, sizeof(record));
        if (!session_->OnRecord(record)) {
            WarnLimited("a peer sent an invalid control record", "its session was closed");
            return false;
        }
    }
    Consume(used);
    return true;
}

void ControlLink::Consume(size_t bytes)
{
    std::memmove(buffer_.data(), buffer_.data() + bytes, filled_ - bytes);
    filled_ -= bytes;
}

}  // namespace TAVO::Transport
