// SPDX-License-Identifier: Apache-2.0
// The one local object by which this process calls an object of another process.
#ifndef TAVO_TRANSPORT_PROXY_OBJECT_H
#define TAVO_TRANSPORT_PROXY_OBJECT_H

#include <memory>
#include <string>

#include "transport/peer_object.h"
#include "transport/session.h"

namespace TAVO::Transport {

// Sends requests through the session with the owner.
class ProxyObject final : public PeerObject {
public:
    ProxyObject(std::shared_ptr<Session> session, uint64_t serial, std::u16string descriptor, Life life);
    ~ProxyObject() override;

    int SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    bool IsAlive() const override;
    int WaitReady(Deadline deadline) override;
    int SendNotice(uint32_t code, MessageParcel& data);

    Session& GetSession() const noexcept { return *session_; }

protected:
    void PostDeath() noexcept override;
    void OnLastStrongRef() const noexcept override;

private:
    int Call(Life life, uint32_t code, MessageParcel& data, MessageParcel& reply, Deadline deadline);

    const std::shared_ptr<Session> session_;
    // The last one-way request, behind which the counts are returned. Written under the lane's lock (an object gets
    // either one-way requests or notices), read after the last send.
    MessagePlace lastOneWay_;
};

}  // namespace TAVO::Transport

#endif
