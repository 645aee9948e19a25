// SPDX-License-Identifier: Apache-2.0
// The facade's operations against a service that answers, refuses or is not there.
#include "veltra_server_client.h"

#include <functional>
#include <new>

#include "client/client_test.h"
#include "support/parcel_items.h"
#include "tavo/system_ability_manager_client.h"

namespace TAVO::Veltra {
namespace {

struct ClientOperation {
    const char* name;
    uint32_t code;
    int32_t noService;
    int32_t whenRefusedWith7;
    std::function<int32_t(VeltraClient&)> call;  // for map operations: the number of pairs
};

const ClientOperation OPERATIONS[] = {
    {"CallAuth", 9, 1010310014, 7, [](VeltraClient& client) { return client.CallAuth("t"); }},
    {"UpdateGameInfo", 8, 1010310014, 7, [](VeltraClient& client) { return client.UpdateGameInfo(1, "t", 2); }},
    {"ReportRenderThread", 4, -1, 7, [](VeltraClient& client) { return client.ReportRenderThread("a", "b", 1); }},
    {"NotifyGameEvent", 2, 1010310014, 7,
     [](VeltraClient& client) {
         GameSceneBundle bundle;
         return client.NotifyGameEvent(bundle);
     }},
    {"NotifyAppResourceDownLoadResults", 20, 1010310014, 1010310025,
     [](VeltraClient& client) {
         std::vector<AppResourceDownLoadResult> results(1);
         return client.NotifyAppResourceDownLoadResults(results);
     }},
    {"GetDeviceInfo", 13, 1010310014, 7, [](VeltraClient& client) { return client.GetDeviceInfo({}).resultCode; }},
    {"StartGetGpuPerfInfo", 10, 1010310014, 1010310019,
     [](VeltraClient& client) { return client.StartGetGpuPerfInfo(1, nullptr); }},
    {"StopGetGpuPerfInfo", 11, 1010310014, 1010310019,
     [](VeltraClient& client) { return client.StopGetGpuPerfInfo(); }},
    {"QueryAppResourceInfos", 17, 1010310014, 7,
     [](VeltraClient& client) { return client.QueryAppResourceInfos({"app"}, nullptr); }},
    {"GetAppPrioritys", 15, 1010310014, 1010310024,
     [](VeltraClient& client) {
         std::vector<std::string> all;
         return client.GetAppPrioritys(all, nullptr);
     }},
    {"ReportGameEvent", 1, 0, 0,
     [](VeltraClient& client) {
         GameInfo info;
         client.ReportGameEvent(info);
         return 0;
     }},
    // A reply of 7 announces seven pairs; they are not there and read as one with an empty key.
    {"SyncAppType", 3, 0, 1,
     [](VeltraClient& client) { return static_cast<int32_t>(client.SyncAppType("t", 1).size()); }},
    {"GetSystemFunctionStatus", 27, 0, 1,
     [](VeltraClient& client) {
         std::map<std::string, std::string> query;
         return static_cast<int32_t>(client.GetSystemFunctionStatus(query).size());
     }},
};

class OperationsTest : public ClientTest {
protected:
    VeltraClient client_;
};

TEST_F(OperationsTest, AnswersArePassedOn)
{
    for (const int32_t reply : {0, 7}) {
        for (const ClientOperation& operation : OPERATIONS) {
            SCOPED_TRACE(operation.name);
            const auto service = RunService([reply](uint32_t, MessageParcel&, MessageParcel& out) {
                out.WriteInt32(reply);
                return 0;
            });
            EXPECT_EQ(operation.call(client_), reply == 0 ? 0 : operation.whenRefusedWith7);
            ASSERT_EQ(service->Requests().size(), 1u);
            EXPECT_EQ(service->Requests().front().code, operation.code);
        }
    }
}

TEST_F(OperationsTest, WithoutServiceEachHasItsOwnAnswer)
{
    for (const ClientOperation& operation : OPERATIONS) {
        SCOPED_TRACE(operation.name);
        EXPECT_EQ(operation.call(client_), operation.noService);
    }
}

TEST_F(OperationsTest, ArgumentsReachTheServiceInTheirPlaces)
{
    Items expected;
    RunService([&expected](uint32_t, MessageParcel& data, MessageParcel&) {
        data.ReadInterfaceToken();
        ExpectItems(data, expected);
        return 0;
    });
    const std::string first = "first";
    const std::string second = "second";
    expected = {1, first, 2};
    client_.UpdateGameInfo(1, first, 2);
    expected = {first, second, 3};
    client_.ReportRenderThread(first, second, 3);
    expected = {first, 4};
    client_.SyncAppType(first, 4);
    expected = {1, 5, 1, first, second};
    client_.GetDeviceInfo({{5, {{first, second}}}});
}

TEST_F(OperationsTest, ServiceThatDiesDuringTheCallIsNoService)
{
    RunService([](uint32_t, MessageParcel&, MessageParcel&) { return IPC_BROKEN; });
    EXPECT_EQ(client_.CallAuth(""), 1010310014);
    EXPECT_EQ(client_.ReportRenderThread("", "", 0), IPC_BROKEN);
    EXPECT_EQ(client_.GetDeviceInfo({}).resultCode, 1010310014);
    GameSceneBundle bundle;
    EXPECT_EQ(client_.NotifyGameEvent(bundle), 0);  // reads a reply that is not there
}

// A manager, a platform without memory, whatever throws below: the operation has its no-service answer.
class ThrowingManager : public FakeAbilityManager {
public:
    sptr<IRemoteObject> CheckAbility(int32_t) override { throw std::bad_alloc(); }
};

TEST_F(OperationsTest, NothingThrownBelowComesOut)
{
    SystemAbilityManagerClient::GetInstance().SetTestManager(MakeRef<ThrowingManager>());
    for (const ClientOperation& operation : OPERATIONS) {
        SCOPED_TRACE(operation.name);
        EXPECT_EQ(operation.call(client_), operation.noService);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
