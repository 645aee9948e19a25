// SPDX-License-Identifier: Apache-2.0
// The objects of the peer that this process has references to, one proxy each.
#ifndef TAVO_TRANSPORT_PROXY_TABLE_H
#define TAVO_TRANSPORT_PROXY_TABLE_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tavo/mutex.h"
#include "transport/control_channel.h"
#include "transport/peer_object.h"
#include "transport/session_context.h"

namespace TAVO::Transport {

class PendingAcknowledgement;

// Any thread, except for the record of the peer.
class ProxyTable {
public:
    static constexpr size_t MAX_OBJECTS = 65536;

    ProxyTable(const SessionContext& context, ControlChannel& control) : context_(context), control_(control) {}

    // A proxy for the peer's object, with one more count. Null: too many.
    sptr<PeerObject> AddReceived(uint64_t serial, const std::u16string& descriptor);
    // A proxy for the peer's object that a third process named in `message`. Acquired from the peer unless this process
    // holds it already. Null: too many.
    sptr<PeerObject> Acquire(uint64_t serial, const std::u16string& descriptor,
                             const std::shared_ptr<PendingAcknowledgement>& message);
    // The root object of a manager: never counted.
    sptr<PeerObject> Root();
    // The last reference of `proxy` is released: its counts are returned, behind the one-way request at `after`.
    void Forget(PeerObject* proxy, const MessagePlace& after);
    // Waits until it is known whether the peer still has the object of a pending proxy.
    void WaitSettled(const PeerObject& proxy, Deadline deadline);

    // The peer's answer to ACQUIRE; false when there was none.
    bool OnAcquired(uint64_t serial, bool isGone);
    // The session is dead, and all proxies are. Allocates nothing.
    void Close() noexcept;

private:
    struct Acquiring {
        sptr<PeerObject> proxy;
        std::vector<std::shared_ptr<PendingAcknowledgement>> messages;
    };

    sptr<PeerObject> Find(uint64_t serial) TAVO_REQUIRES(mutex_);
    sptr<PeerObject> Make(uint64_t serial, const std::u16string& descriptor, bool isAlive) TAVO_REQUIRES(mutex_);

    const SessionContext& context_;
    ControlChannel& control_;

    Mutex mutex_;                      // nothing is called, sent or released under it
    std::condition_variable settled_;  // a pending proxy became alive or dead
    std::unordered_map<uint64_t, PeerObject*> proxies_ TAVO_GUARDED_BY(mutex_);  // by serial
    std::unordered_map<uint64_t, Acquiring> acquiring_ TAVO_GUARDED_BY(mutex_);  // by serial
};

}  // namespace TAVO::Transport

#endif
