// SPDX-License-Identifier: Apache-2.0
// A record is changed in place, member by member: every text in its arguments, data, command and reply gets a token,
// except names that the service knows. Tokens are numbered in order of appearance, so they tell equal texts and nothing
// else; they hold for this Redactor, which is one recording. Keys stay, as they are names of the interface, except in
// maps whose keys come from games. Such a key is replaced too; beyond MAX_TOKENS keys of one map may fall together, and
// one of them remains.
#include "redactor.h"

#include <utility>

#include "output.h"

namespace VeltraTool {

namespace {

// Later texts share one token: a game that never sends the same text twice must not fill the recorder's memory.
constexpr size_t MAX_TOKENS = 100000;
constexpr char EVENT_OF_SERVICE[] = "deviceState";

// Objects whose keys are texts of games too.
bool IsMap(const std::string& key)
{
    return key == "attributes" || key == "query" || key == "queryParams";
}

}  // namespace

void Redactor::Redact(Json::Value& record)
{
    const std::string operation = TextOf(std::as_const(record)["op"]);  // which adds no key that is missing
    for (const char* const key : {"args", "data"}) {
        if (record.isMember(key)) {
            RedactTexts(record[key], false);
        }
    }
    if (record.isMember("command")) {
        RedactCommand(record["command"]);
    }
    if (record.isMember("reply") && record["reply"].isObject()) {
        Json::Value& reply = record["reply"];
        const bool isMap = operation == "SyncAppType" || operation == "GetSystemFunctionStatus";
        for (const std::string& key : reply.getMemberNames()) {
            RedactTexts(reply[key], isMap && key == "result");
        }
    }
}

void Redactor::RedactCommand(Json::Value& command)
{
    if (!command.isObject()) {
        RedactTexts(command, false);
        return;
    }
    for (const std::string& key : command.getMemberNames()) {
        // The service records a command only if it knows these.
        if (key != "do" && key != "kind" && key != "operation") {
            RedactTexts(command[key], false);
        }
    }
}

std::string Redactor::TokenOf(const std::string& text)
{
    if (text.empty() || text == EVENT_OF_SERVICE) {
        return text;
    }
    const auto known = tokens_.find(text);
    if (known != tokens_.end()) {
        return known->second;
    }
    if (tokens_.size() >= MAX_TOKENS) {
        // Not the text itself: a limit must not reveal anything.
        return "text-other";
    }
    return tokens_[text] = "text-" + std::to_string(tokens_.size() + 1);
}

void Redactor::RedactTexts(Json::Value& value, bool isMap)
{
    if (value.isString()) {
        value = TokenOf(value.asString());
    } else if (value.isArray()) {
        for (Json::Value& item : value) {
            RedactTexts(item, false);
        }
    } else if (value.isObject()) {
        // Built anew, because keys may change.
        Json::Value redacted = Json::objectValue;
        for (const std::string& key : value.getMemberNames()) {
            Json::Value& member = value[key];
            RedactTexts(member, IsMap(key));
            redacted[isMap ? TokenOf(key) : key] = member;
        }
        value = redacted;
    }
}

}  // namespace VeltraTool
