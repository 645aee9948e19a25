// SPDX-License-Identifier: Apache-2.0
// Whatever a service answers, the game sees a documented value and lives on, on a small stack too.
#include <limits>

#include "support/deep_text.h"
#include "support/event_values.h"
#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using TestSupport::Repeat;
using TestSupport::RunOnStackOf;

constexpr size_t MAIN_STACK = size_t{8} << 20;
constexpr size_t SMALL_STACK = size_t{256} << 10;
constexpr size_t MIB = size_t{1} << 20;

struct Document {
    const char* name;
    std::string text;
    int32_t tempLevel = -1;  // -1 and no other value: the record of defaults
    int32_t gpuLoadLevel = 0;
    bool isTooDeepForSmallStacks = false;
};

// Those whose size, depth or bytes matter to who carries and parses them; what they may say is tested with the client.
const std::vector<Document> DOCUMENTS = {
    {"sane", R"({"tempLevel":3,"gpuInfo":{"gpuLoadLevel":2}})", 3, 2},
    {"binary", std::string("\x00\x01\xff\xfe{\x80", 6)},
    {"NUL in a key and a text", std::string("{\"a\0b\":\"\0\",\"tempLevel\":2}", 26), 2},
    {"NUL behind it", std::string("{\"tempLevel\":1}\0\0", 17), 1},
    {"100,000 objects, never closed", Repeat(R"({"a":)", 100000)},
    {"100,000 arrays behind a level", R"({"tempLevel":1,"x":)" + TestSupport::Arrays(100000) + "}"},
    {"990 arrays", R"({"tempLevel":1,"x":)" + TestSupport::Arrays(990) + "}", 1, 0, true},
    {"1 MiB of brackets", Repeat("[]", MIB / 2)},
    {"16 MiB", R"({"tempLevel":1})" + std::string(16 * MIB, ' ')},
    {"1 MiB of one key", "{" + Repeat(R"("tempLevel":1,)", (MIB - 20) / 14) + R"("tempLevel":4})", 4},
    {"cut in a number", R"({"tempLevel":3,"gpuInfo":{"gpuLoadLevel":7)", 3, 7},
    {"level too large to be a number", R"({"tempLevel":1e999})"},
    {"a million digits", R"({"tempLevel":)" + Repeat("9", 1000000) + "}"},
};

class HostileAnswer : public SystemFixture {
protected:
    HostileAnswer()
    {
        StartManager();
        service_ = StartTestService();
    }

    Child service_;
};

TEST_F(HostileAnswer, ADocumentGivesItsValuesOrDefaultsAndCodeZero)
{
    const int32_t unknown = std::numeric_limits<int32_t>::min();
    for (const size_t stack : {MAIN_STACK, SMALL_STACK}) {
        for (const Document& document : DOCUMENTS) {
            SCOPED_TRACE(document.name + std::string(" on a stack of ") + std::to_string(stack));
            GameCallbackEventInfo info;
            RunOnStackOf(stack, [&] { info = client_.GetDeviceInfo({{0, {{"text", document.text}}}}); });
            const int32_t level = stack == SMALL_STACK && document.isTooDeepForSmallStacks ? -1 : document.tempLevel;
            EXPECT_EQ(ValuesOf(info),
                      (std::vector<int32_t>{level, document.gpuLoadLevel, 0, 0, 0, 0, 0, unknown, 0, 0, 0}));
        }
    }
    EXPECT_EQ(client_.CallAuth("pid"), service_.Pid());
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

}  // namespace
}  // namespace SystemTest
