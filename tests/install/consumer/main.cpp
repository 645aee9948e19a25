// SPDX-License-Identifier: Apache-2.0
// A small game: does each of the sixteen operations once, prints what came of it, and fails where that is not what the
// service gives with the example scenario and the example catalogue.
#include <atomic>
#include <future>
#include <iostream>

#include "veltra_server_client.h"

using namespace TAVO::Veltra;

// What a callback is told first. Callbacks run on threads of the library, also while the process exits: so none of
// these is ever destroyed.
struct News {
    int32_t Tell(size_t what)
    {
        if (!isTold.exchange(true)) {
            first.set_value(what);
        }
        return RESULT_OK;
    }
    std::atomic<bool> isTold{false};
    std::promise<size_t> first;
};
News &trend = *new News, &batch = *new News, &apps = *new News, &found = *new News;

struct OnEvent : GameEventCallbackBase {
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override { return trend.Tell(info.thermalTrend); }
};
struct OnSamples : GpuCounterCallBackBase {
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override { return batch.Tell(infos.size()); }
};
struct OnPriorities : GetAppPrioritysCallbackBase {
    int32_t OnGetAppPrioritys(std::vector<std::string>& list) override { return apps.Tell(list.size()); }
};
struct OnResources : QueryAppResourceInfoCallbackBase {
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& all) override
    {
        return found.Tell(all.resourceInfos.size());
    }
};

int failures = 0;

void Show(const char* what, int64_t result, int64_t expected = RESULT_OK)
{
    std::cout << what << ": " << result << (result == expected ? "" : ", which is wrong") << std::endl;
    failures += result != expected;
}

int main()
{
    VeltraClient client;
    Show("CallAuth", client.CallAuth("consumer"));
    Show("UpdateGameInfo", client.UpdateGameInfo(1, "com.example.racer", 0));
    Show("SyncAppType", client.SyncAppType("com.example.racer", 0)["com.example.racer"], true);
    GameInfo report;
    report.int32Value = 7;
    client.ReportGameEvent(report);
    GameState game;  // a report is one-way, so questions may overtake it
    while (client.QueryGameState(game) == RESULT_OK && game.state != 7) {}
    Show("ReportGameEvent and QueryGameState", game.state, 7);
    Show("ReportRenderThread", client.ReportRenderThread("render", "main", 17));
    Show("GetDeviceInfo, the trend", client.GetDeviceInfo({}).thermalTrend, 1);
    GameSceneBundle scene;
    Show("NotifyGameEvent", client.NotifyGameEvent(scene));
    std::vector<AppResourceDownLoadResult> results(1);
    Show("NotifyAppResourceDownLoadResults", client.NotifyAppResourceDownLoadResults(results));
    std::map<std::string, std::string> query{{"gpuCounters", ""}};
    Show("GetSystemFunctionStatus", client.GetSystemFunctionStatus(query)["gpuCounters"] == "supported", true);
    Show("RegisterGameCallback", client.RegisterGameCallback(std::make_unique<OnEvent>(), 1));
    Show("the trend of an event", trend.first.get_future().get(), 1);
    Show("UnRegisterGameCallback", client.UnRegisterGameCallback(1));
    Show("StartGetGpuPerfInfo", client.StartGetGpuPerfInfo(0, std::make_unique<OnSamples>()));
    Show("samples of a batch", batch.first.get_future().get(), 4);
    Show("StopGetGpuPerfInfo", client.StopGetGpuPerfInfo());
    std::vector<std::string> all;
    Show("GetAppPrioritys", client.GetAppPrioritys(all, std::make_unique<OnPriorities>()));
    Show("apps", apps.first.get_future().get(), 2);
    Show("QueryAppResourceInfos", client.QueryAppResourceInfos({"com.example.racer"}, std::make_unique<OnResources>()));
    Show("resources of the racer", found.first.get_future().get(), 2);
    return failures == 0 ? 0 : 1;
}
