// SPDX-License-Identifier: Apache-2.0
// The thread of a session: all that may block happens here.
#ifndef VELTRA_SESSION_SESSION_THREAD_H
#define VELTRA_SESSION_SESSION_THREAD_H

#include <memory>
#include <optional>

#include "mailbox.h"
#include "tavo/mutex.h"

namespace TAVO::Veltra {

// Used by its own thread only.
class SessionThread {
public:
    explicit SessionThread(std::shared_ptr<Mailbox> mailbox);
    ~SessionThread();
    SessionThread(const SessionThread&) = delete;
    SessionThread& operator=(const SessionThread&) = delete;

    // Returns after Mailbox::Stop, with the subscriptions ended unless the thread was abandoned.
    void Run();

private:
    void Turn();
    void Connect(const sptr<IRemoteObject>& loaded);
    sptr<IRemoteObject> FindOrLoad();
    bool Adopt(const sptr<IRemoteObject>& object);
    void Subscribe();
    void Send(const Report& report);
    void Refresh();
    // Connected or not answering, by the result of a call that began then.
    void Judge(int32_t result, SteadyTime begin);
    void Disconnect();
    void Unsubscribe();

    const std::shared_ptr<Mailbox> mailbox_;
    const sptr<IGpNapiEventCallback> events_;
    const sptr<IGpuCounterNativeCallback> batches_;
    sptr<IRemoteObject> object_;                  // null: not connected
    sptr<IRemoteObject::DeathRecipient> notice_;  // of object_
    sptr<IVeltraServerInterface> service_;        // on object_
    bool isSubscribed_ = false;
    SteadyTime due_{};                // of the next reading, or the next attempt to connect
    SteadyTime loadEnds_{};           // until when the answer of a load is awaited
    std::optional<Report> gameInfo_;  // the latest
    uint64_t readings_ = 0;

    // The service keeps one subscription of each kind for a process: a thread that its session has left behind must not
    // subscribe after a later session, nor end that one's subscriptions. Held during the calls that do either.
    static Mutex subscribing_;
    static const SessionThread* subscriber_ TAVO_GUARDED_BY(subscribing_);  // the latest; for comparison only
};

}  // namespace TAVO::Veltra

#endif
