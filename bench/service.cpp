// SPDX-License-Identifier: Apache-2.0
// A service for the figures that cannot be measured with the real one: it counts the game events that arrive, and sends the longest
// list of GPU samples on request.
#include <atomic>
#include <cstdio>

#include "gpu_list.h"
#include "ipc/igpu_counter_native_callback.h"
#include "ipc/iveltra_server_interface.h"
#include "ipc/server_codes.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/ipc_threads.h"
#include "tavo/mutex.h"
#include "tavo/system_ability_manager_client.h"
#include "witness.h"

namespace {

using namespace TAVO;
using namespace TAVO::Veltra;

class BenchService : public IPCObjectStub {
public:
    BenchService() : IPCObjectStub(IVeltraServerInterface::GetDescriptor()) {}

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override
    {
        if (!data.MatchInterfaceToken(IVeltraServerInterface::GetDescriptor())) {
            return IPC_BAD_MESSAGE;
        }
        switch (static_cast<ServerCode>(code)) {
            case ServerCode::REPORT_GAME_EVENT:
                return CountEvent(data);
            case ServerCode::CALL_AUTH:  // how many events have arrived
                return Answer(data, reply);
            case ServerCode::START_GET_GPU_PERF_INFO:
                data.ReadInt32();
                reply.WriteInt32(Subscribe(data.ReadRemoteObject()));
                return 0;
            case ServerCode::UPDATE_GAME_INFO:  // send the list
                reply.WriteInt32(SendList());
                return 0;
            default:
                return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
        }
    }

private:
    int Answer(MessageParcel& data, MessageParcel& reply)
    {
        std::string text;  // read, as in any service that uses it
        return data.ReadString(text) && reply.WriteInt32(events_) ? 0 : IPC_BAD_MESSAGE;
    }
    int CountEvent(MessageParcel& data)
    {
        GameInfo info;
        info.int32Value = data.ReadInt32();
        info.int64Value = data.ReadInt64();
        for (std::string* text : {&info.text1, &info.text2, &info.text3, &info.text5, &info.text6, &info.text4}) {
            if (!data.ReadString(*text)) {
                return IPC_BAD_MESSAGE;
            }
        }
        ++events_;
        return 0;
    }

    // Encodes the list beforehand: only its delivery is measured.
    int32_t Subscribe(const sptr<IRemoteObject>& callback)
    {
        MutexLock lock(mutex_);
        callback_ = callback;
        return list_.WriteInterfaceToken(IGpuCounterNativeCallback::GetDescriptor()) && Bench::WriteFullList(list_)
                   ? 0
                   : IPC_TOO_LARGE;
    }

    int32_t SendList()
    {
        MutexLock lock(mutex_);
        MessageParcel reply;
        MessageOption option;
        const auto code = static_cast<uint32_t>(CallbackCode::GPU_COUNTER_DATA);
        return callback_ != nullptr ? callback_->SendRequest(code, list_, reply, option) : IPC_DEAD_OBJECT;
    }

    std::atomic<int32_t> events_{0};
    Mutex mutex_;  // held while the list is sent: one at a time
    sptr<IRemoteObject> callback_ TAVO_GUARDED_BY(mutex_);
    MessageParcel list_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace

int main()
{
    Bench::ConnectWitness();
    const sptr<IRemoteObject> service(new BenchService);
    const auto manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr || manager->AddAbility(VELTRA_SERVER_SA_ID, service) != ABILITY_OK) {
        std::fprintf(stderr, "bench: the service cannot register\n");
        return 1;
    }
    IpcThreads::JoinPool();
}
