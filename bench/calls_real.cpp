// SPDX-License-Identifier: Apache-2.0
// How many calls a second veltra_server answers to eight client processes that mix the operations of a game, beside
// eight processes that each use a bare connection with a thread at its other end.
#include <memory>
#include <string>
#include <vector>

#include "facade_bytes.h"
#include "helpers.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"
#include "veltra_server_client.h"

namespace {

using TAVO::Veltra::VeltraClient;

constexpr int CLIENTS = 8;
constexpr int CALLS = 1200;  // of each client in a round, a multiple of the operations mixed
constexpr int ROUNDS = 15;
constexpr char OURS = 'v';
constexpr char RAW = 'r';

void CallMixed(VeltraClient& client, const std::string& text, int count)
{
    using namespace TAVO::Veltra;
    bool isAnswered = true;
    switch (count % 6) {
        case 0:
            isAnswered = client.CallAuth(text) == RESULT_OK;
            break;
        case 1:
            isAnswered = client.UpdateGameInfo(100 + count, "com.example.game", 0) == RESULT_OK;
            break;
        case 2: {
            GameState state;
            isAnswered = client.QueryGameState(state) == RESULT_OK && !state.bundleName.empty();
            break;
        }
        case 3:
            isAnswered = client.SyncAppType("com.example.game,com.example.other", 0).size() == 2;
            break;
        case 4:
            isAnswered = client.ReportRenderThread("render", "main", 1) == RESULT_OK;
            break;
        default: {
            std::map<std::string, std::string> query = {{"gameState", ""}};
            isAnswered = client.GetSystemFunctionStatus(query).size() == 1;
        }
    }
    if (!isAnswered) {
        Bench::GiveUp("a call was not answered");
    }
}

}  // namespace

int main()
{
    Bench::MakeRuntimeDir();
    Bench::RawPeer raw(
        1, {Bench::CALL_AUTH_REQUEST_BYTES, std::vector<uint8_t>(Bench::CALL_AUTH_REPLY_BYTES), 1, CLIENTS});
    std::unique_ptr<VeltraClient> client;  // of each helper
    const std::string text(Bench::CALL_AUTH_TEXT_BYTES, 'x');
    Bench::Helpers helpers(CLIENTS, [&](int helper, char command) {
        if (client == nullptr) {
            Bench::Pin(0);
            client = std::make_unique<VeltraClient>();
        }
        for (int i = 0; i < CALLS; ++i) {
            if (command == RAW) {
                raw.Call(helper);
            } else {
                CallMixed(*client, text, i);
            }
        }
        return 0.0;
    });
    Bench::Platform platform(1, 0);
    const auto callsPerSecond = [&](char command) {
        const double start = Bench::Now();
        helpers.RunAll(command);
        return CLIENTS * CALLS / (Bench::Now() - start);
    };
    Bench::MeasureAndPrint(
        {"calls_real", "calls/s", 0.4, Bench::Holds::AT_LEAST}, ROUNDS, [&] { return callsPerSecond(OURS); },
        [&] { return callsPerSecond(RAW); });
    return 0;
}
