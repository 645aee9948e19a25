// SPDX-License-Identifier: Apache-2.0
// Who is calling: the request in hand knows, otherwise this process itself.
#include "tavo/calling_peer.h"

#include <unistd.h>

#include "transport/threads.h"

namespace TAVO {

CallingPeer GetCallingPeer()
{
    const CallingPeer* const current = Transport::CallingPeerScope::Current();
    return current != nullptr ? *current : CallingPeer{::getpid(), ::geteuid(), 0};
}

}  // namespace TAVO
