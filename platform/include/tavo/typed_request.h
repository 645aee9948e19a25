// SPDX-License-Identifier: Apache-2.0
// Requests and replies made from the signature of an operation, so that its proxy and its stub take one line each.
#ifndef TAVO_TYPED_REQUEST_H
#define TAVO_TYPED_REQUEST_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "tavo/ipc_status.h"
#include "tavo/iremote_broker.h"
#include "tavo/message_option.h"
#include "tavo/message_parcel.h"
#include "tavo/read_vector_from_parcel.h"

// An operation is a member function of an interface, `int32_t Name(parameters)`. A parameter that is a reference to
// non-const is a result and travels in the reply. The others are arguments and travel in the request:
//
//     virtual int32_t Say(const std::string& text, std::string& answer) = 0;
//
// The request has the interface token, then the arguments in their order (here: String text). The reply has the Int32
// that the operation returned, then the results in their order (here: Int32, String answer).
//
// A parameter may be a bool, int32_t, uint32_t, int64_t, uint64_t, float, double, std::string, std::u16string,
// std::vector<uint8_t> (a Buffer), an sptr of IRemoteObject or of an interface, never null, a record with the members
// `bool Marshalling(Parcel&) const` and `bool ReadFields(Parcel&)`, or a vector of these except of bool (Int32 count, at
// most MAX_LIST_ELEMENTS, then the items). Any other encoding is written by hand, with MessageParcel.
namespace TAVO {

inline bool WriteItem(MessageParcel& parcel, bool item)
{
    return parcel.WriteBool(item);
}
inline bool WriteItem(MessageParcel& parcel, int32_t item)
{
    return parcel.WriteInt32(item);
}
inline bool WriteItem(MessageParcel& parcel, uint32_t item)
{
    return parcel.WriteUint32(item);
}
inline bool WriteItem(MessageParcel& parcel, int64_t item)
{
    return parcel.WriteInt64(item);
}
inline bool WriteItem(MessageParcel& parcel, uint64_t item)
{
    return parcel.WriteUint64(item);
}
inline bool WriteItem(MessageParcel& parcel, float item)
{
    return parcel.WriteFloat(item);
}
inline bool WriteItem(MessageParcel& parcel, double item)
{
    return parcel.WriteDouble(item);
}
inline bool WriteItem(MessageParcel& parcel, const std::string& item)
{
    return parcel.WriteString(item);
}
inline bool WriteItem(MessageParcel& parcel, const std::u16string& item)
{
    return parcel.WriteString16(item);
}
inline bool WriteItem(MessageParcel& parcel, const std::vector<uint8_t>& item)
{
    return parcel.WriteBuffer(item.data(), item.size());
}
template <typename T>
bool WriteItem(MessageParcel& parcel, const sptr<T>& item)
{
    if constexpr (std::is_same_v<T, IRemoteObject>) {
        return parcel.WriteRemoteObject(item);
    } else {
        return item != nullptr && parcel.WriteRemoteObject(item->AsObject());
    }
}
template <typename Record>
bool WriteItem(MessageParcel& parcel, const Record& item)
{
    return item.Marshalling(parcel);
}
template <typename T>
bool WriteItem(MessageParcel& parcel, const std::vector<T>& list)
{
    return list.size() <= static_cast<size_t>(MAX_LIST_ELEMENTS) &&
           parcel.WriteInt32(static_cast<int32_t>(list.size())) &&
           std::all_of(list.begin(), list.end(), [&parcel](const T& item) { return WriteItem(parcel, item); });
}

inline bool ReadItem(MessageParcel& parcel, bool& item)
{
    return parcel.ReadBool(item);
}
inline bool ReadItem(MessageParcel& parcel, int32_t& item)
{
    return parcel.ReadInt32(item);
}
inline bool ReadItem(MessageParcel& parcel, uint32_t& item)
{
    return parcel.ReadUint32(item);
}
inline bool ReadItem(MessageParcel& parcel, int64_t& item)
{
    return parcel.ReadInt64(item);
}
inline bool ReadItem(MessageParcel& parcel, uint64_t& item)
{
    return parcel.ReadUint64(item);
}
inline bool ReadItem(MessageParcel& parcel, float& item)
{
    return parcel.ReadFloat(item);
}
inline bool ReadItem(MessageParcel& parcel, double& item)
{
    return parcel.ReadDouble(item);
}
inline bool ReadItem(MessageParcel& parcel, std::string& item)
{
    return parcel.ReadString(item);
}
inline bool ReadItem(MessageParcel& parcel, std::u16string& item)
{
    return parcel.ReadString16(item);
}
inline bool ReadItem(MessageParcel& parcel, std::vector<uint8_t>& item)
{
    return parcel.ReadBuffer(item);
}
// False for an object that does not serve the interface.
template <typename T>
bool ReadItem(MessageParcel& parcel, sptr<T>& item)
{
    if constexpr (std::is_same_v<T, IRemoteObject>) {
        item = parcel.ReadRemoteObject();
    } else {
        item = iface_cast<T>(parcel.ReadRemoteObject());
    }
    return item != nullptr;
}
template <typename Record>
bool ReadItem(MessageParcel& parcel, Record& item)
{
    return item.ReadFields(parcel);
}
// The list grows with the items that are there, never by the announced count.
template <typename T>
bool ReadItem(MessageParcel& parcel, std::vector<T>& list)
{
    int32_t count = 0;
    if (!parcel.ReadInt32(count) || count < 0 || count > MAX_LIST_ELEMENTS) {
        return false;
    }
    list.clear();
    for (int32_t i = 0; i < count; ++i) {
        if (!ReadItem(parcel, list.emplace_back())) {
            return false;
        }
    }
    return true;
}

// Whether a parameter of this type is a result.
template <typename Parameter>
inline constexpr bool IS_RESULT =
    std::is_lvalue_reference_v<Parameter> && !std::is_const_v<std::remove_reference_t<Parameter>>;

// Keeps a parameter out of template argument deduction: the signature of the operation decides its type, not the call.
template <typename Parameter>
struct AsDeclared {
    using Type = Parameter;
};

// For a proxy: writes the arguments of one request and sends it. 0; IPC_DEAD_OBJECT without an object; IPC_TOO_LARGE
// for an argument that does not fit or is null; else what SendRequest returned.
template <typename Interface, typename Code, typename... Parameters>
int SendOperation(const sptr<IRemoteObject>& remote, MessageOption option, MessageParcel& reply, Code code,
                  int32_t (Interface::*)(Parameters...), typename AsDeclared<Parameters>::Type... parameters)
{
    if (remote == nullptr) {
        return IPC_DEAD_OBJECT;
    }
    MessageParcel data;
    if (!data.WriteInterfaceToken(Interface::GetDescriptor()) ||
        !((IS_RESULT<Parameters> || WriteItem(data, parameters)) && ...)) {
        return IPC_TOO_LARGE;
    }
    return remote->SendRequest(static_cast<uint32_t>(code), data, reply, option);
}

// For a proxy: calls the operation and waits for the reply, 8 s at most. Returns what the operation returned. For a
// request that failed it returns a status as above, or IPC_BAD_MESSAGE if the reply is not whole; results are then
// unchanged.
template <typename Interface, typename Code, typename... Parameters>
int32_t CallRemote(const sptr<IRemoteObject>& remote, Code code, int32_t (Interface::*operation)(Parameters...),
                   typename AsDeclared<Parameters>::Type... parameters)
{
    MessageParcel reply;
    if (const int status = SendOperation(remote, MessageOption(), reply, code, operation, parameters...);
        status != IPC_OK) {
        return status;
    }
    int32_t result = 0;
    std::tuple<std::decay_t<Parameters>...> received;  // arguments have an unused place in it
    const auto read = [&reply, &result](auto&... items) {
        return reply.ReadInt32(result) && ((!IS_RESULT<Parameters> || ReadItem(reply, items)) && ...);
    };
    if (!std::apply(read, received)) {
        return IPC_BAD_MESSAGE;
    }
    const auto deliver = [](auto& parameter, auto& item) {
        if constexpr (!std::is_const_v<std::remove_reference_t<decltype(parameter)>>) {
            parameter = std::move(item);
        }
    };
    std::apply([&](auto&... items) { (deliver(parameters, items), ...); }, received);
    return result;
}

// For a proxy: sends the request one-way, without waiting for the receiver. Returns a status as above.
template <typename Interface, typename Code, typename... Parameters>
int32_t NotifyRemote(const sptr<IRemoteObject>& remote, Code code, int32_t (Interface::*operation)(Parameters...),
                     typename AsDeclared<Parameters>::Type... parameters)
{
    static_assert((!IS_RESULT<Parameters> && ...), "a one-way request has no reply for a result");
    MessageParcel reply;
    return SendOperation(remote, MessageOption(MessageOption::FLAG_ONE_WAY), reply, code, operation, parameters...);
}

// For a stub that has checked the interface token: reads the arguments, calls the operation, writes the reply. Returns
// the status of the request: 0; IPC_BAD_MESSAGE, and nothing was called, if an argument is missing or not valid;
// IPC_NO_RESOURCES if the reply does not fit. Data behind the last argument is ignored.
template <typename Stub, typename Interface, typename... Parameters>
int ServeArguments(Stub& stub, int32_t (Interface::*operation)(Parameters...), MessageParcel& data,
                   MessageParcel& reply)
{
    std::tuple<std::decay_t<Parameters>...> items;
    const auto serve = [&](auto&... item) -> int {
        if (!((IS_RESULT<Parameters> || ReadItem(data, item)) && ...)) {
            return IPC_BAD_MESSAGE;
        }
        const int32_t result = (stub.*operation)(item...);
        const bool isWritten = reply.WriteInt32(result) && ((!IS_RESULT<Parameters> || WriteItem(reply, item)) && ...);
        return isWritten ? IPC_OK : IPC_NO_RESOURCES;
    };
    return std::apply(serve, items);
}

// For a stub: the same with the check of the token; IPC_BAD_MESSAGE for that of another interface.
template <typename Stub, typename Interface, typename... Parameters>
int ServeRequest(Stub& stub, int32_t (Interface::*operation)(Parameters...), MessageParcel& data, MessageParcel& reply)
{
    return data.MatchInterfaceToken(Interface::GetDescriptor()) ? ServeArguments(stub, operation, data, reply)
                                                                : static_cast<int>(IPC_BAD_MESSAGE);
}

}  // namespace TAVO

#endif
