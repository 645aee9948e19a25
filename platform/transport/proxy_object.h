// SPDX-License-Identifier: Apache-2.0
// This process's one stand-in for an object of another process.
#ifndef TAVO_TRANSPORT_PROXY_OBJECT_H
#define TAVO_TRANSPORT_PROXY_OBJECT_H

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tavo/iremote_object.h"
#include "tavo/mutex.h"
#include "transport/session.h"

namespace TAVO::Transport {

class ProxyObject final : public IRemoteObject {
public:
    enum class Life {
        PENDING,  // named by a third process, not yet acquired from its owner
        ALIVE,
        DEAD,
    };

    ProxyObject(std::shared_ptr<Session> session, uint64_t serial, std::u16string descriptor, Life life);
    ~ProxyObject() override;

    int SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool IsAlive() const override;
    const std::u16string& Descriptor() const override { return descriptor_; }

    const std::shared_ptr<Session>& Owner() const noexcept { return session_; }
    uint64_t Serial() const noexcept { return serial_; }
    int SendNotice(uint32_t code, MessageParcel& data);
    // IPC_OK once the owner is known to have the object; waits for that at most until `deadline`.
    int Ready(Deadline deadline);

    // For the session. Marking never calls anybody: recipients are told on the delivery thread.
    Life GetLife() const noexcept { return life_.load(std::memory_order_acquire); }
    void MarkAlive() noexcept;
    void MarkDead() noexcept;
    // Tells those that are registered, one after the other. Delivery thread.
    void NotifyRecipients() noexcept;
    // The next dead object whose recipients are to be notified; guarded by the delivery thread's lock.
    sptr<ProxyObject> nextDead;
    // Counts that this proxy has to give back; guarded by the session's lock.
    uint64_t received = 0;
    // The last one-way request, behind which the counts go back. Written under the lane's lock (an object gets either
    // one-way requests or notices), read when nobody can send any more.
    LanePlace lastOneWay;

protected:
    void OnLastStrongRef() const noexcept override;

private:
    const std::shared_ptr<Session> session_;
    const uint64_t serial_;
    const std::u16string descriptor_;
    std::atomic<Life> life_;
    Mutex mutex_;
    std::vector<sptr<DeathRecipient>> recipients_ TAVO_GUARDED_BY(mutex_);  // one entry a registration
};

}  // namespace TAVO::Transport

#endif
