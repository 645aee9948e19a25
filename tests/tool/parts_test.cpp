// SPDX-License-Identifier: Apache-2.0
// Parts of the tool that need no service.
#include <gtest/gtest.h>

#include "output.h"
#include "recording.h"
#include "redactor.h"
#include "top_layout.h"
#include "utils/json_utils.h"

namespace VeltraTool {
namespace {

using TAVO::Veltra::JsonUtils;

// Keys of maps may be texts of a game as well.
TEST(Redactor, LeavesNoTextOfAGame)
{
    Json::Value record = JsonUtils::StringToJson(R"({
        "op": "GetDeviceInfo", "data": {"eventText": "deviceState"}, "command": "set secret",
        "args": {"text": "secret", "details": [{"queryType": 1, "queryParams": {"secret": "a secret"}}],
                 "bundle": {"attributes": {"secret": "1"}}, "query": {"secret": ""}, "names": ["secret", 7]}})");
    Redactor().Redact(record);
    const std::string text = JsonText(record);
    EXPECT_EQ(text.find("secret"), std::string::npos) << text;
    EXPECT_NE(text.find(R"("eventText":"deviceState")"), std::string::npos) << text;
    EXPECT_EQ(record["args"]["text"], record["args"]["names"][0]);
}

TEST(Redactor, LeavesWhatACommandDoes)
{
    Json::Value record = JsonUtils::StringToJson(
        R"({"command": {"do": "fault", "kind": "hang", "operation": "CallAuth", "text": "secret"}})");
    Json::Value expected = record;
    expected["command"]["text"] = "text-1";
    Redactor().Redact(record);
    EXPECT_EQ(JsonText(record), JsonText(expected));
}

TEST(RecordingHeader, NamesAsManyGamesAsFitInALine)
{
    Json::Value games = Json::arrayValue;
    Json::Value header;
    for (int i = 0; i < 1000; ++i) {
        games.append(std::string(97, '\n'));  // 196 bytes as JSON, and a comma
    }
    AddGames(games, header);
    EXPECT_EQ(header["games"].size(), 332U);
    EXPECT_LE(JsonText(header).size(), RecordingReader::MAX_LINE_BYTES);
}

TEST(TopState, RatesBeginAnewWithEachService)
{
    const TopState::Clock::time_point start;
    TopState state;
    const auto rateAfter = [&](int seconds, int process, int count) {
        Json::Value report;
        report["service"]["pid"] = process;
        report["calls"]["CallAuth"]["count"] = count;
        state.SetReport(report, start + std::chrono::seconds(seconds));
        return state.Rate("CallAuth");
    };
    EXPECT_EQ(rateAfter(1, 7, 10), std::nullopt);
    EXPECT_EQ(rateAfter(3, 7, 30), 10);
    EXPECT_EQ(rateAfter(4, 8, 5), std::nullopt);
    EXPECT_EQ(rateAfter(5, 8, 6), 1);
    state.SetTrouble("it has ended");
    EXPECT_EQ(rateAfter(6, 8, 7), std::nullopt);
}

}  // namespace
}  // namespace VeltraTool
