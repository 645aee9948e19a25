// SPDX-License-Identifier: Apache-2.0
// An object of another process, as this process knows it: its name, whether it is alive, and its death recipients.
#ifndef TAVO_TRANSPORT_PEER_OBJECT_H
#define TAVO_TRANSPORT_PEER_OBJECT_H

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "os/fd.h"
#include "tavo/iremote_object.h"
#include "tavo/mutex.h"
#include "wire/wire.h"

namespace TAVO::Transport {

class PeerObject : public IRemoteObject {
public:
    enum class Life {
        PENDING,  // named by a third process, not yet acquired from its owner
        ALIVE,
        DEAD,
    };

    PeerObject(const Instance& owner, uint64_t serial, std::u16string descriptor, Life life);
    ~PeerObject() override;

    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    const std::u16string& Descriptor() const override { return descriptor_; }

    const Instance& Owner() const noexcept { return owner_; }
    uint64_t Serial() const noexcept { return serial_; }
    Life GetLife() const noexcept { return life_.load(std::memory_order_acquire); }
    // IPC_OK once the owner is known to have the object; waits for that at most until `deadline`.
    virtual int WaitReady(Deadline deadline) = 0;

    // Neither calls user code: recipients are notified on the delivery thread.
    void MarkAlive() noexcept;
    void MarkDead() noexcept;
    // Delivery thread: notifies those that are registered, one after the other.
    void NotifyRecipients() noexcept;

protected:
    // Has NotifyRecipients called on the delivery thread. Allocates nothing.
    virtual void PostDeath() noexcept = 0;

private:
    friend class DeliveryThread;
    friend class ProxyTable;

    const Instance owner_;
    const uint64_t serial_;
    const std::u16string descriptor_;
    std::atomic<Life> life_;
    Mutex mutex_;
    std::vector<sptr<DeathRecipient>> recipients_ TAVO_GUARDED_BY(mutex_);  // one entry a registration

    uint64_t received_ = 0;      // counts to be returned; guarded by the lock of the session's ProxyTable
    sptr<PeerObject> nextDead_;  // in the queue of the delivery thread, guarded by its lock
};

}  // namespace TAVO::Transport

#endif
