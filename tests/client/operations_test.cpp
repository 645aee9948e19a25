// SPDX-License-Identifier: Apache-2.0
// The facade's operations against a service that answers, refuses or is not there.
#include "veltra_server_client.h"

#include <functional>

#include "client/client_test.h"
#include "support/parcel_items.h"
#include "tavo/system_ability_manager_client.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t NO_SERVICE = 1010310014;

struct ClientOperation {
    const char* name;
    uint32_t code;
    Items payload;  // empty: not looked at, or none
    int32_t noService;
    int32_t whenRefusedWith7;
    std::function<int32_t(VeltraClient&)> call;  // for map operations: the number of pairs
};

int32_t NotifyGameEvent(VeltraClient& client)
{
    GameSceneBundle bundle;
    return client.NotifyGameEvent(bundle);
}

int32_t NotifyResults(VeltraClient& client)
{
    std::vector<AppResourceDownLoadResult> results(1);
    return client.NotifyAppResourceDownLoadResults(results);
}

int32_t GetAppPrioritys(VeltraClient& client)
{
    std::vector<std::string> all;
    return client.GetAppPrioritys(all, nullptr);
}

int32_t ReportGameEvent(VeltraClient& client)
{
    GameInfo info;
    client.ReportGameEvent(info);
    return 0;
}

int32_t GetFunctionStatus(VeltraClient& client)
{
    std::map<std::string, std::string> query = {{"k", "v"}};
    return static_cast<int32_t>(client.GetSystemFunctionStatus(query).size());
}

const ClientOperation OPERATIONS[] = {
    {"CallAuth", 9, {"t"}, NO_SERVICE, 7, [](auto& client) { return client.CallAuth("t"); }},
    {"UpdateGameInfo", 8, {1, "t", 2}, NO_SERVICE, 7, [](auto& client) { return client.UpdateGameInfo(1, "t", 2); }},
    {"ReportRenderThread", 4, {"a", "b", 1}, -1, 7, [](auto& c) { return c.ReportRenderThread("a", "b", 1); }},
    {"NotifyGameEvent", 2, {1, 0, "", 0}, NO_SERVICE, 7, NotifyGameEvent},
    {"NotifyAppResourceDownLoadResults", 20, {}, NO_SERVICE, 1010310025, NotifyResults},
    {"GetDeviceInfo",
     13,
     {1, 5, 1, "a", "b"},
     NO_SERVICE,
     7,
     [](auto& client) {
         return client.GetDeviceInfo({{5, {{"a", "b"}}}}).resultCode;
     }},
    {"StartGetGpuPerfInfo", 10, {}, NO_SERVICE, 1010310019, [](auto& c) { return c.StartGetGpuPerfInfo(1, nullptr); }},
    {"StopGetGpuPerfInfo", 11, {}, NO_SERVICE, 1010310019, [](auto& client) { return client.StopGetGpuPerfInfo(); }},
    {"QueryAppResourceInfos", 17, {}, NO_SERVICE, 7, [](auto& c) { return c.QueryAppResourceInfos({"app"}, nullptr); }},
    {"GetAppPrioritys", 15, {}, NO_SERVICE, 1010310024, GetAppPrioritys},
    {"ReportGameEvent", 1, {}, 0, 0, ReportGameEvent},
    // A reply of 7 announces seven pairs; they are not there and read as one with an empty key.
    {"SyncAppType", 3, {"t", 4}, 0, 1, [](auto& c) { return static_cast<int32_t>(c.SyncAppType("t", 4).size()); }},
    {"GetSystemFunctionStatus", 27, {1, "k", "v"}, 0, 1, GetFunctionStatus},
};

class OperationsTest : public ClientTest {};

TEST_F(OperationsTest, AnswersArePassedOnAndWithoutServiceEachHasItsOwn)
{
    VeltraClient client;
    auto& managers = SystemAbilityManagerClient::GetInstance();
    for (const ClientOperation& operation : OPERATIONS) {
        SCOPED_TRACE(operation.name);
        for (const int32_t result : {0, 7}) {
            const auto service = RunService([&](uint32_t, MessageParcel& data, MessageParcel& reply) {
                data.ReadInterfaceToken();
                if (!operation.payload.empty()) {
                    ExpectItems(data, operation.payload);
                }
                reply.WriteInt32(result);
                return 0;
            });
            EXPECT_EQ(operation.call(client), result == 0 ? 0 : operation.whenRefusedWith7);
            ASSERT_EQ(service->Requests().size(), 1u);
            EXPECT_EQ(service->Requests().front().code, operation.code);
        }
        manager_->SetRunning(nullptr);
        EXPECT_EQ(operation.call(client), operation.noService);
        managers.SetTestManager(MakeRef<ThrowingManager>());  // nothing that is thrown below comes out
        EXPECT_EQ(operation.call(client), operation.noService);
        managers.SetTestManager(manager_);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
