// SPDX-License-Identifier: Apache-2.0
// Each question of a tool is one request: token, payload, then a reply of a code and mostly a text. The sender's checks
// come first (no object, no room), then the platform's status, then the reply, which is whole or IPC_BAD_MESSAGE: a
// tool may meet a service of another version, so a text beyond the limit is refused as well. `answer` is set only with
// a whole reply, else it is empty. A batch of records is one-way: the service must never wait for a tool that reads
// slowly.
#include "control/control_proxies.h"

#include <tavo/message_parcel.h>

namespace TAVO::Veltra {

BrokerDelegator<VeltraControlProxy> VeltraControlProxy::delegator_;
BrokerDelegator<VeltraWatcherProxy> VeltraWatcherProxy::delegator_;

namespace {

constexpr int FIRST_CONTACT_SECONDS = 1;

// One request; `write` puts what follows the token. `answer` is null for a request whose reply is a code alone.
template <typename Write>
int32_t Call(const sptr<IRemoteObject>& object, ControlCode code, std::string* answer, Write write)
{
    if (answer != nullptr) {
        answer->clear();
    }
    if (object == nullptr) {
        return IPC_DEAD_OBJECT;
    }
    MessageParcel data;
    if (!data.WriteInterfaceToken(IVeltraControl::GetDescriptor()) || !write(data)) {
        return IPC_TOO_LARGE;
    }
    MessageParcel reply;
    MessageOption option;
    const int status = object->SendRequest(static_cast<uint32_t>(code), data, reply, option);
    if (status != IPC_OK) {
        return status;
    }
    int32_t result = 0;
    std::string text;
    const bool isWhole = reply.ReadInt32(result) && (answer == nullptr || reply.ReadString(text));
    // Checked after reading: the transport has limited the message to 64 MiB before.
    if (!isWhole || text.size() > MAX_CONTROL_ANSWER_BYTES) {
        return IPC_BAD_MESSAGE;
    }
    if (answer != nullptr) {
        *answer = std::move(text);
    }
    return result;
}

bool WriteNothing(MessageParcel&)
{
    return true;
}

}  // namespace

int32_t VeltraControlProxy::Describe(std::string& answer)
{
    return Call(Remote(), ControlCode::DESCRIBE, &answer, WriteNothing);
}

int32_t VeltraControlProxy::Explain(std::string& answer)
{
    return Call(Remote(), ControlCode::EXPLAIN, &answer, WriteNothing);
}

int32_t VeltraControlProxy::Watch(const std::string& filter, const sptr<IVeltraWatcher>& watcher, std::string& answer)
{
    return Call(Remote(), ControlCode::WATCH, &answer, [&](MessageParcel& data) {
        return data.WriteString(filter) && data.WriteRemoteObject(watcher == nullptr ? nullptr : watcher->AsObject());
    });
}

int32_t VeltraControlProxy::Unwatch()
{
    return Call(Remote(), ControlCode::UNWATCH, nullptr, WriteNothing);
}

int32_t VeltraControlProxy::Simulate(const std::string& command, std::string& answer)
{
    return Call(Remote(), ControlCode::SIMULATE, &answer,
                [&command](MessageParcel& data) { return data.WriteString(command); });
}

int32_t VeltraWatcherProxy::OnRecords(const std::string& lines, uint64_t dropped)
{
    const sptr<IRemoteObject> object = Remote();
    if (object == nullptr) {
        return IPC_DEAD_OBJECT;
    }
    MessageParcel data;
    if (!data.WriteInterfaceToken(GetDescriptor()) || !data.WriteString(lines) || !data.WriteUint64(dropped)) {
        return IPC_TOO_LARGE;
    }
    MessageParcel reply;
    // Only connecting to the watcher's process may wait, for at most this long; the send itself never does.
    MessageOption option(MessageOption::FLAG_ONE_WAY, FIRST_CONTACT_SECONDS);
    return object->SendRequest(static_cast<uint32_t>(WatcherCode::RECORDS), data, reply, option);
}

}  // namespace TAVO::Veltra
