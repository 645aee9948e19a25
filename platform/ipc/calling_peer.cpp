// SPDX-License-Identifier: Apache-2.0
// Who is calling: the request in hand knows, otherwise this process itself.
#include "tavo/calling_peer.h"

#include <unistd.h>

#include "transport/transport.h"

namespace TAVO {

CallingPeer GetCallingPeer()
{
    const CallingPeer* const current = Transport::CurrentCaller();
    return current != nullptr ? *current : CallingPeer{::getpid(), ::geteuid(), 0};
}

bool IsOfCaller(const sptr<IRemoteObject>& object)
{
    return object != nullptr && Transport::OwnerSession(object) == GetCallingPeer().session;
}

}  // namespace TAVO
