// SPDX-License-Identifier: Apache-2.0
// A request passes three checks before anything is called: the code is one of the interface (any other goes to the base
// class, which answers pings and the like), the token is this interface's, and each text is within its limit. A status
// other than 0 means that the request was not understood or its reply found no room. What the service itself refuses is
// the result in the reply, so that a tool can tell the two apart. All runs on a worker of the platform.
#include "control/control_stubs.h"

#include <tavo/calling_peer.h>
#include <tavo/typed_request.h>

#include "veltra_result.h"

namespace TAVO::Veltra {

namespace {

int WriteAnswer(MessageParcel& reply, int32_t result, const std::string& answer)
{
    return reply.WriteInt32(result) && reply.WriteString(answer) ? 0 : RESULT_BAD_PARCEL;
}

bool ReadText(MessageParcel& data, size_t mostBytes, std::string& text)
{
    return data.ReadString(text) && text.size() <= mostBytes;
}

}  // namespace

int VeltraControlStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    const auto control = static_cast<ControlCode>(code);
    // A cast of an unknown code is defined, since the enumeration has a fixed type.
    if (control < ControlCode::DESCRIBE || control > ControlCode::SIMULATE) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    if (data.ReadInterfaceToken() != GetDescriptor()) {
        return RESULT_TOKEN_REFUSED;
    }
    switch (control) {
        case ControlCode::DESCRIBE:
            return Serve(&IVeltraControl::Describe, data, reply);
        case ControlCode::EXPLAIN:
            return Serve(&IVeltraControl::Explain, data, reply);
        case ControlCode::WATCH:
            return HandleWatch(data, reply);
        case ControlCode::UNWATCH:
            return Serve(&IVeltraControl::Unwatch, data, reply);
        case ControlCode::SIMULATE:
            return HandleSimulate(data, reply);
    }
    return RESULT_BAD_PARCEL;  // not reached
}

// An operation without a limit of its own on its arguments.
template <typename Operation>
int VeltraControlStub::Serve(Operation operation, MessageParcel& data, MessageParcel& reply)
{
    return ServeArguments(*this, operation, data, reply) == IPC_OK ? 0 : RESULT_BAD_PARCEL;
}

int VeltraControlStub::HandleWatch(MessageParcel& data, MessageParcel& reply)
{
    std::string filter;
    if (!ReadText(data, MAX_CONTROL_FILTER_BYTES, filter)) {
        return RESULT_BAD_PARCEL;
    }
    const sptr<IRemoteObject> object = data.ReadRemoteObject();
    // What is kept for a watcher goes when the caller ends, which an object of another process would not.
    if (!IsOfCaller(object) || object->Descriptor() != IVeltraWatcher::GetDescriptor()) {
        return RESULT_BAD_PARCEL;
    }
    std::string answer;
    const int32_t result = Watch(filter, iface_cast<IVeltraWatcher>(object), answer);
    return WriteAnswer(reply, result, answer);
}

int VeltraControlStub::HandleSimulate(MessageParcel& data, MessageParcel& reply)
{
    std::string command;
    if (!ReadText(data, MAX_CONTROL_COMMAND_BYTES, command)) {
        return RESULT_BAD_PARCEL;
    }
    std::string answer;
    const int32_t result = Simulate(command, answer);
    return WriteAnswer(reply, result, answer);
}

int VeltraWatcherStub::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (code != static_cast<uint32_t>(WatcherCode::RECORDS)) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    if (data.ReadInterfaceToken() != GetDescriptor()) {
        return RESULT_TOKEN_REFUSED;
    }
    std::string lines;
    uint64_t dropped = 0;
    if (!ReadText(data, MAX_WATCH_BATCH_BYTES, lines) || !data.ReadUint64(dropped)) {
        return RESULT_BAD_PARCEL;
    }
    OnRecords(lines, dropped);
    return 0;
}

}  // namespace TAVO::Veltra
