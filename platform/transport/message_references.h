// SPDX-License-Identifier: Apache-2.0
// References in messages: from the parcel into the reference table of a frame, and back.
#ifndef TAVO_TRANSPORT_MESSAGE_REFERENCES_H
#define TAVO_TRANSPORT_MESSAGE_REFERENCES_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "os/fd.h"
#include "tavo/message_parcel.h"
#include "transport/held_objects.h"
#include "transport/proxy_table.h"
#include "transport/session_context.h"
#include "wire/reference_table.h"
#include "wire/wire.h"

namespace TAVO::Transport {

class PendingAcknowledgement;

// The references in the messages of one session. Any thread.
class MessageReferences {
public:
    MessageReferences(const SessionContext& context, ControlChannel& control, HeldObjects& held, ProxyTable& proxies)
        : context_(context), control_(control), held_(held), proxies_(proxies)
    {
    }

    // Appends the reference table for message `number` of `lane` to `data`, and passes what it names to the peer. An
    // IpcStatus; IPC_BROKEN when the lane is closed. Waits until `deadline` for an object of the peer's that is not yet
    // acquired from it.
    int Pass(LaneKey lane, uint64_t number, MessageParcel& data, FrameHeader& header, Deadline deadline);
    // Releases the references of a message of which nothing was sent.
    void Withdraw(LaneKey lane, uint64_t number) { held_.Withdraw(lane, number); }
    // Cuts the table off `data` (a received body) and puts the objects in its place. False: rejected as a whole.
    bool Take(LaneKey lane, const FrameHeader& header, MessageParcel& data);

    // Around the time in which a message of the peer is not acknowledged.
    void BeginMessage() noexcept { unacknowledged_.fetch_add(1); }
    void Acknowledge(LaneKey lane, uint64_t number);

private:
    using Objects = std::vector<sptr<IRemoteObject>>;
    // Fills in what can be found; false, and some are null, when one is refused.
    bool FindObjects(const std::shared_ptr<PendingAcknowledgement>& message,
                     const std::vector<ReferenceTableEntry>& entries, Objects& objects);
    // The sender has counted the objects that became no proxy: returns those counts.
    void ReturnCounts(const std::vector<ReferenceTableEntry>& entries, const Objects& objects);

    const SessionContext& context_;
    ControlChannel& control_;
    HeldObjects& held_;
    ProxyTable& proxies_;
    std::atomic<size_t> unacknowledged_{0};  // messages of the peer with references
};

// Acknowledges the references of one message once the last of its objects is acquired, or known to be dead. Shared by
// the message itself, while it is read, and by each object that is being acquired.
class PendingAcknowledgement {
public:
    PendingAcknowledgement(std::shared_ptr<MessageReferences> references, LaneKey lane, uint64_t number)
        : references_(std::move(references)), lane_(lane), number_(number)
    {
        references_->BeginMessage();
    }
    ~PendingAcknowledgement() { references_->Acknowledge(lane_, number_); }
    PendingAcknowledgement(const PendingAcknowledgement&) = delete;
    PendingAcknowledgement& operator=(const PendingAcknowledgement&) = delete;

private:
    const std::shared_ptr<MessageReferences> references_;
    const LaneKey lane_;
    const uint64_t number_;
};

}  // namespace TAVO::Transport

#endif
