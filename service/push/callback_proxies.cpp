// SPDX-License-Identifier: Apache-2.0
#include "push/callback_proxies.h"

#include <algorithm>

#include <tavo/message_parcel.h>
#include <tavo/read_vector_from_parcel.h>

#include "ipc/server_codes.h"

namespace TAVO::Veltra {

BrokerDelegator<GameEventCallbackProxy> GameEventCallbackProxy::delegator_;
BrokerDelegator<GpuCounterCallbackProxy> GpuCounterCallbackProxy::delegator_;
BrokerDelegator<ResourcePreDownloadCallbackProxy> ResourcePreDownloadCallbackProxy::delegator_;

namespace {

// One request to a callback object; `write` puts what follows the token.
template <typename Write>
int32_t Call(const sptr<IRemoteObject>& object, const std::u16string& token, CallbackCode code, Write write)
{
    if (object == nullptr) {
        return IPC_DEAD_OBJECT;
    }
    MessageParcel data;
    if (!data.WriteInterfaceToken(token) || !write(data)) {
        return IPC_TOO_LARGE;
    }
    MessageParcel reply;
    MessageOption option;
    const int status = object->SendRequest(static_cast<uint32_t>(code), data, reply, option);
    return status != IPC_OK ? status : reply.ReadInt32();
}

}  // namespace

int32_t GameEventCallbackProxy::OnGameCallbackEvent(const GameCallbackEventInfo& info)
{
    return Call(Remote(), GetDescriptor(), CallbackCode::GAME_EVENT, [&info](MessageParcel& data) {
        return data.WriteString(info.eventText) && data.WriteInt32(info.tempLevel) &&
               data.WriteInt32(info.gpuLoadLevel) && data.WriteInt32(info.vertexLoadLevel) &&
               data.WriteInt32(info.fragmentLoadLevel) && data.WriteInt32(info.textureLoadLevel) &&
               data.WriteInt32(info.bandwidthLoadLevel) && data.WriteInt32(info.currentFrequency) &&
               data.WriteInt32(info.thermalMargin) && data.WriteInt32(info.thermalTrend) &&
               data.WriteInt32(info.extraValue);
    });
}

int32_t GpuCounterCallbackProxy::OnGpuData(std::vector<GpuPerfInfo>& infos)
{
    return Call(Remote(), GetDescriptor(), CallbackCode::GPU_COUNTER_DATA,
                [&infos](MessageParcel& data) { return WriteVectorToParcel(data, infos); });
}

int32_t ResourcePreDownloadCallbackProxy::OnGetAppPrioritys(std::vector<std::string>& list)
{
    return Call(Remote(), GetDescriptor(), CallbackCode::GET_APP_PRIORITYS, [&list](MessageParcel& data) {
        const auto count = static_cast<int32_t>(std::min(list.size(), static_cast<size_t>(MAX_PRIORITIES)));
        return data.WriteInt32(count) && std::all_of(list.begin(), list.begin() + count,
                                                     [&data](const auto& text) { return data.WriteString(text); });
    });
}

int32_t ResourcePreDownloadCallbackProxy::OnQueryAppResourceInfos(const AppResourceInfos& infos)
{
    return Call(Remote(), GetDescriptor(), CallbackCode::QUERY_APP_RESOURCE_INFOS,
                [&infos](MessageParcel& data) { return WriteVectorToParcel(data, infos.resourceInfos); });
}

}  // namespace TAVO::Veltra
