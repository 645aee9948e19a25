// SPDX-License-Identifier: Apache-2.0
// Acknowledges the references of one message once the last of its objects is acquired, or known to be dead.
#ifndef TAVO_TRANSPORT_PENDING_ACKNOWLEDGEMENT_H
#define TAVO_TRANSPORT_PENDING_ACKNOWLEDGEMENT_H

#include <memory>
#include <utility>

#include "transport/message_references.h"

namespace TAVO::Transport {

// Shared by the message itself, while it is read, and by each object that is being acquired.
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
