// SPDX-License-Identifier: Apache-2.0
// An object that requests can be sent to, whichever process it lives in.
#ifndef TAVO_IREMOTE_OBJECT_H
#define TAVO_IREMOTE_OBJECT_H

#include <cstdint>
#include <string>

#include "tavo/export.h"
#include "tavo/ipc_status.h"
#include "tavo/message_option.h"
#include "tavo/parcel.h"
#include "tavo/ref_base.h"

namespace TAVO {

class IRemoteBroker;
class MessageParcel;

// Either a local object (IPCObjectStub) or this process's only proxy of an object elsewhere. All operations may be
// called from any thread. References travel in messages (MessageParcel::WriteRemoteObject).
//
// Order: requests of one thread run in the order in which it sent them; one-way requests to one process run in the
// order sent, one at a time; nothing is promised between the two kinds. A death notice may overtake one-way requests
// that still run.
class TAVO_EXPORT IRemoteObject : public Parcelable {
public:
    // Told when the process of a remote object dies or the connection to it breaks.
    class TAVO_EXPORT DeathRecipient : public virtual RefBase {
    public:
        // Runs on a platform thread, never inside the call that caused it and never on the thread that added the
        // recipient; at most once per registration. `object` is what died; it may be gone already.
        virtual void OnRemoteDied(const wptr<IRemoteObject>& object) = 0;
        ~DeathRecipient() override;
    };

    ~IRemoteObject() override;

    // Sends `data` and, unless `option` is one-way, waits for the answer at most the option's wait time. Returns 0, a
    // value of IpcStatus, or the handler's own status; what the handler wrote is in `reply` whatever it returned.
    // A request is sent at most once. One-way never waits for its receiver: a full one is IPC_QUEUE_FULL. Only the
    // first contact with the object's process may take its time, likewise at most the wait time.
    virtual int SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) = 0;

    // Registers `recipient`, once per call; the object holds a strong reference to it until it was told or removed.
    // False when the object is dead already (no notice follows), local, or `recipient` is null. Neither of the two
    // waits for a delivery in progress nor calls anybody.
    virtual bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) = 0;
    // Takes one registration back. False when there was none. After it returned the recipient is not told, unless a
    // delivery had already begun.
    virtual bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) = 0;

    // False once the death of the object's process is known here. A local object is always alive.
    virtual bool IsAlive() const = 0;

    // The descriptor of the interface that the object serves, as its owner named it; never changes.
    virtual const std::u16string& Descriptor() const = 0;

    // The local object as its interface; null for a proxy. iface_cast is the way to an interface.
    virtual sptr<IRemoteBroker> AsInterface();

    // Writes a reference to the object. Only a MessageParcel can carry one; false for any other parcel.
    bool Marshalling(Parcel& parcel) const override;

protected:
    // The last reference of an object may be dropped by a platform thread that must not run user code: the object is
    // then destroyed on a worker.
    void OnLastStrongRef() const noexcept override;
};

}  // namespace TAVO

#endif
