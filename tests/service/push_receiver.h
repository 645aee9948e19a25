// SPDX-License-Identifier: Apache-2.0
// A callback object of some client: notes what is pushed to it, and blocks or fails as the test says.
#ifndef VELTRA_TESTS_PUSH_RECEIVER_H
#define VELTRA_TESTS_PUSH_RECEIVER_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <tavo/mutex.h>

#include "ipc/igp_napi_event_callback.h"
#include "service/request_items.h"
#include "support/fake_remote_object.h"

namespace TAVO::Veltra {

constexpr std::chrono::seconds PUSH_PATIENCE{30};  // only what never comes takes as long

class PushReceiver {
public:
    explicit PushReceiver(const std::u16string& descriptor = IGpNapiEventCallback::GetDescriptor())
        : inbox_(std::make_shared<Inbox>()),
          object_(MakeRef<FakeRemoteObject>(
              [inbox = inbox_](uint32_t, MessageParcel& data, MessageParcel& reply) {
                  reply.WriteInt32(0);
                  return inbox->Take(Bytes(data));
              },
              descriptor))
    {
    }
    ~PushReceiver() { Unblock(); }

    sptr<FakeRemoteObject> Object() const { return object_; }

    void Block() { inbox_->Set(&Inbox::isBlocked, true); }
    void Unblock() { inbox_->Set(&Inbox::isBlocked, false); }
    void AnswerWith(int status) { inbox_->Set(&Inbox::status, status); }

    // What has been pushed, token included, once that is at least `count`; fewer when the rest did not come.
    std::vector<std::string> WaitFor(size_t count) const
    {
        MutexLock lock(inbox_->mutex);
        lock.WaitUntil(inbox_->changed, std::chrono::steady_clock::now() + PUSH_PATIENCE,
                       [this, count]() TAVO_NO_THREAD_ANALYSIS { return inbox_->pushes.size() >= count; });
        return inbox_->pushes;
    }
    size_t Count() const { return WaitFor(0).size(); }

private:
    struct Inbox {
        int Take(const std::string& push)
        {
            MutexLock lock(mutex);
            pushes.push_back(push);
            changed.notify_all();
            lock.Wait(changed, [this]() TAVO_REQUIRES(mutex) { return !isBlocked; });
            return status;
        }
        template <typename Value>
        void Set(Value Inbox::*field, Value value)
        {
            MutexLock lock(mutex);
            this->*field = value;
            changed.notify_all();
        }

        Mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> pushes TAVO_GUARDED_BY(mutex);
        bool isBlocked = false;
        int status = 0;
    };

    const std::shared_ptr<Inbox> inbox_;
    const sptr<FakeRemoteObject> object_;
};

// A push as the interface describes it.
inline std::string Push(const std::u16string& token, const Items& items)
{
    MessageParcel parcel;
    parcel.WriteInterfaceToken(token);
    WriteItems(parcel, items, items.size());
    return Bytes(parcel);
}

}  // namespace TAVO::Veltra

#endif
