// SPDX-License-Identifier: Apache-2.0
// Holds the remote object that a proxy sends to.
#ifndef TAVO_PEER_HOLDER_H
#define TAVO_PEER_HOLDER_H

#include "tavo/export.h"
#include "tavo/iremote_object.h"

namespace TAVO {

class TAVO_EXPORT PeerHolder {
public:
    virtual ~PeerHolder();

protected:
    explicit PeerHolder(const sptr<IRemoteObject>& object) : object_(object) {}

    // Null for a proxy that was made of nothing; never changes.
    const sptr<IRemoteObject>& Remote() const { return object_; }

private:
    const sptr<IRemoteObject> object_;
};

}  // namespace TAVO

#endif
