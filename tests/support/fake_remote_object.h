// SPDX-License-Identifier: Apache-2.0
// A remote object without a process behind it: records what is sent to it and answers as the test says.
#ifndef VELTRA_TESTS_SUPPORT_FAKE_REMOTE_OBJECT_H
#define VELTRA_TESTS_SUPPORT_FAKE_REMOTE_OBJECT_H

#include <functional>
#include <string>
#include <vector>

#include "tavo/iremote_object.h"
#include "tavo/message_parcel.h"
#include "tavo/mutex.h"

namespace TAVO::Veltra {

class FakeRemoteObject : public IRemoteObject {
public:
    // Reads `data` from its start, interface token first, writes `reply` and gives the status.
    using Answer = std::function<int(uint32_t code, MessageParcel& data, MessageParcel& reply)>;

    struct Request {
        uint32_t code;
        int flags;
        int waitTime;  // seconds
    };

    // By default a service that answers 0 and an empty reply to everything.
    explicit FakeRemoteObject(Answer answer = nullptr);
    FakeRemoteObject(Answer answer, std::u16string descriptor);
    static sptr<FakeRemoteObject> FailingWith(int status);

    int SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;
    bool IsAlive() const override;
    const std::u16string& Descriptor() const override { return descriptor_; }

    // Simulates the death of its process: when this returns, all recipients have been notified, on a thread of their
    // own.
    void Die();

    std::vector<Request> Requests() const;
    size_t DeathRecipients() const;

private:
    const Answer answer_;
    const std::u16string descriptor_;
    mutable Mutex mutex_;
    std::vector<Request> requests_ TAVO_GUARDED_BY(mutex_);
    std::vector<sptr<DeathRecipient>> recipients_ TAVO_GUARDED_BY(mutex_);
    bool isAlive_ TAVO_GUARDED_BY(mutex_) = true;
};

}  // namespace TAVO::Veltra

#endif
