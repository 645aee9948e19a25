// SPDX-License-Identifier: Apache-2.0
// What the JSON helpers return for valid, odd and broken documents, and for files.
#include "utils/json_utils.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

Json::Value Object(const std::string& text)
{
    Json::Value value = JsonUtils::StringToJson(text);
    EXPECT_TRUE(value.isObject()) << text;
    return value;
}

// Beyond the range of both, the parser rounds.
TEST(JsonLookup, NumbersAreIntegersWhenTheyFit)
{
    const struct {
        const char* number;
        int32_t asInt;    // 7: the default
        int64_t asInt64;  // 8: the default
    } rows[] = {{"5", 5, 5},
                {"5.0", 5, 5},
                {"1.5", 7, 8},
                {"-2147483648", INT32_MIN, -2147483648LL},
                {"2147483648", 7, 2147483648LL},
                {"9223372036854775807", 7, INT64_MAX},
                {"9223372036854775808", 7, 8},
                {"-9223372036854775808", 7, INT64_MIN},
                {"-9223372036854775809", 7, INT64_MIN},
                {"1e300", 7, 8},
                {"\"5\"", 7, 8},
                {"true", 7, 8},
                {"null", 7, 8},
                {"{\"a\":5}", 7, 8}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.number);
        Json::Value object = Object(std::string("{\"a\":") + row.number + "}");
        EXPECT_EQ(JsonUtils::GetInt(object, "a", 7), row.asInt);
        EXPECT_EQ(JsonUtils::GetInt64(object, "a", 8), row.asInt64);
    }
}

TEST(JsonLookup, TextsAndBoolsAreNotConverted)
{
    Json::Value object = Object("{\"zero\":0,\"yes\":true,\"text\":\"t\",\"list\":[\"t\"]}");
    EXPECT_TRUE(JsonUtils::GetBool(object, "zero", true));
    EXPECT_TRUE(JsonUtils::GetBool(object, "yes", false));
    EXPECT_FALSE(JsonUtils::GetBool(object, "text", false));
    EXPECT_EQ(JsonUtils::GetString(object, "text", "d"), "t");
    EXPECT_EQ(JsonUtils::GetString(object, "yes", "d"), "d");
    EXPECT_EQ(JsonUtils::GetString(object, "list", "d"), "d");
    Json::Value odd = Object("{\"a\\u0000b\":1}");
    EXPECT_EQ(JsonUtils::GetInt(odd, std::string("a\0b", 3), 7), 1);
    EXPECT_EQ(JsonUtils::GetInt(odd, "a", 7), 7);
}

TEST(JsonLookup, AnythingButAnObjectYieldsTheDefaultAndStaysAsItWas)
{
    for (const char* text : {"null", "[]", "[1]", "3", "\"a\"", "true", "{}", "{\"b\":1}"}) {
        SCOPED_TRACE(text);
        Json::Value value = JsonUtils::StringToJson(text);
        const Json::Value before = value;
        EXPECT_EQ(JsonUtils::GetInt(value, "a", 7), 7);
        EXPECT_EQ(JsonUtils::GetInt64(value, "a", 8), 8);
        EXPECT_EQ(JsonUtils::GetString(value, "a", "d"), "d");
        EXPECT_TRUE(JsonUtils::GetBool(value, "a", true));
        EXPECT_EQ(value, before);
    }
}

// `left` is the value that the parser leaves behind, as text; "null" also for a text that is refused whole.
TEST(JsonParse, BothReadersOnOddDocuments)
{
    const struct {
        std::string text;
        std::string left;
        bool parses;  // by the older reader
    } rows[] = {
        {"{\"a\":1}", "{\"a\":1}", true},
        {"not json", "null", false},
        {" ", "null", false},
        {"{\"a\":1} trailing", "{\"a\":1}", true},
        {"{\"a\":1}{\"a\":2}", "{\"a\":1}", true},
        {"{\"a\":1,\"a\":2}", "{\"a\":2}", true},
        {"[1,]", "[1]", false},
        {"\xef\xbb\xbf{\"a\":1}", "{\"a\":1}", false},
        {"/* c */{\"a\":1}// d", "/* c */{\"a\":1} // d", true},
        {"-", "0", true},
        {"[1e400]", "[null]", false},
        {"NaN", "null", false},
        {std::string("{\"a\":1}\0", 8), "{\"a\":1}", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const Json::Value left = JsonUtils::StringToJson(row.text);
        EXPECT_EQ(JsonUtils::JsonToString(left), row.left);
        Json::Value value;
        EXPECT_EQ(JsonUtils::Parse(row.text, value), row.parses);
    }
}

// A text that was cut off is half believed: callers rely on it, so it must stay.
TEST(JsonParse, CutTextYieldsItsBeginningAndAnEmptyOneIsNoFailure)
{
    for (const char* text : {"{\"a\":3,\"g\":{\"x\":1", "{\"a\":3,\"g", "{\"a\":3,\"g\":0x10}"}) {
        Json::Value value = Object(text);
        EXPECT_EQ(JsonUtils::GetInt(value, "a", 7), 3) << text;
    }
    Json::Value value = 5;
    EXPECT_TRUE(JsonUtils::Parse("", value));
    EXPECT_EQ(value, Json::Value(5));
    EXPECT_TRUE(JsonUtils::StringToJson("").empty());
}

TEST(JsonWrite, ConstnessDecidesTheText)
{
    Json::Value value = Object("{\"b\":[1,true],\"a\":\"t\"}");
    const Json::Value& constant = value;
    EXPECT_EQ(JsonUtils::JsonToString(value), "{\"a\":\"t\",\"b\":[1,true]}\n");
    EXPECT_EQ(JsonUtils::JsonToString(constant), "{\"a\":\"t\",\"b\":[1,true]}");
}

TEST(JsonFile, ReadsBackWhatWasWrittenWithTabs)
{
    const ScratchDir dir;
    const std::string path = dir.Write("f", "something longer that was there before, to be cut off");
    Json::Value value = Object("{\"a\":{\"b\":-1}}");
    JsonUtils::WriteFileFromJsonValue(path, value);
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(text, "{\n\t\"a\" : \n\t{\n\t\t\"b\" : -1\n\t}\n}");
    Json::Value back;
    EXPECT_TRUE(JsonUtils::GetJsonValueFromFile(path, back));
    EXPECT_EQ(back, value);
}

TEST(JsonFile, MissingFoldersAndBrokenFilesAreSilent)
{
    const ScratchDir dir;
    Json::Value value = Object("{\"a\":1}");
    const std::string missing = dir.Path() + "/missing/f";
    JsonUtils::WriteFileFromJsonValue(missing, value);
    EXPECT_FALSE(std::filesystem::exists(dir.Path() + "/missing"));
    for (const std::string& path : {missing, dir.Write("broken", "{\"a\":"), dir.Write("empty", ""), dir.Path()}) {
        Json::Value read;
        EXPECT_FALSE(JsonUtils::GetJsonValueFromFile(path, read)) << path;
    }
}

}  // namespace
}  // namespace TAVO::Veltra
