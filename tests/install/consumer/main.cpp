// SPDX-License-Identifier: Apache-2.0
// Calls every operation of the facade and waits for every callback. Expects a service that plays the example
// scenario and knows the example catalogue. Prints what failed.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "ipc/veltra_server_proxy.h"
#include "utils/json_utils.h"
#include "veltra_server_client.h"

using namespace TAVO::Veltra;

namespace {

constexpr std::chrono::seconds DEADLINE{20};
const std::string RACER = "com.example.racer";

// Which callbacks have come with what was expected.
class Arrivals {
public:
    int32_t Add(const char* name, bool isAsExpected)
    {
        if (isAsExpected) {
            const std::lock_guard<std::mutex> lock(mutex_);
            names_.insert(name);
            changed_.notify_all();
        }
        return 0;
    }

    bool WaitFor(const char* name)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, DEADLINE, [this, name] { return names_.count(name) == 1; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<std::string> names_;
};

// Never destroyed: a callback may still run while the process exits.
Arrivals& arrivals = *new Arrivals;

class OnEvent : public GameEventCallbackBase {
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override
    {
        return arrivals.Add("game event", info.tempLevel >= 0);
    }
};

class OnSamples : public GpuCounterCallBackBase {
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override { return arrivals.Add("samples", infos.size() == 4); }
};

class OnPriorities : public GetAppPrioritysCallbackBase {
    int32_t OnGetAppPrioritys(std::vector<std::string>& list) override
    {
        return arrivals.Add("priorities", list == std::vector<std::string>{RACER, "com.example.puzzle"});
    }
};

class OnResources : public QueryAppResourceInfoCallbackBase {
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) override
    {
        return arrivals.Add("resources", infos.resourceInfos.size() == 2 && infos.resourceInfos[0].text1 == RACER);
    }
};

// A report is one-way, so a question may overtake it.
bool GameStateBecomes(VeltraClient& client, int32_t expected)
{
    const auto end = std::chrono::steady_clock::now() + DEADLINE;
    GameState game;
    while (client.QueryGameState(game) == RESULT_OK && game.state != expected &&
           std::chrono::steady_clock::now() < end) {}
    return game.state == expected && game.bundleName == RACER;
}

int failures = 0;

void Check(const char* what, bool isTrue)
{
    if (!isTrue) {
        std::fprintf(stderr, "failed: %s\n", what);
        ++failures;
    }
}

void ReportAndAsk(VeltraClient& client)
{
    Check("CallAuth", client.CallAuth("consumer") == RESULT_OK);
    Check("UpdateGameInfo", client.UpdateGameInfo(1, RACER, 0) == RESULT_OK);
    Check("SyncAppType", client.SyncAppType(RACER, 0) == std::map<std::string, bool>{{RACER, true}});
    GameInfo report;
    report.int32Value = 7;
    client.ReportGameEvent(report);
    Check("ReportGameEvent, QueryGameState", GameStateBecomes(client, 7));
    Check("ReportRenderThread", client.ReportRenderThread("render", "main", 17) == RESULT_OK);
    Check("GetDeviceInfo", client.GetDeviceInfo({}).tempLevel >= 0);
    GameSceneBundle scene;
    scene.sceneName = "harbour";
    Check("NotifyGameEvent", client.NotifyGameEvent(scene) == RESULT_OK);
    std::vector<AppResourceDownLoadResult> results(1);
    Check("NotifyAppResourceDownLoadResults", client.NotifyAppResourceDownLoadResults(results) == RESULT_OK);
    std::map<std::string, std::string> query{{"gpuCounters", ""}};
    Check("GetSystemFunctionStatus",
          client.GetSystemFunctionStatus(query) == std::map<std::string, std::string>{{"gpuCounters", "supported"}});
}

void Subscribe(VeltraClient& client)
{
    Check("RegisterGameCallback", client.RegisterGameCallback(std::make_unique<OnEvent>(), 1) == RESULT_OK);
    Check("game event", arrivals.WaitFor("game event"));
    Check("UnRegisterGameCallback", client.UnRegisterGameCallback(1) == RESULT_OK);
    Check("StartGetGpuPerfInfo", client.StartGetGpuPerfInfo(0, std::make_unique<OnSamples>()) == RESULT_OK);
    Check("samples", arrivals.WaitFor("samples"));
    Check("StopGetGpuPerfInfo", client.StopGetGpuPerfInfo() == RESULT_OK);
    std::vector<std::string> all;
    Check("GetAppPrioritys", client.GetAppPrioritys(all, std::make_unique<OnPriorities>()) == RESULT_OK);
    Check("priorities", arrivals.WaitFor("priorities"));
    Check("QueryAppResourceInfos", client.QueryAppResourceInfos({RACER}, std::make_unique<OnResources>()) == RESULT_OK);
    Check("resources", arrivals.WaitFor("resources"));
}

}  // namespace

int main()
{
    VeltraClient client;
    ReportAndAsk(client);
    Subscribe(client);
    // What a host that goes behind the facade links to.
    Check("JsonUtils", JsonUtils::StringToJson("{\"level\": 3}")["level"] == 3);
    Check("VeltraServerProxy", TAVO::MakeRef<VeltraServerProxy>(nullptr)->CallAuth("") == RESULT_NO_SERVICE);
    return failures == 0 ? 0 : 1;
}
