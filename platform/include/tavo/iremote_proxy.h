// SPDX-License-Identifier: Apache-2.0
// Base of a proxy class: interface T over a remote object.
#ifndef TAVO_IREMOTE_PROXY_H
#define TAVO_IREMOTE_PROXY_H

#include "tavo/iremote_broker.h"
#include "tavo/peer_holder.h"

namespace TAVO {

template <typename T>
class IRemoteProxy : public PeerHolder, public T {
public:
    explicit IRemoteProxy(const sptr<IRemoteObject>& object) : PeerHolder(object) {}
    ~IRemoteProxy() override = default;

    sptr<IRemoteObject> AsObject() override { return Remote(); }
};

}  // namespace TAVO

#endif
