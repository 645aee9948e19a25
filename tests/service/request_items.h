// SPDX-License-Identifier: Apache-2.0
// Parcels written by hand, item by item, for tests of what a stub makes of them.
#ifndef VELTRA_TESTS_REQUEST_ITEMS_H
#define VELTRA_TESTS_REQUEST_ITEMS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <tavo/ipc_object_stub.h>
#include <tavo/message_parcel.h>

#include "ipc/iveltra_server_interface.h"

namespace TAVO::Veltra {

// Writes one item of a parcel.
using Item = std::function<void(MessageParcel&)>;
using Items = std::vector<Item>;

inline Item I32(int32_t value)
{
    return [value](MessageParcel& parcel) { parcel.WriteInt32(value); };
}
inline Item I64(int64_t value)
{
    return [value](MessageParcel& parcel) { parcel.WriteInt64(value); };
}
inline Item Str(const std::string& value)
{
    return [value](MessageParcel& parcel) { parcel.WriteString(value); };
}
inline Item Obj(const sptr<IRemoteObject>& object)
{
    return [object](MessageParcel& parcel) { parcel.WriteRemoteObject(object); };
}

inline Items operator+(Items left, const Items& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
inline Items Times(size_t count, const Items& items)
{
    Items all;
    for (size_t i = 0; i < count; ++i) {
        all = std::move(all) + items;
    }
    return all;
}

inline void WriteItems(MessageParcel& parcel, const Items& items, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        items[i](parcel);
    }
}

inline std::string Bytes(const Parcel& parcel)
{
    return std::string(reinterpret_cast<const char*>(parcel.GetData()), parcel.GetDataSize());
}
inline std::string Bytes(const Items& items)
{
    MessageParcel parcel;
    WriteItems(parcel, items, items.size());
    return Bytes(parcel);
}

// One request: the interface token, the first `count` items, and what came of it.
struct Sent {
    Sent(IPCObjectStub& stub, ServerCode code, const Items& items, size_t count)
    {
        MessageParcel data;
        MessageOption option;
        data.WriteInterfaceToken(IVeltraServerInterface::GetDescriptor());
        WriteItems(data, items, count);
        status = stub.OnRemoteRequest(static_cast<uint32_t>(code), data, reply, option);
    }
    Sent(IPCObjectStub& stub, ServerCode code, const Items& items) : Sent(stub, code, items, items.size()) {}

    MessageParcel reply;
    int status = -1;
};

}  // namespace TAVO::Veltra

#endif
