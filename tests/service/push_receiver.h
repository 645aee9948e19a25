// SPDX-License-Identifier: Apache-2.0
// A callback object of some client: notes what is pushed to it, and blocks or fails as the test says.
#ifndef VELTRA_TESTS_SERVICE_PUSH_RECEIVER_H
#define VELTRA_TESTS_SERVICE_PUSH_RECEIVER_H

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "ipc/igp_napi_event_callback.h"
#include "support/fake_remote_object.h"
#include "support/notes.h"
#include "support/parcel_items.h"

namespace TAVO::Veltra {

class PushReceiver {
public:
    explicit PushReceiver(const std::u16string& descriptor = IGpNapiEventCallback::GetDescriptor())
        : object_(MakeRef<FakeRemoteObject>(
              [inbox = inbox_](uint32_t, MessageParcel& data, MessageParcel& reply) {
                  reply.WriteInt32(0);
                  inbox->pushes.Add(Bytes(data));
                  inbox->pushes.WaitForOpening();
                  return inbox->status.load();
              },
              descriptor))
    {
        Unblock();
    }
    ~PushReceiver() { Unblock(); }

    sptr<FakeRemoteObject> Object() const { return object_; }

    void Block() { inbox_->pushes.Open(false); }
    void Unblock() { inbox_->pushes.Open(); }
    void AnswerWith(int status) { inbox_->status = status; }

    // What has been pushed, token included, once that is at least `count`; fewer when the rest did not come.
    std::vector<std::string> WaitFor(size_t count) const { return inbox_->pushes.WaitFor(count); }
    size_t Count() const { return inbox_->pushes.Count(); }

private:
    struct Inbox {
        TestSupport::Notes pushes;
        std::atomic<int> status{0};
    };

    const std::shared_ptr<Inbox> inbox_ = std::make_shared<Inbox>();
    const sptr<FakeRemoteObject> object_;
};

// A push as the interface describes it.
inline std::string Push(const std::u16string& token, const Items& items)
{
    MessageParcel parcel;
    parcel.WriteInterfaceToken(token);
    WriteItems(parcel, items);
    return Bytes(parcel);
}

}  // namespace TAVO::Veltra

#endif
