// SPDX-License-Identifier: Apache-2.0
// A small game: calls, asks and is called back. Fails where the result is not what the example scenario gives.
#include <future>
#include <iostream>

#include "veltra_server_client.h"

using namespace TAVO::Veltra;

// Callbacks run on threads of the library, also while the process exits, so this is never destroyed.
std::promise<int32_t>& trend = *new std::promise<int32_t>;

struct OnFirstEvent : GameEventCallbackBase {
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override
    {
        if (!isTold_) {
            trend.set_value(info.thermalTrend);
        }
        isTold_ = true;
        return RESULT_OK;
    }
    bool isTold_ = false;
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
    Show("GetDeviceInfo, the trend", client.GetDeviceInfo({}).thermalTrend, 1);
    Show("RegisterGameCallback", client.RegisterGameCallback(std::make_unique<OnFirstEvent>(), 1));
    Show("the trend of an event", trend.get_future().get(), 1);
    Show("UnRegisterGameCallback", client.UnRegisterGameCallback(1));
    return failures == 0 ? 0 : 1;
}
