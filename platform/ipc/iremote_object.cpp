// SPDX-License-Identifier: Apache-2.0
// What local objects and proxies share.
#include "tavo/iremote_object.h"

#include "base/forked_child.h"
#include "os/threads.h"
#include "tavo/iremote_broker.h"
#include "tavo/message_parcel.h"
#include "transport/transport.h"

namespace TAVO {

IRemoteObject::DeathRecipient::~DeathRecipient() = default;

IRemoteObject::~IRemoteObject() = default;

sptr<IRemoteBroker> IRemoteObject::AsInterface()
{
    return nullptr;
}

bool IRemoteObject::Marshalling(Parcel& parcel) const
{
    auto* const message = dynamic_cast<MessageParcel*>(&parcel);
    return message != nullptr && message->WriteRemoteObject(sptr<IRemoteObject>(const_cast<IRemoteObject*>(this)));
}

void IRemoteObject::OnLastStrongRef() const noexcept
{
    const Transport::ThreadRole role = Transport::CurrentRole();
    if (InForkedChild()) {  // No worker came along, and the parent's are not to be woken.
        delete this;
        return;
    }
    if (role != Transport::ThreadRole::CONTROL && role != Transport::ThreadRole::DELIVERY) {
        delete this;
        return;
    }
    // The control thread must never wait, and a destructor may wait for anything.
    // These two threads must not run a destructor of the user's; without memory for the hand-over the object leaks.
    Transport::RunOnWorker([this] { delete this; });
}

}  // namespace TAVO
