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
    const bool mayRunHere = role != Transport::ThreadRole::CONTROL && role != Transport::ThreadRole::DELIVERY;
    // A forked child has no workers, and must not wake up those of its parent.
    if (mayRunHere || InForkedChild()) {
        delete this;
        return;
    }
    // A destructor of the user may wait for anything, and these two threads must not. If there is no memory to pass it
    // to a worker, the object leaks.
    Transport::RunOnWorker([this] { delete this; });
}

}  // namespace TAVO
