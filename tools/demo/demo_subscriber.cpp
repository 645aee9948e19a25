// SPDX-License-Identifier: Apache-2.0
// The second game of the demo: subscribes to events and GPU counters, makes queries that are answered by callback, and
// is subscribed when the service is killed. It then shows that the next service does not know its subscription, and how
// a game registers again. Callbacks run on platform threads and only store what they received; main waits for it.
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "demo_steps.h"

namespace {

using Demo::TimedStep;
using namespace TAVO::Veltra;

constexpr std::chrono::seconds WAIT_LIMIT{10};

// What the callbacks have received, on any thread.
class Received {
public:
    void Event(int32_t key)
    {
        const std::lock_guard lock(mutex_);
        keys_.push_back(key);
        changed_.notify_all();
    }
    void Samples(const std::vector<GpuPerfInfo>& samples)
    {
        const std::lock_guard lock(mutex_);
        ++batches_;
        samples_ += samples.size();
        changed_.notify_all();
    }
    void Answer(const std::string& text)
    {
        const std::lock_guard lock(mutex_);
        answer_ = text;
        changed_.notify_all();
    }

    // The keys that events came to since the last call, once there are `count` of them or time is up.
    std::vector<int32_t> TakeKeys(size_t count, std::chrono::seconds limit = WAIT_LIMIT)
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, limit, [&] { return keys_.size() >= count; });
        return std::exchange(keys_, {});
    }
    bool WaitForBatches(int count)
    {
        std::unique_lock lock(mutex_);
        const bool isEnough = changed_.wait_for(lock, WAIT_LIMIT, [&] { return batches_ >= count; });
        std::printf("    %d batches, %zu samples\n", batches_, samples_);
        return isEnough;
    }
    bool WaitForAnswer()
    {
        std::unique_lock lock(mutex_);
        const bool isThere = changed_.wait_for(lock, WAIT_LIMIT, [&] { return !answer_.empty(); });
        std::printf("    answer: %s\n", isThere ? std::exchange(answer_, "").c_str() : "none came");
        return isThere;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int32_t> keys_;
    int batches_ = 0;
    size_t samples_ = 0;
    std::string answer_;
};

Received& AllReceived()
{
    static Received* const received = new Received;  // callbacks may run until the process has ended
    return *received;
}

class Events : public GameEventCallbackBase {
public:
    explicit Events(int32_t key) : key_(key) {}
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo&) override
    {
        AllReceived().Event(key_);
        return 0;
    }

private:
    const int32_t key_;
};

class GpuSamples : public GpuCounterCallBackBase {
public:
    int32_t OnGpuData(std::vector<GpuPerfInfo>& samples) override
    {
        AllReceived().Samples(samples);
        return 0;
    }
};

class Priorities : public GetAppPrioritysCallbackBase {
public:
    int32_t OnGetAppPrioritys(std::vector<std::string>& names) override
    {
        std::string text;
        for (const std::string& name : names) {
            text += (text.empty() ? "" : ", then ") + name;
        }
        AllReceived().Answer(text);
        return 0;
    }
};

class Resources : public QueryAppResourceInfoCallbackBase {
public:
    int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) override
    {
        std::string text;
        for (const AppResourceInfo& info : infos.resourceInfos) {
            text += (text.empty() ? "" : ", ") + info.text2 + " (" + std::to_string(info.long1) + " bytes)";
        }
        AllReceived().Answer(text);
        return 0;
    }
};

bool Register(VeltraClient& client, int32_t key, const char* what)
{
    return TimedStep(what, [&] { return client.RegisterGameCallback(std::make_unique<Events>(key), key); });
}

// Whether each event reaches the keys 1 and 2, in that order, though 2 was registered first.
bool BothReceiveInOrder()
{
    constexpr size_t ENOUGH = 7;
    const std::vector<int32_t> keys = AllReceived().TakeKeys(ENOUGH);
    std::printf("    events came to the keys:");
    for (const int32_t key : keys) {
        std::printf(" %d", key);
    }
    std::printf("\n");
    const auto first = std::find(keys.begin(), keys.end(), 1);  // key 2 may have received some alone before
    const bool isOrdered = std::adjacent_find(first, keys.end()) == keys.end();
    return keys.size() >= ENOUGH && keys.end() - first > 2 && isOrdered;
}

bool Subscribe(VeltraClient& client)
{
    AllReceived().TakeKeys(0);  // what is left of an earlier subscription
    return Register(client, 2, "game events, key 2 asks the service") &&
           Register(client, 1, "game events, key 1 joins it") && BothReceiveInOrder();
}

bool WatchGpu(VeltraClient& client)
{
    return TimedStep("GPU counters begin",
                     [&client] { return client.StartGetGpuPerfInfo(0, std::make_unique<GpuSamples>()); }) &&
           AllReceived().WaitForBatches(3) &&
           TimedStep("GPU counters end", [&client] { return client.StopGetGpuPerfInfo(); });
}

bool Ask(VeltraClient& client)
{
    std::vector<std::string> names{"com.example.puzzle", "com.example.racer"};
    GameState state;
    const bool isAnswered =
        TimedStep("priorities of two applications",
                  [&] { return client.GetAppPrioritys(names, std::make_unique<Priorities>()); }) &&
        AllReceived().WaitForAnswer() &&
        TimedStep("resources of an application",
                  [&] { return client.QueryAppResourceInfos({"com.example.racer"}, std::make_unique<Resources>()); }) &&
        AllReceived().WaitForAnswer() &&
        TimedStep("this game's info", [&client] { return client.UpdateGameInfo(1, "com.example.racer", 0); }) &&
        TimedStep("game state", [&] { return client.QueryGameState(state); });
    std::printf("    state %d of %s\n", state.state, state.bundleName.c_str());
    return isAnswered && state.bundleName == "com.example.racer";
}

// Only a service that has the registration answers its end with 0.
bool Unsubscribe(VeltraClient& client)
{
    return TimedStep("key 1 leaves", [&client] { return client.UnRegisterGameCallback(1); }) &&
           TimedStep("key 2, the last one, ends it there", [&client] { return client.UnRegisterGameCallback(2); });
}

// The library still treats the game as registered, so a new key sends no request, and the new service sends no events.
bool ShowTheSilence(VeltraClient& client)
{
    constexpr std::chrono::seconds SILENCE{2};
    if (!Register(client, 3, "key 3 joins, no request is sent")) {
        return false;
    }
    AllReceived().TakeKeys(0);
    const size_t received = AllReceived().TakeKeys(1, SILENCE).size();
    std::printf(
        "    events within 2 s: %zu. The client stays registered across the restart, and the\n"
        "    new service does not know of it. The remedy: unregister every key, ignore 1010310018\n"
        "    from the last one, register again.\n",
        received);
    return received == 0;
}

bool Remedy(VeltraClient& client)
{
    const bool isLeft = client.UnRegisterGameCallback(1) == RESULT_OK && client.UnRegisterGameCallback(2) == RESULT_OK;
    const int32_t last = client.UnRegisterGameCallback(3);
    std::printf("  %-38s %d, as it should be\n", "the last key leaves", last);
    return isLeft && last == RESULT_UNREGISTER_REFUSED && Subscribe(client) && Unsubscribe(client);
}

}  // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    VeltraClient client;
    const bool isReady = Demo::Auth(client, "first call") && Subscribe(client) && WatchGpu(client) && Ask(client) &&
                         Unsubscribe(client) && Subscribe(client);
    return Demo::Pause(isReady) && Demo::AuthAgain(client) && ShowTheSilence(client) && Remedy(client) ? 0 : 1;
}
