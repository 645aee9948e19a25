// SPDX-License-Identifier: Apache-2.0
// A local object that other processes can send requests to.
#ifndef TAVO_IPC_OBJECT_STUB_H
#define TAVO_IPC_OBJECT_STUB_H

#include <cstdint>
#include <memory>
#include <string>

#include "tavo/export.h"
#include "tavo/iremote_object.h"
#include "tavo/message_parcel.h"

namespace TAVO {

namespace Transport {
class ObjectGate;
}  // namespace Transport

// Lives as long as this process or a peer holds a reference. Its requests run on platform workers, several at once (at
// most 12, or one at a time with `serialInvoke`); further ones wait without a thread. Unless they run one at a time, a
// request whose handler waits for the answer to a call of its own is not counted: the callee may call the object back.
class TAVO_EXPORT IPCObjectStub : public IRemoteObject {
public:
    // Request codes of the platform, answered by OnRemoteRequest below for every object.
    static constexpr uint32_t CODE_PING = 0x5f504e47;        // no data, no reply, status 0
    static constexpr uint32_t CODE_DESCRIPTOR = 0x5f444553;  // reply: String16, the descriptor

    explicit IPCObjectStub(std::u16string descriptor = std::u16string(), bool serialInvoke = false);
    ~IPCObjectStub() override;

    // Handles one request; the platform calls it on a worker, which blocks all signals except those of a fault. The
    // result is the status that the sender's SendRequest returns; `reply` is sent with any status. An exception becomes
    // IPC_EXCEPTION. An override passes codes that it does not know to this function, which answers the platform's own
    // codes and returns IPC_UNKNOWN_CODE for all others.
    virtual int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option);

    // A request to a local object is handled on a worker too, never inside this call; `data` is consumed.
    int SendRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override;
    bool AddDeathRecipient(const sptr<DeathRecipient>& recipient) override;     // false: local
    bool RemoveDeathRecipient(const sptr<DeathRecipient>& recipient) override;  // false: local
    bool IsAlive() const override { return true; }
    const std::u16string& Descriptor() const override { return descriptor_; }

    // True for the few objects of the platform itself whose one-way requests run on the delivery thread, where death
    // notices run too, so that no request handler can delay them.
    virtual bool RunsOnDeliveryThread() const noexcept { return false; }

private:
    friend class Transport::ObjectGate;

    const std::u16string descriptor_;
    const std::shared_ptr<Transport::ObjectGate> gate_;  // bounds concurrent requests; names the object on the wire
};

}  // namespace TAVO

#endif
