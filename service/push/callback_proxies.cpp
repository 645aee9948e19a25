// SPDX-License-Identifier: Apache-2.0
// Each operation writes the interface token and its arguments, sends one request and reads the result from the reply.
// It blocks a thread of the delivery pool for as long as the client needs, up to the timeout of the request. Arguments
// that do not fit a parcel are reported before anything is sent. Simulated faults enter here: a wrong token, or
// arguments that are cut to half.
#include "push/callback_proxies.h"

#include <algorithm>

#include <tavo/message_parcel.h>
#include <tavo/read_vector_from_parcel.h>

#include "ipc/game_event_encoding.h"
#include "ipc/server_codes.h"

namespace TAVO::Veltra {

BrokerDelegator<GameEventCallbackProxy> GameEventCallbackProxy::delegator_;
BrokerDelegator<GpuCounterCallbackProxy> GpuCounterCallbackProxy::delegator_;
BrokerDelegator<ResourcePreDownloadCallbackProxy> ResourcePreDownloadCallbackProxy::delegator_;

namespace {

// Half of the slots that follow the first `keptBytes`.
void Cut(MessageParcel& data, size_t keptBytes)
{
    // A copy: SetData writes into the memory that it would read from.
    const std::string written(reinterpret_cast<const char*>(data.GetData()), data.GetDataSize());
    data.SetData(written.data(), keptBytes + (written.size() - keptBytes) / 2 / Parcel::SLOT * Parcel::SLOT);
}

// One request to a callback object; `write` puts what follows the token.
template <typename Write>
int32_t Call(const sptr<IRemoteObject>& object, PushSpoil spoil, const std::u16string& token, CallbackCode code,
             Write write)
{
    if (object == nullptr) {
        return IPC_DEAD_OBJECT;
    }
    MessageParcel data;
    if (!data.WriteInterfaceToken(spoil == PushSpoil::WRONG_TOKEN ? token + u"?" : token)) {
        return IPC_TOO_LARGE;
    }
    const size_t tokenBytes = data.GetDataSize();
    if (!write(data)) {
        return IPC_TOO_LARGE;
    }
    if (spoil == PushSpoil::CUT) {
        Cut(data, tokenBytes);
    }
    MessageParcel reply;
    // With a reply, so that the pool learns when the client has handled the push. 8 s at most.
    MessageOption option;
    const int status = object->SendRequest(static_cast<uint32_t>(code), data, reply, option);
    return status != IPC_OK ? status : reply.ReadInt32();
}

}  // namespace

int32_t GameEventCallbackProxy::OnGameCallbackEvent(const GameCallbackEventInfo& info)
{
    return Call(Remote(), spoil_, GetDescriptor(), CallbackCode::GAME_EVENT,
                [&info](MessageParcel& data) { return WriteGameEvent(data, info); });
}

int32_t GpuCounterCallbackProxy::OnGpuData(std::vector<GpuPerfInfo>& infos)
{
    return Call(Remote(), spoil_, GetDescriptor(), CallbackCode::GPU_COUNTER_DATA,
                [&infos](MessageParcel& data) { return WriteVectorToParcel(data, infos); });
}

int32_t ResourcePreDownloadCallbackProxy::OnGetAppPrioritys(std::vector<std::string>& list)
{
    return Call(Remote(), spoil_, GetDescriptor(), CallbackCode::GET_APP_PRIORITYS, [&list](MessageParcel& data) {
        const auto count = static_cast<int32_t>(std::min(list.size(), static_cast<size_t>(MAX_PRIORITIES)));
        return data.WriteInt32(count) && std::all_of(list.begin(), list.begin() + count,
                                                     [&data](const auto& text) { return data.WriteString(text); });
    });
}

int32_t ResourcePreDownloadCallbackProxy::OnQueryAppResourceInfos(const AppResourceInfos& infos)
{
    return Call(Remote(), spoil_, GetDescriptor(), CallbackCode::QUERY_APP_RESOURCE_INFOS,
                [&infos](MessageParcel& data) { return WriteVectorToParcel(data, infos.resourceInfos); });
}

}  // namespace TAVO::Veltra
