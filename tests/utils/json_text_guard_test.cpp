// SPDX-License-Identifier: Apache-2.0
// Deeply nested texts: measured as the parser would meet them, refused before they overflow a stack.
#include "utils/json_text_guard.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>

#include "utils/json_utils.h"

namespace TAVO::Veltra {
namespace {

std::string Repeat(const std::string& text, size_t times)
{
    std::string result;
    while (times-- > 0) {
        result += text;
    }
    return result;
}

std::string Arrays(size_t depth)
{
    return Repeat("[", depth) + Repeat("]", depth);
}

// With a plain value in the innermost one.
std::string Objects(size_t depth)
{
    return Repeat("{\"a\":", depth) + "1" + Repeat("}", depth);
}

void RunOnStackOf(size_t sizeBytes, std::function<void()> job)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, sizeBytes), 0);
    pthread_t thread;
    const auto run = [](void* context) -> void* {
        (*static_cast<std::function<void()>*>(context))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &job), 0);
    pthread_attr_destroy(&attributes);
    pthread_join(thread, nullptr);
}

TEST(JsonNesting, CountsWhatTheParserMeets)
{
    const struct {
        std::string text;
        size_t depth;
    } rows[] = {
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
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(JsonNestingDepth(row.text), row.depth);
    }
}

TEST(JsonNesting, ThousandLevelsAreTheMost)
{
    const struct {
        const char* name;
        std::string text;
        bool parses;
    } rows[] = {
        {"1000 arrays", Arrays(1000), true},
        {"1001 arrays", Arrays(1001), false},
        {"999 objects", Objects(999), true},
        {"1000 objects, and a value as the level too many", Objects(1000), false},
        {"many, closed", Arrays(100000), false},
        {"many, open", Repeat("[", 100000), false},
        {"many, behind the value", "[3]" + Repeat("[", 100000), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(!JsonUtils::StringToJson(row.text).isNull(), row.parses);
        Json::Value value;
        EXPECT_EQ(JsonUtils::Parse(row.text, value), row.parses);
    }
}

// The process survives on every size of stack, whether the text is refused or parsed.
TEST(JsonNesting, SmallStacksAreNotOverflown)
{
    size_t refused = 0;
    size_t parsed = 0;
    for (const std::string& text : {Arrays(100), Objects(100), Arrays(500), Objects(500), Arrays(1000), Objects(999)}) {
        for (size_t sizeBytes = 96 * 1024; sizeBytes <= 768 * 1024; sizeBytes += 16 * 1024) {
            RunOnStackOf(sizeBytes, [&] {
                Json::Value value;
                ++(JsonUtils::Parse(text, value) ? parsed : refused);
                ++(JsonUtils::StringToJson(text).isNull() ? refused : parsed);
            });
        }
    }
    EXPECT_GT(refused, 0u);
    EXPECT_GT(parsed, 0u);
}

TEST(JsonNesting, SaneTextsPassOnSmallStacks)
{
    RunOnStackOf(128 * 1024, [] {
        EXPECT_TRUE(IsJsonSafeToParse("{\"gpuInfo\":{\"gpuLoadLevel\":1},\"thermalInfo\":{}}"));
        EXPECT_FALSE(IsJsonSafeToParse(Arrays(500)));
    });
}

}  // namespace
}  // namespace TAVO::Veltra
