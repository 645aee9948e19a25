// SPDX-License-Identifier: Apache-2.0
// Deeply nested texts: measured as the parser would meet them, refused before they overflow a stack.
#include "utils/json_text_guard.h"

#include <gtest/gtest.h>

#include "support/deep_text.h"
#include "utils/json_utils.h"

namespace TAVO::Veltra {
namespace {

using TestSupport::Arrays;
using TestSupport::Repeat;

// With a plain value in the innermost one.
std::string Objects(size_t depth)
{
    return Repeat("{\"a\":", depth) + "1" + Repeat("}", depth);
}

TEST(JsonNesting, CountsWhatTheParserMeets)
{
    const std::pair<std::string, size_t> rows[] = {
        {"", 0},
        {"1", 0},
        {"[]", 1},
        {"{\"a\":[{}],\"b\":[[]]}", 3},
        {"[[],[],[[", 3},
        {"\xef\xbb\xbf[[]]", 2},
        {" \t\r\n[]", 1},
        // Brackets in strings, after escapes too.
        {"[\"[[[\"]", 1},
        {"[\"\\\"[[\"]", 1},
        {"[\"\\\\\",[]]", 2},
        {"[\"[[", 1},
        {"[\"\\", 1},
        // Brackets in comments, which end as the reader ends them.
        {"/*[[[*/[]", 1},
        {"/*/[[*/[]", 1},
        {"[//[[[\n[]]", 2},
        {"[//[[[\r[]]", 2},
        {"[/*[[", 1},
        {"[/", 1},
        // What follows the first value is not read.
        {"[] [[[", 1},
        {"1 [[[", 0},
        {"\"s\" [[[", 0},
    };
    for (const auto& [text, depth] : rows) {
        EXPECT_EQ(JsonNestingDepth(text), depth) << text;
    }
}

// The value in the innermost object is a level too.
TEST(JsonNesting, ThousandLevelsAreTheMost)
{
    const std::pair<std::string, bool> rows[] = {
        {Arrays(1000), true},
        {Arrays(1001), false},
        {Objects(999), true},
        {Objects(1000), false},
        {Arrays(100000), false},
        {Repeat("[", 100000), false},
        {"[3]" + Repeat("[", 100000), true},
    };
    for (const auto& [text, parses] : rows) {
        SCOPED_TRACE(text.size());
        EXPECT_EQ(!JsonUtils::StringToJson(text).isNull(), parses);
        Json::Value value;
        EXPECT_EQ(JsonUtils::Parse(text, value), parses);
    }
}

// The process survives on every size of stack, whether the text is refused or parsed.
TEST(JsonNesting, SmallStacksAreNotOverflown)
{
    size_t refused = 0;
    size_t parsed = 0;
    for (const std::string& text : {Arrays(10), Objects(10), Arrays(50), Objects(50), Arrays(100), Objects(100),
                                    Arrays(500), Objects(500), Arrays(1000), Objects(999)}) {
        for (size_t sizeBytes = 32 * 1024; sizeBytes <= 768 * 1024;
             sizeBytes += sizeBytes < 128 * 1024 ? 4096 : 16384) {
            TestSupport::RunOnStackOf(sizeBytes, [&] {
                Json::Value value;
                ++(JsonUtils::Parse(text, value) ? parsed : refused);
                ++(JsonUtils::StringToJson(text).isNull() ? refused : parsed);
            });
        }
    }
    EXPECT_GT(refused, 0u);
    EXPECT_GT(parsed, 0u);
}

TEST(JsonNesting, DeviceStateIsReadOnASmallGameThread)
{
    TestSupport::RunOnStackOf(64 * 1024, [] {
        EXPECT_FALSE(JsonUtils::StringToJson("{\"gpuInfo\":{\"gpuLoadLevel\":1},\"thermalInfo\":{}}").isNull());
    });
}

}  // namespace
}  // namespace TAVO::Veltra
