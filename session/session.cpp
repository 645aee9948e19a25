// SPDX-License-Identifier: Apache-2.0
// The public class: it owns the mailbox together with its thread, and the thread may be left behind. In a forked child
// there is no such thread, and locks may be held for ever; so nothing but Latest works there. A session that is opened
// in the child gets no thread.
#include "veltra_session.h"

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <thread>
#include <utility>

#include "mailbox.h"
#include "session_thread.h"
#include "tavo/ipc_threads.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

constexpr std::chrono::milliseconds END_WAIT{700};

// Blocks all signals but those of a fault, as the threads of the platform do, for the thread that is started meanwhile.
class BlockedSignals {
public:
    BlockedSignals()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
            sigdelset(&blocked, fault);
        }
        pthread_sigmask(SIG_SETMASK, &blocked, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before_;
};

void RunThread(const std::shared_ptr<Mailbox>& mailbox)
{
    pthread_setname_np(pthread_self(), "veltra-session");
    try {
        SessionThread(mailbox).Run();
    } catch (const std::bad_alloc&) {
        mailbox->SetState(ServiceState::UNAVAILABLE, IPC_NO_RESOURCES);
    }
    mailbox->NoteEnd();
}

}  // namespace

struct Session::Parts {
    explicit Parts(SessionOptions options) : mailbox(std::make_shared<Mailbox>(std::move(options))) {}

    const std::shared_ptr<Mailbox> mailbox;
    std::thread thread;

    bool Post(Report report) { return !IpcThreads::IsForkedChild() && mailbox->PostReport(std::move(report)); }
};

Session::Session(SessionOptions options) : parts_(std::make_unique<Parts>(std::move(options)))
{
    if (IpcThreads::IsForkedChild()) {
        return;  // Without a thread: its calls would fail, and the destructor could not wait for it.
    }
    const BlockedSignals blocked;
    try {
        // The thread shares the mailbox, not the session: it may outlive the session while a call to a service hangs.
        parts_->thread = std::thread(RunThread, parts_->mailbox);
    } catch (const std::system_error&) {  // no thread left
        parts_->mailbox->SetState(ServiceState::UNAVAILABLE, IPC_NO_RESOURCES);
    }
}

Session::~Session()
{
    std::thread& thread = parts_->thread;
    if (!thread.joinable()) {
        return;
    }
    if (IpcThreads::IsForkedChild()) {
        // The thread does not exist in the child; a joinable std::thread would end the process in its destructor.
        thread.detach();
        return;
    }
    parts_->mailbox->Stop();
    // A handler that destroys its session runs on this thread, which cannot join itself.
    const bool isOwnThread = thread.get_id() == std::this_thread::get_id();
    if (!isOwnThread && parts_->mailbox->WaitForEnd(std::chrono::steady_clock::now() + END_WAIT)) {
        thread.join();
    } else {
        thread.detach();
    }
}

DeviceSnapshot Session::Latest() const noexcept
{
    // Works in a forked child as well: the cell has no lock.
    return parts_->mailbox->latest.Load();
}

DeviceDetails Session::Details() const
{
    return IpcThreads::IsForkedChild() ? DeviceDetails() : parts_->mailbox->Details();
}

SessionStatus Session::Status() const
{
    if (IpcThreads::IsForkedChild()) {
        SessionStatus status;
        status.state = ServiceState::UNAVAILABLE;
        status.result = IPC_UNAVAILABLE;
        return status;
    }
    return parts_->mailbox->Status();
}

size_t Session::Dispatch(const SessionHandler& handler, std::chrono::milliseconds wait)
{
    if (IpcThreads::IsForkedChild() || parts_->mailbox->hasHandler) {
        return 0;
    }
    const auto deadline = wait.count() > 0 ? std::chrono::steady_clock::now() + wait : SteadyTime();
    std::optional<SessionEvent> event = parts_->mailbox->TakeEvent(deadline);
    size_t handled = 0;
    // As many as wait now: events that come meanwhile do not keep the game here.
    for (size_t most = event ? parts_->mailbox->CountEvents() + 1 : 0; event; ++handled) {
        handler(*event);
        event = handled + 1 < most ? parts_->mailbox->TakeEvent(SteadyTime()) : std::nullopt;
    }
    return handled;
}

bool Session::ReportGameEvent(GameInfo info)
{
    return parts_->Post({[info = std::move(info)](IVeltraServerInterface& service) mutable {
        service.ReportGameEvent(info);
        return RESULT_OK;
    }});
}

bool Session::UpdateGameInfo(int32_t first, std::string text, int32_t second)
{
    // Marked as game info: the last one is sent again to each new service, which does not know the game.
    const auto send = [first, text = std::move(text), second](IVeltraServerInterface& service) {
        return service.UpdateGameInfo(first, text, second);
    };
    return parts_->Post({send, true});
}

bool Session::ReportRenderThread(std::string first, std::string second, int32_t value)
{
    return parts_->Post(
        {[first = std::move(first), second = std::move(second), value](IVeltraServerInterface& service) {
            return service.ReportRenderThread(first, second, value);
        }});
}

bool Session::NotifyGameEvent(std::unique_ptr<GameSceneBundle> bundle)
{
    if (bundle == nullptr) {
        return false;
    }
    return parts_->Post({[scene = std::shared_ptr<GameSceneBundle>(std::move(bundle))](
                             IVeltraServerInterface& service) { return service.NotifyGameEvent(*scene); }});
}

bool Session::NotifyAppResourceDownLoadResults(std::vector<AppResourceDownLoadResult> results)
{
    return parts_->Post({[results = std::move(results)](IVeltraServerInterface& service) mutable {
        return service.NotifyAppResourceDownLoadResults(results);
    }});
}

}  // namespace TAVO::Veltra
