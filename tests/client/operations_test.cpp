// SPDX-License-Identifier: Apache-2.0
// The facade's operations against a service that answers, refuses or is not there.
#include "veltra_server_client.h"

#include <functional>

#include "client/client_test.h"
#include "support/log_capture.h"
#include "support/parcel_items.h"
#include "tavo/system_ability_manager_client.h"

namespace TAVO::Veltra {
namespace {

struct ClientOperation {
    std::string name;
    uint32_t code;
    Items payload;  // empty: not looked at, or none
    int32_t noService;
    int32_t whenRefusedWith7;
    std::string refusalLog;                      // its last line without the name; empty: none
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

std::vector<ClientOperation> Operations()
{
    const auto callAuth = [](auto& client) { return client.CallAuth("t"); };
    const auto update = [](auto& client) { return client.UpdateGameInfo(1, "t", 2); };
    const auto thread = [](auto& client) { return client.ReportRenderThread("a", "b", 1); };
    const auto state = [](auto& client) { return client.GetDeviceInfo({{5, {{"a", "b"}}}}).resultCode; };
    const auto start = [](auto& client) { return client.StartGetGpuPerfInfo(1, nullptr); };
    const auto stop = [](auto& client) { return client.StopGetGpuPerfInfo(); };
    const auto infos = [](auto& client) { return client.QueryAppResourceInfos({"app"}, nullptr); };
    const auto types = [](auto& client) { return static_cast<int32_t>(client.SyncAppType("t", 4).size()); };
    constexpr int32_t noService = 1010310014;
    const std::string results = "NotifyAppResourceDownLoadResults";
    return {
        {"CallAuth", 9, {"t"}, noService, 7, "I function callAuth reply:7", callAuth},
        {"UpdateGameInfo", 8, {1, "t", 2}, noService, 7, "I function UpdateGameInfo call reply:7", update},
        {"ReportRenderThread", 4, {"a", "b", 1}, -1, 7, "", thread},
        {"NotifyGameEvent", 2, {1, 0, "", 0}, noService, 7, "D serviceProxy NotifyGameEvent ret=[7]", NotifyGameEvent},
        {results, 20, {}, noService, 1010310025, "E " + results + " failed! [7] ret!", NotifyResults},
        {"GetDeviceInfo", 13, {1, 5, 1, "a", "b"}, noService, 7, "E proxy GetDeviceInfo failed! retCode:7", state},
        {"StartGetGpuPerfInfo", 10, {}, noService, 1010310019, "I serviceProxy StartGetGpuPerfInfo[7] ret!", start},
        {"StopGetGpuPerfInfo", 11, {}, noService, 1010310019, "I serviceProxy StopGetGpuPerfInfo[7] ret!", stop},
        {"QueryAppResourceInfos", 17, {}, noService, 7, "E serviceProxy QueryAppResourceInfos ret=[7]", infos},
        {"GetAppPrioritys", 15, {}, noService, 1010310024, "E GetAppPrioritys failed! [7] ret!", GetAppPrioritys},
        {"ReportGameEvent", 1, {}, 0, 0, "", ReportGameEvent},
        // A reply of 7 announces seven pairs; they are not there and read as one with an empty key.
        {"SyncAppType", 3, {"t", 4}, 0, 1, "", types},
        {"GetSystemFunctionStatus", 27, {1, "k", "v"}, 0, 1, "", GetFunctionStatus},
    };
}

using Lines = std::vector<std::string>;

class OperationsTest : public ClientTest {};

TEST_F(OperationsTest, AnswersArePassedOnAndWithoutServiceEachHasItsOwn)
{
    VeltraClient client;
    auto& managers = SystemAbilityManagerClient::GetInstance();
    for (const ClientOperation& operation : Operations()) {
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
            const LogCapture log;
            EXPECT_EQ(operation.call(client), result == 0 ? 0 : operation.whenRefusedWith7);
            std::string last = log.Lines().empty() ? "" : log.Lines().back();
            last.erase(std::min<size_t>(last.size(), 2), last.empty() ? 0 : operation.name.size() + 2);
            EXPECT_EQ(last, result == 0 ? last : operation.refusalLog);
            ASSERT_EQ(service->Requests().size(), 1u);
            EXPECT_EQ(service->Requests().front().code, operation.code);
        }
        manager_->SetRunning(nullptr);
        EXPECT_EQ(operation.call(client), operation.noService);
        FakeAbilityManager::Remove();
        Lines expected = {"E GetServiceProxy: Get SystemAbilityManager failed."};
        if (operation.refusalLog.ends_with("failed! [7] ret!")) {
            expected.push_back("E " + operation.name + ": get veltraServerProxy failed!");
        }
        ExpectLog(expected, [&] { EXPECT_EQ(operation.call(client), operation.noService); });
        managers.SetTestManager(MakeRef<ThrowingManager>());  // nothing that is thrown below comes out
        EXPECT_EQ(operation.call(client), operation.noService);
        managers.SetTestManager(manager_);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
