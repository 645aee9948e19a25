// SPDX-License-Identifier: Apache-2.0
// Acknowledges the references of one message when nobody has to settle any of them any more.
#ifndef TAVO_TRANSPORT_TAKEN_TICKET_H
#define TAVO_TRANSPORT_TAKEN_TICKET_H

#include <memory>
#include <utility>

#include "transport/session.h"

namespace TAVO::Transport {

class TakenTicket {
public:
    TakenTicket(std::shared_ptr<Session> session, LaneKey lane, uint64_t number)
        : session_(std::move(session)), lane_(lane), number_(number)
    {
        session_->BeginTicket();
    }
    ~TakenTicket()
    {
        session_->EndTicket();  // First: the sender may pass another message as soon as it has the acknowledgement.
        session_->Post({RecordType::TAKEN, lane_.own ? ControlRecord::OWN_LANE : 0U, lane_.number, number_});
    }
    TakenTicket(const TakenTicket&) = delete;
    TakenTicket& operator=(const TakenTicket&) = delete;

private:
    const std::shared_ptr<Session> session_;
    const LaneKey lane_;
    const uint64_t number_;
};

}  // namespace TAVO::Transport

#endif
