// SPDX-License-Identifier: Apache-2.0
// An object to which requests can be sent, in this process or in another.
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
// called from any thread. References are sent in messages (MessageParcel::WriteRemoteObject).
//
// Order: requests of one thread run in the order in which it sent them; one-way requests to another process run in the
// order sent, one at a time; the two kinds have no order between them. One-way requests to a local object run several
// at once and in any order, unless it runs its requests one at a time (IPCObjectStub). A death notice may overtake
// one-way requests that still run.
class TAVO_EXPORT IRemoteObject : public Parcelable {
public:
    // Notified when the process of a remote object dies or the connection to it breaks.
    class TAVO_EXPORT DeathRecipient : public virtual RefBase {
    public:
        // Runs on a platform thread, never inside the call that caused it; at most once per registration. All
        // notices run on one thread, so a recipient that is added in OnRemoteDied is notified after that has returned.
        // `object` is the proxy of the dead object, if it still exists.
        virtual void OnRemoteDied(const wptr<IRemoteObject>& object) = 0;
        ~DeathRecipient() override;
    };

    ~IRemoteObject() override;

    // Sends `data` and, unless `option` is one-way, waits for the answer, at most for the option's wait time. Returns
    // 0, a value of IpcStatus, or the handler's own status; `reply` has what the handler wrote, whatever it returned. A
    // request is sent at most once. A one-way request never waits for its receiver: if the receiver's queue is full the
    // result is IPC_QUEUE_FULL (the queue of a local object has no limit). Only connecting to the object's process for
    // the first time may take up to the wait time.
    virtual int SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) = 0;

    // Registers `recipient`, once for each call; the object holds a strong reference to it until it is notified or
    // removed. False if the object is dead already (no notice follows), local, or `recipient` is null.
    // AddDeathRecipient and RemoveDeathRecipient neither wait for a delivery in progress nor call the user's code.
    virtual bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) = 0;
    // Removes one registration. False if there was none. After it has returned the recipient is not notified, unless a
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
    // The last reference of an object may be released by a platform thread that must not run user code: the object is
    // then destroyed on a worker.
    void OnLastStrongRef() const noexcept override;
};

}  // namespace TAVO

#endif
