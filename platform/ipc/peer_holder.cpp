// SPDX-License-Identifier: Apache-2.0
#include "tavo/peer_holder.h"

namespace TAVO {

PeerHolder::~PeerHolder() = default;

}  // namespace TAVO
