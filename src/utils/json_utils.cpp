// SPDX-License-Identifier: Apache-2.0
// Every text goes through IsJsonSafeToParse before it reaches the parser. JsonCpp throws on misuse and when memory runs
// out, while the operations here promise not to: what may throw is caught in the operation, whose result is then its
// failure value. Lookups test the type before they convert, since a wrong type throws. Two readers and two writers are
// in use, on purpose: callers depend on the differences between them.
#include "utils/json_utils.h"

#include <json/reader.h>
#include <json/writer.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <utility>

#include "utils/json_text_guard.h"

namespace TAVO::Veltra {
namespace {

// Into `value` itself: what the parser had understood before an error stays there.
bool ReadText(const std::string& text, Json::Value& value)
{
    if (!IsJsonSafeToParse(text)) {
        return false;
    }
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    return reader != nullptr && reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
}

// The member, or null. Looks before it reaches, since JsonCpp throws or adds a member where there is none.
const Json::Value* FindMember(const Json::Value& object, const std::string& key)
{
    return object.isObject() ? object.find(key.data(), key.data() + key.size()) : nullptr;
}

}  // namespace

void JsonUtils::WriteFileFromJsonValue(const std::string& path, Json::Value& value)
try {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "\t";
    std::ofstream file(path);
    const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
    writer->write(value, &file);
} catch (...) {
}

bool JsonUtils::GetJsonValueFromFile(const std::string& path, Json::Value& value)
try {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return ReadText(text.str(), value);
} catch (...) {
    return false;
}

Json::Value JsonUtils::StringToJson(const std::string& text)
try {
    Json::Value value;
    // Deliberate: the result is not looked at. A text that was cut off yields its beginning, which callers rely on.
    ReadText(text, value);
    return value;
} catch (...) {
    return Json::Value();
}

// Deliberate: the older reader and writer. They differ from the newer ones in trailing commas, byte order marks and
// line ends.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

bool JsonUtils::Parse(const std::string& text, Json::Value& value)
try {
    if (text.empty()) {
        return true;
    }
    return IsJsonSafeToParse(text) && Json::Reader().parse(text, value, true);
} catch (...) {
    return false;
}

std::string JsonUtils::JsonToString(Json::Value& value)
try {
    return Json::FastWriter().write(value);
} catch (...) {
    return std::string();
}

#pragma GCC diagnostic pop

std::string JsonUtils::JsonToString(const Json::Value& value)
try {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
} catch (...) {
    return std::string();
}

// NOLINTBEGIN(performance-unnecessary-value-param): keys by value are part of the binary interface.

int32_t JsonUtils::GetInt(Json::Value& object, std::string key, int32_t defaultValue)
{
    const Json::Value* member = FindMember(object, key);
    return member != nullptr && member->isInt() ? member->asInt() : defaultValue;
}

int64_t JsonUtils::GetInt64(Json::Value& object, std::string key, int64_t defaultValue)
{
    const Json::Value* member = FindMember(object, key);
    return member != nullptr && member->isInt64() ? member->asInt64() : defaultValue;
}

std::string JsonUtils::GetString(Json::Value& object, std::string key, std::string defaultValue)
try {
    const Json::Value* member = FindMember(object, key);
    return member != nullptr && member->isString() ? member->asString() : std::move(defaultValue);
} catch (...) {
    return defaultValue;
}

bool JsonUtils::GetBool(Json::Value& object, std::string key, bool defaultValue)
{
    const Json::Value* member = FindMember(object, key);
    return member != nullptr && member->isBool() ? member->asBool() : defaultValue;
}

// NOLINTEND(performance-unnecessary-value-param)

}  // namespace TAVO::Veltra
