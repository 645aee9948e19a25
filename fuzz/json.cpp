// SPDX-License-Identifier: Apache-2.0
// Does any text escape the JSON helpers or the device state, other than as the value or the code they promise?
#include <json/value.h>
#include <pthread.h>

#include <limits>
#include <string>

#include "client/veltra_server_client_proxy.h"
#include "input.h"
#include "utils/json_text_guard.h"
#include "utils/json_utils.h"
#include "veltra_result.h"

namespace {

using Fuzz::Require;
using namespace TAVO::Veltra;

constexpr size_t SMALL_STACK_BYTES = 256 * 1024;
constexpr size_t DEEP = 200;  // levels from which on a small stack is worth a thread

size_t DepthOf(const Json::Value& value)
{
    size_t deepest = 0;
    for (const Json::Value& member : value) {
        deepest = std::max(deepest, DepthOf(member));
    }
    return value.isObject() || value.isArray() ? deepest + 1 : 0;
}

void RequireLookups(Json::Value& value)
{
    const Json::Value before = value;
    for (const std::string& key : value.isObject() ? value.getMemberNames() : std::vector<std::string>{"a"}) {
        const Json::Value* const member = value.isObject() ? value.find(key.data(), key.data() + key.size()) : nullptr;
        const bool isInt = member != nullptr && member->isInt();
        const bool isText = member != nullptr && member->isString();
        Require(JsonUtils::GetInt(value, key, 5) == (isInt ? member->asInt() : 5), "an int32 or the default");
        Require(isInt ? JsonUtils::GetInt64(value, key, 5) == member->asInt() : true, "an int32 is an int64");
        Require(JsonUtils::GetString(value, key, "d") == (isText ? member->asString() : "d"), "a text or the default");
        Require(JsonUtils::GetBool(value, key, true) || member->isBool(), "a bool or the default");
    }
    Require(value == before, "lookups change nothing");
}

void RequireState(const std::string& text)
{
    static VeltraClientProxy proxy;
    const GameCallbackEventInfo blank;
    GameCallbackEventInfo info;
    proxy.AssembleDeviceStateResponse(text, info);
    Require(info.eventText.empty() && info.extraValue == 0, "an event's own fields stay");
    if (info.resultCode == RESULT_OK) {
        Require(info.tempLevel != std::numeric_limits<int32_t>::min(), "a state has a level");
        return;
    }
    Require(info.resultCode == RESULT_BAD_DEVICE_STATE, "one code for every bad text");
    Require(info.tempLevel == blank.tempLevel && info.gpuLoadLevel == 0 && info.vertexLoadLevel == 0 &&
                info.fragmentLoadLevel == 0 && info.textureLoadLevel == 0 && info.bandwidthLoadLevel == 0 &&
                info.currentFrequency == 0 && info.thermalMargin == blank.thermalMargin && info.thermalTrend == 0,
            "a bad text changes nothing else");
}

void RequireAll(const std::string& text)
{
    Json::Value value = JsonUtils::StringToJson(text);
    Require(DepthOf(value) <= JsonNestingDepth(text), "no value is deeper than was measured");
    RequireLookups(value);
    const std::string line = JsonUtils::JsonToString(value);
    Require(!line.empty() && line.find('\n') == line.size() - 1, "a value is one line");
    const Json::Value& constant = value;
    Require(!JsonUtils::JsonToString(constant).empty(), "every value has a text");
    Json::Value strict;
    const bool isParsed = JsonUtils::Parse(text, strict);
    Require(!isParsed || IsJsonSafeToParse(text), "only safe texts parse");
    Require(DepthOf(strict) <= JsonNestingDepth(text), "nor is one of the older reader");
    RequireState(text);
}

// A game's own thread may be that small: what is too deep for it must be refused before it is parsed.
void* RunSmall(void* text)
{
    RequireAll(*static_cast<const std::string*>(text));
    return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    std::string text(reinterpret_cast<const char*>(bytes), size);
    RequireAll(text);
    if (JsonNestingDepth(text) >= DEEP) {
        pthread_attr_t attributes;
        pthread_t thread;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, SMALL_STACK_BYTES);
        Require(pthread_create(&thread, &attributes, RunSmall, &text) == 0, "a thread");
        pthread_attr_destroy(&attributes);
        pthread_join(thread, nullptr);
    }
    return 0;
}
