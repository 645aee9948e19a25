// SPDX-License-Identifier: Apache-2.0
// Whatever a service answers, the game sees a documented value and lives on, on a small stack too.
#include <pthread.h>

#include <functional>
#include <limits>

#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

constexpr size_t MAIN_STACK = size_t{8} << 20;
constexpr size_t SMALL_STACK = size_t{256} << 10;
constexpr size_t MIB = size_t{1} << 20;

void RunOnStack(size_t bytes, std::function<void()> body)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread{};
    const auto run = [](void* context) -> void* {
        (*static_cast<std::function<void()>*>(context))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

std::string Repeat(const std::string& text, size_t times)
{
    std::string result;
    result.reserve(text.size() * times);
    for (size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

struct Document {
    const char* name;
    std::string text;
    int32_t tempLevel = -1;  // -1 and no other value: the record of defaults
    int32_t gpuLoadLevel = 0;
};

const std::vector<Document> DOCUMENTS = {
    {"sane", R"({"tempLevel":3,"gpuInfo":{"gpuLoadLevel":2}})", 3, 2},
    {"empty", ""},
    {"no document", "not json"},
    {"an array", "[1,2,3]"},
    {"a number", "7"},
    {"binary", std::string("\x00\x01\xff\xfe{\x80", 6)},
    {"NUL in a key and a text", std::string("{\"a\0b\":\"\0\",\"tempLevel\":2}", 26), 2},
    {"NUL behind it", std::string("{\"tempLevel\":1}\0\0", 17), 1},
    {"100,000 arrays, never closed", Repeat("[", 100000)},
    {"100,000 objects, never closed", Repeat(R"({"a":)", 100000)},
    {"1000 objects", Repeat(R"({"a":)", 1000) + "1" + Repeat("}", 1000)},
    {"100,000 arrays behind a level", R"({"tempLevel":1,"x":)" + Repeat("[", 100000) + Repeat("]", 100000) + "}"},
    {"1 MiB of brackets", Repeat("[]", MIB / 2)},
    {"a byte more than 1 MiB", R"({"tempLevel":1})" + std::string(MIB - 14, ' ')},
    {"16 MiB", R"({"tempLevel":1})" + std::string(16 * MIB, ' ')},
    {"1 MiB of one key", "{" + Repeat(R"("tempLevel":1,)", (MIB - 20) / 14) + R"("tempLevel":4})", 4},
    {"cut in a number", R"({"tempLevel":3,"gpuInfo":{"gpuLoadLevel":7)", 3, 7},
    {"cut in a key", R"({"tempLevel":3,"gpu)", 3},
    {"cut at once", "{"},
    {"level of another type", R"({"tempLevel":[1]})"},
    {"level that does not fit", R"({"tempLevel":1e300})"},
    {"level too large to be a number", R"({"tempLevel":1e999})"},
    {"a million digits", R"({"tempLevel":)" + Repeat("9", 1000000) + "}"},
    {"sections of other types", R"({"tempLevel":1,"gpuInfo":[],"thermalInfo":"hot"})", 1},
    {"members of other types", R"({"tempLevel":1,"gpuInfo":{"gpuLoadLevel":{},"currentFrequency":"9"}})", 1},
};

class HostileAnswer : public SystemFixture {
protected:
    HostileAnswer()
    {
        StartManager();
        service_ = StartTestService();
    }

    GameCallbackEventInfo Ask(const std::map<std::string, std::string>& wanted)
    {
        return client_.GetDeviceInfo({{0, wanted}});
    }

    std::map<std::string, std::string> AskFunctions(int announced, int sent)
    {
        std::map<std::string, std::string> query = {{"announced", std::to_string(announced)},
                                                    {"sent", std::to_string(sent)}};
        return client_.GetSystemFunctionStatus(query);
    }

    void ExpectState(const GameCallbackEventInfo& info, int32_t resultCode, int32_t tempLevel, int32_t gpuLoadLevel)
    {
        EXPECT_EQ(info.resultCode, resultCode);
        EXPECT_EQ(info.tempLevel, tempLevel);
        EXPECT_EQ(info.gpuLoadLevel, gpuLoadLevel);
        EXPECT_EQ(info.currentFrequency, 0);
        EXPECT_EQ(info.thermalMargin, std::numeric_limits<int32_t>::min());
        EXPECT_EQ(info.eventText, "");
    }

    Child service_;
};

TEST_F(HostileAnswer, ADocumentGivesItsValuesOrDefaultsAndCodeZero)
{
    for (const size_t stack : {MAIN_STACK, SMALL_STACK}) {
        for (const Document& document : DOCUMENTS) {
            SCOPED_TRACE(document.name + std::string(" on a stack of ") + std::to_string(stack));
            GameCallbackEventInfo info;
            RunOnStack(stack, [&] { info = Ask({{"code", "0"}, {"text", document.text}}); });
            ExpectState(info, 0, document.tempLevel, document.gpuLoadLevel);
        }
    }
    EXPECT_EQ(client_.CallAuth("pid"), service_.Pid());
}

// The real service, which reads its scenario whenever it is started.
class SpoiledAnswer : public SystemFixture {
protected:
    SpoiledAnswer()
    {
        WriteScenario("{}");
        StartManager();
    }
};

TEST_F(SpoiledAnswer, GivesItsValuesOrDefaultsAndCodeZero)
{
    const struct {
        const char* name;
        std::string fault;
        int32_t tempLevel;
    } rows[] = {
        {"cut off", R"("kind": "badText")", -1},
        {"partial", R"("kind": "badText", "text": "{\"tempLevel\": 3, \"gpuInfo\": {")", 3},
        {"deep", R"("kind": "badText", "text": ")" + Repeat("[", 60000) + '"', -1},
        {"short", R"("kind": "shortReply", "operation": "GetDeviceInfo")", -1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        WriteScenario(R"({"curves": {"tempLevel": 5}, "faults": [{)" + row.fault + "}]}");
        for (const size_t stack : {MAIN_STACK, SMALL_STACK}) {
            GameCallbackEventInfo info;
            RunOnStack(stack, [&] { info = client_.GetDeviceInfo({}); });
            EXPECT_EQ(info.resultCode, 0);
            EXPECT_EQ(info.tempLevel, row.tempLevel);
        }
        KillService();
    }
    EXPECT_EQ(Starts(), 4);
}

// What the parser accepts on a large stack it must not die of on a small one.
TEST_F(HostileAnswer, DeepButAcceptableTextNeedsAStackThatHoldsIt)
{
    const std::string text = R"({"tempLevel":1,"x":)" + Repeat("[", 990) + Repeat("]", 990) + "}";
    GameCallbackEventInfo onLarge;
    RunOnStack(MAIN_STACK, [&] { onLarge = Ask({{"code", "0"}, {"text", text}}); });
    ExpectState(onLarge, 0, 1, 0);
    GameCallbackEventInfo onSmall;
    RunOnStack(SMALL_STACK, [&] { onSmall = Ask({{"code", "0"}, {"text", text}}); });
    ExpectState(onSmall, 0, -1, 0);
}

TEST_F(HostileAnswer, ShortRepliesReadAsZeroOrEmpty)
{
    ExpectState(Ask({}), 0, -1, 0);
    ExpectState(Ask({{"code", "0"}}), 0, -1, 0);
    ExpectState(Ask({{"code", "77"}, {"text", R"({"tempLevel":3})"}}), 77, -1, 0);
    EXPECT_EQ(client_.CallAuth("no reply"), 0);
    EXPECT_EQ(client_.UpdateGameInfo(1, "", 0), 0);
    EXPECT_EQ(client_.ReportRenderThread("", "", 1), 0);
    GameSceneBundle scene;
    EXPECT_EQ(client_.NotifyGameEvent(scene), 0);
    std::vector<AppResourceDownLoadResult> results(1);
    EXPECT_EQ(client_.NotifyAppResourceDownLoadResults(results), 0);
}

// A handler's own status is no answer, not even one that looks like a fault of the transport.
TEST_F(HostileAnswer, AnyStatusButZeroIsNoService)
{
    for (const char* status : {"1", "-1", "-100001", "1010310010", "2147483647", "-2147483648"}) {
        SCOPED_TRACE(status);
        EXPECT_EQ(client_.CallAuth(status), RESULT_NO_SERVICE);
    }
    EXPECT_EQ(client_.CallAuth("pid"), service_.Pid());
}

TEST_F(HostileAnswer, CountsAreBoundedAndWhatIsMissingIsEmpty)
{
    constexpr int MAX = std::numeric_limits<int>::max();
    const struct {
        int announced;
        int sent;
        size_t types;
        size_t functions;
    } rows[] = {
        {0, 5, 0, 0},         {-1, 5, 0, 0},          {-MAX - 1, 5, 0, 0},      {5, 5, 5, 5},
        {5, 3, 4, 4},  // the three, and one for all empty keys
        {100, 100, 100, 100}, {101, 101, 101, 100},   {1000, 1000, 1000, 100},  {1001, 1001, 1000, 100},
        {MAX, 0, 1, 1},       {MAX, 1001, 1000, 100}, {MAX, 100000, 1000, 100},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.announced) + " announced, " + std::to_string(row.sent) + " sent");
        EXPECT_EQ(client_.SyncAppType(std::to_string(row.sent), row.announced).size(), row.types);
        EXPECT_EQ(AskFunctions(row.announced, row.sent).size(), row.functions);
    }
}

}  // namespace
}  // namespace SystemTest
