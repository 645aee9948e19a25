// SPDX-License-Identifier: Apache-2.0
// Sending: each object of the message gets an entry of the table. Those of this process are exported and counted, those
// of others are kept alive until the peer acknowledges the message. Receiving: first everything that can be refused is
// looked up, then proxies are made. A message is accepted or rejected as a whole.
#include "transport/message_references.h"

#include <new>
#include <utility>

#include "base/parcel_access.h"
#include "transport/session_host.h"

namespace TAVO::Transport {

int MessageReferences::Pass(LaneKey lane, uint64_t number, MessageParcel& data, FrameHeader& header, Deadline deadline)
try {
    ReferenceTableWriter writer(data);
    std::vector<std::pair<uint64_t, sptr<IPCObjectStub>>> own;
    HeldObjects::Passed passed;
    for (const auto& reference : ParcelAccess::References(data)) {
        TableEntry entry;
        entry.offset = reference.offset;
        // An object of another process, possibly the receiver itself: then the reference goes home, and the receiver
        // finds its own stub.
        if (auto* proxy = dynamic_cast<PeerObject*>(reference.object.Get()); proxy != nullptr) {
            if (proxy->Owner() == context_.peer && proxy->WaitReady(deadline) == IPC_TIMED_OUT) {
                return IPC_TIMED_OUT;  // The message would arrive before the peer knows that we hold its object.
            }
            entry.instance = proxy->Owner();
            entry.serial = proxy->Serial();
            // Kept until the receiver has acknowledged the message, since it acquires a count of its own from the owner
            // only after it has read the table.
            passed.borrowed.push_back(reference.object);
        } else if (auto* stub = dynamic_cast<IPCObjectStub*>(reference.object.Get()); stub != nullptr) {
            entry.instance = context_.host.Self();
            // The first export of the process also opens its socket, so that others can connect to it.
            entry.serial = context_.host.Export(sptr<IPCObjectStub>(stub));
            if (entry.serial == 0) {
                return IPC_NO_RESOURCES;
            }
            passed.raised.push_back(entry.serial);
            own.emplace_back(entry.serial, stub);
        }
        if (entry.serial == 0 || !writer.Add(entry, reference.object->Descriptor())) {
            return IPC_BAD_MESSAGE;  // Neither ours nor a proxy, or a root object: the peer could not call it.
        }
    }
    if (const int status = held_.Pass(lane, number, std::move(passed), own); status != IPC_OK) {
        return status;
    }
    // After this status the caller sends nothing and withdraws the counts.
    return writer.Finish(header) ? IPC_OK : IPC_NO_RESOURCES;
} catch (const std::bad_alloc&) {
    return IPC_NO_RESOURCES;
}

bool MessageReferences::Take(LaneKey lane, const FrameHeader& header, MessageParcel& data)
try {
    if (header.references == 0) {
        return true;  // Then the header allows no table either.
    }
    std::vector<ReferenceTableEntry> entries;
    if (!ReadReferenceTable(header, data, entries)) {
        return false;
    }
    // The table was received into the parcel behind the data. It must not be readable by the handler.
    ParcelAccess::Truncate(data, header.dataBytes);
    Objects objects(entries.size());
    // Its destructor sends TAKEN. Each proxy that is being acquired holds a reference to it, so TAKEN is sent when the
    // last of them is acquired, also if the message is refused below.
    const auto message = std::make_shared<PendingAcknowledgement>(
        std::shared_ptr<MessageReferences>(context_.session.lock(), this), lane, header.number);
    if (!FindObjects(message, entries, objects)) {
        ReturnCounts(entries, objects);
        return false;
    }
    auto& references = ParcelAccess::References(data);
    for (size_t i = 0; i < entries.size(); ++i) {
        references.push_back({entries[i].fixed.offset, std::move(objects[i])});
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

bool MessageReferences::FindObjects(const std::shared_ptr<PendingAcknowledgement>& message,
                                    const std::vector<ReferenceTableEntry>& entries, Objects& objects)
{
    const Instance& self = context_.host.Self();
    if (unacknowledged_ > HeldObjects::MAX_PASSED) {  // This one included. A correct sender has stopped before that.
        return false;
    }
    for (size_t i = 0; i < entries.size(); ++i) {
        // The peer sent an object of this process that it does not hold. Checked before any proxy is made, so that a
        // refused message leaves nothing behind.
        if (entries[i].fixed.instance == self && (objects[i] = held_.Find(entries[i].fixed.serial)) == nullptr) {
            return false;
        }
    }
    for (size_t i = 0; i < entries.size(); ++i) {
        const auto& [entry, descriptor] = entries[i];
        if (entry.instance == context_.peer) {
            // The sender has counted this reference when it wrote it, so the proxy adds one to what it will return.
            objects[i] = proxies_.AddReceived(entry.serial, descriptor);
        } else if (entry.instance != self) {
            objects[i] = context_.host.AcquireFrom(entry.instance, entry.serial, descriptor, message);
        }
        if (objects[i] == nullptr) {
            return false;
        }
    }
    return true;
}

void MessageReferences::ReturnCounts(const std::vector<ReferenceTableEntry>& entries, const Objects& objects)
{
    for (size_t i = 0; i < entries.size(); ++i) {
        if (objects[i] == nullptr && entries[i].fixed.instance == context_.peer) {
            // For objects of the peer for which no proxy was made: the peer has counted them, and no
            // proxy will return them.
            control_.SendRelease(entries[i].fixed.serial, 1, {});
        }
    }
}

void MessageReferences::Acknowledge(LaneKey lane, uint64_t number)
{
    unacknowledged_.fetch_sub(1);  // First: the sender may pass another message as soon as it has the acknowledgement.
    control_.Send({RecordType::TAKEN, lane.own ? ControlRecord::OWN_LANE : 0U, lane.number, number});
}

}  // namespace TAVO::Transport
