// SPDX-License-Identifier: Apache-2.0
// A service that keeps the callback objects it is given, and callbacks that are counted while they live.
#ifndef VELTRA_TESTS_CLIENT_SUBSCRIPTIONS_FIXTURE_H
#define VELTRA_TESTS_CLIENT_SUBSCRIPTIONS_FIXTURE_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/client_test.h"
#include "support/game_callbacks.h"
#include "support/parcel_items.h"
#include "tavo/ipc_object_stub.h"
#include "veltra_server_client.h"

namespace TAVO::Veltra {

class SubscriptionsTest : public ClientTest {
protected:
    // Answers every request with `result`, and keeps the object of the last one as a real service does.
    // `during` runs inside the request.
    sptr<FakeRemoteObject> RunAnswering(int32_t result, std::function<void()> during = nullptr)
    {
        return RunService([this, result, during](uint32_t code, MessageParcel& data, MessageParcel& reply) {
            if (sptr<IRemoteObject> object = ReadCallback(code, data); object != nullptr) {
                kept_ = object;
            }
            if (during) {
                during();
            }
            reply.WriteInt32(result);
            return 0;
        });
    }

    sptr<IRemoteObject> ReadCallback(uint32_t code, MessageParcel& data)
    {
        data.ReadInterfaceToken();
        if (code == 10) {
            sentValue_ = data.ReadInt32();
        } else if (code == 15 || code == 17) {
            for (int32_t names = data.ReadInt32(); names > 0; --names) {
                sentNames_.push_back(data.ReadString());
            }
        }
        return data.ReadRemoteObject();
    }

    // What the platform does with a request of the service, on this thread; the reply's result.
    int32_t CallBack(uint32_t code, const Items& payload)
    {
        MessageParcel data;
        MessageParcel reply;
        MessageOption option;
        data.WriteInterfaceToken(kept_->Descriptor());
        WriteItems(data, payload);
        const sptr<IRemoteObject> called = kept_;
        EXPECT_EQ(dynamic_cast<IPCObjectStub&>(*called).OnRemoteRequest(code, data, reply, option), 0);
        int32_t result = -1;
        EXPECT_TRUE(reply.ReadInt32(result));
        return result;
    }

    // A callback that counts itself while it lives, and its calls in `calls_`.
    template <typename Callback>
    std::unique_ptr<Callback> Counted(int32_t result = 0)
    {
        ++living_;
        const std::shared_ptr<void> life(nullptr, [this](void*) { --living_; });
        return std::make_unique<Callback>([this, life, result](auto&) {
            ++calls_;
            return result;
        });
    }

    int32_t Register(int32_t key) { return client_.RegisterGameCallback(Counted<EventFunction>(), key); }
    int32_t StartGpu() { return client_.StartGetGpuPerfInfo(42, Counted<GpuFunction>(3)); }
    int32_t QueryInfos(const std::vector<std::string>& names = {"app"})
    {
        return client_.QueryAppResourceInfos(names, Counted<ResourceInfoFunction>(4));
    }
    int32_t QueryPrioritys() { return client_.GetAppPrioritys(names_, Counted<PrioritysFunction>(5)); }

    VeltraClient client_;
    std::vector<std::string> names_ = {"z", "a"};
    int32_t sentValue_ = 0;
    std::vector<std::string> sentNames_;
    sptr<IRemoteObject> kept_;  // by the service
    int living_ = 0;            // callbacks that exist
    int calls_ = 0;             // of callbacks
};

}  // namespace TAVO::Veltra

#endif
