// SPDX-License-Identifier: Apache-2.0
// What becomes of the service's device-state documents.
#include <limits>
#include <string>
#include <utility>

#include "client/client_test.h"
#include "support/deep_text.h"
#include "support/event_values.h"
#include "veltra_server_client.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t UNKNOWN = std::numeric_limits<int32_t>::min();
constexpr int32_t REJECTED = 1010310021;

struct State {
    int32_t resultCode, tempLevel;
    int32_t gpuLoad = 0, vertexLoad = 0, fragmentLoad = 0, textureLoad = 0, bandwidthLoad = 0, frequency = 0;
    int32_t margin = UNKNOWN, trend = 0;
};

struct Row {
    const char* name;
    std::string text;
    State state;
};

// `depth` levels around a document that is otherwise fine.
std::string Nested(size_t depth)
{
    return "{\"tempLevel\":1,\"x\":" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
}

const Row ROWS[] = {
    {"full",
     R"({"tempLevel":2,"gpuInfo":{"gpuLoadLevel":1,"vertexLoadLevel":9,"fragmentLoadLevel":3,"textureLoadLevel":4,)"
     R"("bandwidthLoadLevel":5,"currentFrequency":650},"thermalInfo":{"thermalMargin":12,"thermalTrend":-1}})",
     {0, 2, 1, 9, 3, 4, 5, 650, 12, -1}},
    {"level only", R"({"tempLevel":3})", {0, 3}},
    {"section is no object", R"({"tempLevel":3,"gpuInfo":5,"thermalInfo":[1]})", {0, 3}},
    {"trend only", R"({"tempLevel":1,"thermalInfo":{"thermalTrend":2}})", {0, 1, 0, 0, 0, 0, 0, 0, UNKNOWN, 2}},
    {"not integral", R"({"tempLevel":1,"gpuInfo":{"currentFrequency":1.5,"gpuLoadLevel":"2"}})", {0, 1}},
    {"integral real", R"({"tempLevel":4.0})", {0, 4}},
    {"cut off", R"({"tempLevel":3,"gpuInfo":{"gpuLoadLevel":7)", {0, 3, 7}},
    {"negative level", R"({"tempLevel":-1})", {0, -1}},
    {"1000 levels", Nested(1000), {0, 1}},
    {"level is a text", R"({"tempLevel":"3"})", {REJECTED, -1}},
    {"level is missing", R"({"gpuInfo":{"gpuLoadLevel":1}})", {REJECTED, -1}},
    {"level is the mark for unknown", R"({"tempLevel":-2147483648})", {REJECTED, -1}},
    {"level does not fit", R"({"tempLevel":2147483648})", {REJECTED, -1}},
    {"level is huge", R"({"tempLevel":1e300})", {REJECTED, -1}},
    {"empty text", "", {REJECTED, -1}},
    {"no object", "[]", {REJECTED, -1}},
    {"empty object", "{}", {REJECTED, -1}},
    {"no document", "not json", {REJECTED, -1}},
    {"binary", std::string("\x00\x01\xff\xfe{\x80", 6), {REJECTED, -1}},
    {"NUL in a key and a text", std::string("{\"a\0b\":\"\0\",\"tempLevel\":2}", 26), {0, 2}},
    {"NUL behind it", std::string("{\"tempLevel\":1}\0\0", 17), {0, 1}},
    {"a million digits", R"({"tempLevel":)" + std::string(1000000, '9') + "}", {REJECTED, -1}},
    {"1 MiB of one key", "{" + TestSupport::Repeat(R"("tempLevel":1,)", 74000) + R"("tempLevel":4})", {0, 4}},
    {"1001 levels", Nested(1001), {REJECTED, -1}},
    {"100000 levels", Nested(100000), {REJECTED, -1}},
    {"1 MiB", R"({"tempLevel":1})" + std::string(1024 * 1024 - 15, ' '), {0, 1}},
    {"1 MiB and a byte", R"({"tempLevel":1})" + std::string(1024 * 1024 - 14, ' '), {REJECTED, -1}},
};

void ExpectState(const GameCallbackEventInfo& info, const State& state)
{
    EXPECT_EQ(ValuesOf(info), (std::vector<int32_t>{state.tempLevel, state.gpuLoad, state.vertexLoad,
                                                    state.fragmentLoad, state.textureLoad, state.bandwidthLoad,
                                                    state.frequency, state.margin, state.trend, 0, state.resultCode}));
    EXPECT_EQ(info.eventText, "");
}

class DeviceStateTest : public ClientTest {
protected:
    void ExpectAnswer(const State& expected, FakeRemoteObject::Answer answer)
    {
        RunService(std::move(answer));
        ExpectState(VeltraClient().GetDeviceInfo({}), expected);
    }
    static FakeRemoteObject::Answer Saying(int32_t code, const std::string& text)
    {
        return [code, text](uint32_t, MessageParcel&, MessageParcel& reply) {
            reply.WriteInt32(code);
            reply.WriteString(text);
            return 0;
        };
    }
};

// The rejection is overwritten by a query: the game sees success and a record of defaults.
TEST_F(DeviceStateTest, DocumentsFillTheRecordOrAreRejectedWhole)
{
    for (const Row& row : ROWS) {
        SCOPED_TRACE(row.name);
        GameCallbackEventInfo info;
        proxy_.AssembleDeviceStateResponse(row.text, info);
        ExpectState(info, row.state);
        State expected = row.state;
        expected.resultCode = 0;
        ExpectAnswer(expected, Saying(0, row.text));
    }
}

TEST_F(DeviceStateTest, FailuresLeaveTheDefaults)
{
    ExpectAnswer({42, -1}, Saying(42, R"({"tempLevel":3})"));
    ExpectAnswer({1010310014, -1}, [](uint32_t, MessageParcel&, MessageParcel&) { return IPC_TIMED_OUT; });
    ExpectAnswer({0, -1}, nullptr);  // an empty reply reads as code 0, no text
}

}  // namespace
}  // namespace TAVO::Veltra
