// SPDX-License-Identifier: Apache-2.0
// Runs the sixteen operations and prints one line for each: its result, and whether its callback was called. It uses
// nothing but the facade, so that it is built with an older version of the library as well as with this one.
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>

#include "veltra_callbacks.h"
#include "veltra_server_client.h"

namespace {

using namespace TAVO::Veltra;

constexpr std::chrono::seconds WAIT{10};

// What a callback fulfils at its first call.
struct Arrival {
    std::promise<void> promise;
    bool isFulfilled = false;

    int32_t Note()
    {
        if (!isFulfilled) {
            isFulfilled = true;
            promise.set_value();
        }
        return 0;
    }
};

template <typename Base>
class Receiver : public Base {
public:
    explicit Receiver(std::shared_ptr<Arrival> arrival) : arrival_(std::move(arrival)) {}

protected:
    const std::shared_ptr<Arrival> arrival_;
};

class Events : public Receiver<GameEventCallbackBase> {
    using Receiver::Receiver;
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo&) override { return arrival_->Note(); }
};

class Samples : public Receiver<GpuCounterCallBackBase> {
    using Receiver::Receiver;
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override { return infos.empty() ? -1 : arrival_->Note(); }
};

class Priorities : public Receiver<GetAppPrioritysCallbackBase> {
    using Receiver::Receiver;
    int32_t OnGetAppPrioritys(std::vector<std::string>&) override { return arrival_->Note(); }
};

class Resources : public Receiver<QueryAppResourceInfoCallbackBase> {
    using Receiver::Receiver;
    int32_t OnQueryAppResourceInfos(const AppResourceInfos&) override { return arrival_->Note(); }
};

void Print(const char* operation, int32_t result)
{
    std::printf("%s: %d\n", operation, result);
}

template <typename Callback, typename Subscribe>
void PrintWithCallback(const char* operation, Subscribe subscribe)
{
    const auto arrival = std::make_shared<Arrival>();
    std::future<void> arrived = arrival->promise.get_future();
    const int32_t result = subscribe(std::make_unique<Callback>(arrival));
    const bool isCalled = result == 0 && arrived.wait_for(WAIT) == std::future_status::ready;
    std::printf("%s: %d, %s\n", operation, result, isCalled ? "called back" : "not called back");
}

void RunCalls(VeltraClient& client)
{
    Print("CallAuth", client.CallAuth("compatibility"));
    Print("UpdateGameInfo", client.UpdateGameInfo(1, "com.example.racer", 0));
    GameState state;
    Print("QueryGameState", client.QueryGameState(state));
    std::printf("  %d %s\n", state.state, state.bundleName.c_str());
    GameInfo info;
    info.int32Value = 3;
    client.ReportGameEvent(info);
    const auto deadline = std::chrono::steady_clock::now() + WAIT;
    while (state.state != 3 && std::chrono::steady_clock::now() < deadline) {  // it is one-way
        client.QueryGameState(state);
    }
    Print("ReportGameEvent, then the state", state.state);
    Print("ReportRenderThread", client.ReportRenderThread("render", "main", 5));
    Print("ReportRenderThread of 0", client.ReportRenderThread("render", "main", 0));
    for (const auto& [name, isGame] : client.SyncAppType("com.example.racer", 0)) {
        std::printf("SyncAppType: %s %d\n", name.c_str(), isGame);
    }
    std::map<std::string, std::string> query{{"deviceState", ""}};
    for (const auto& [name, status] : client.GetSystemFunctionStatus(query)) {
        std::printf("GetSystemFunctionStatus: %s %s\n", name.c_str(), status.c_str());
    }
    const GameCallbackEventInfo device = client.GetDeviceInfo({});
    std::printf("GetDeviceInfo: %d, level %d\n", device.resultCode, device.tempLevel);
    GameSceneBundle scene;
    scene.sceneId = 1;
    scene.sceneName = "menu";
    scene.attributes["mode"] = "night";
    Print("NotifyGameEvent", client.NotifyGameEvent(scene));
    std::vector<AppResourceDownLoadResult> downloads(2);
    Print("NotifyAppResourceDownLoadResults", client.NotifyAppResourceDownLoadResults(downloads));
}

void RunSubscriptions(VeltraClient& client)
{
    PrintWithCallback<Events>("RegisterGameCallback", [&](std::unique_ptr<Events> callback) {
        return client.RegisterGameCallback(std::move(callback), 1);
    });
    Print("UnRegisterGameCallback", client.UnRegisterGameCallback(1));
    PrintWithCallback<Samples>("StartGetGpuPerfInfo", [&](std::unique_ptr<Samples> callback) {
        return client.StartGetGpuPerfInfo(50, std::move(callback));
    });
    Print("StopGetGpuPerfInfo", client.StopGetGpuPerfInfo());
    std::vector<std::string> names{"com.example.racer"};
    PrintWithCallback<Priorities>("GetAppPrioritys", [&](std::unique_ptr<Priorities> callback) {
        return client.GetAppPrioritys(names, std::move(callback));
    });
    PrintWithCallback<Resources>("QueryAppResourceInfos", [&](std::unique_ptr<Resources> callback) {
        return client.QueryAppResourceInfos(names, std::move(callback));
    });
}

}  // namespace

int main()
{
    VeltraClient client;
    RunCalls(client);
    RunSubscriptions(client);
    return 0;
}
