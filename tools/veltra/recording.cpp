// SPDX-License-Identifier: Apache-2.0
// One line after another, into a buffer of fixed size: the length of the file and of its lines is not trusted. What the
// users of a record rely on is checked here, so that they need not.
#include "recording.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>

#include "exit_code.h"
#include "output.h"
#include "utils/json_utils.h"

namespace VeltraTool {

namespace {

constexpr double MOST_SECONDS = 1e11;
constexpr double MOST_MICROSECONDS = 1e15;

bool IsNumber(const Json::Value& value, double most)
{
    return value.isNumeric() && value.asDouble() >= 0 && value.asDouble() <= most;
}

bool IsObjectOrAbsent(const Json::Value& record, const char* key)
{
    return !record.isMember(key) || record[key].isObject();
}

bool IsOfProcess(const Json::Value& record, const char* name, const char* code)
{
    return record["pid"].isInt() && record["pid"].asInt() > 0 && record[name].isString() && record[code].isInt() &&
           IsNumber(record["us"], MOST_MICROSECONDS);
}

bool HasNumbers(const Json::Value& values)
{
    if (!values.isObject()) {
        return false;
    }
    for (const Json::Value& value : values) {
        if (!value.isNumeric() || !std::isfinite(value.asDouble())) {
            return false;
        }
    }
    return true;
}

// What is wrong with the record; empty: nothing. Records of other types are for other versions of the tool.
std::string Mistake(const Json::Value& record)
{
    const std::string type = TextOf(record["type"]);
    if (type.empty()) {
        return "has no type";
    }
    if (!IsNumber(record["t"], MOST_SECONDS)) {
        return "has no time";
    }
    if (type == "call" && !(IsOfProcess(record, "op", "code") && IsObjectOrAbsent(record, "args"))) {
        return "is no complete call";
    }
    if (type == "push" && !(IsOfProcess(record, "what", "status") && IsObjectOrAbsent(record, "data"))) {
        return "is no complete push";
    }
    // A record that was too long for a line has lost its values, and says so.
    const bool isCut = record["cut"].isBool();
    if (type == "device" && !isCut && !HasNumbers(record["values"])) {
        return "has values that are no numbers";
    }
    return type == "dropped" && !record["count"].isUInt64() ? "does not say how many were lost" : "";
}

}  // namespace

RecordingReader::RecordingReader(const std::string& path)
    : path_(path), file_(path), buffer_(MAX_LINE_BYTES + 2)  // behind it a line break and a zero
{
    if (!file_) {
        throw ToolError(EXIT_NO, path + " cannot be read: " + std::strerror(errno));
    }
    const std::optional<Json::Value> read = ReadObject();
    header_ = read.value_or(Json::objectValue);
    if (TextOf(header_["type"]) != "header") {
        Fail("is not the header of a recording; \"veltra record\" makes one");
    }
    if (header_["schema"] != SCHEMA) {
        Fail("names another schema than 1; use a tool of the recording's version");
    }
}

std::optional<Json::Value> RecordingReader::Next()
{
    std::optional<Json::Value> record = ReadObject();
    if (record) {
        const std::string mistake = Mistake(*record);
        if (!mistake.empty()) {
            Fail(mistake);
        }
    }
    return record;
}

std::optional<Json::Value> RecordingReader::ReadObject()
{
    ++line_;
    // getline stops at the end of the buffer: a line without an end uses no further memory.
    file_.getline(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    const std::streamsize length = file_.gcount();
    // A recorder that was killed may have written half a line.
    if (file_.eof() || (file_.fail() && length == 0)) {
        if (length > 0) {
            std::fprintf(stderr, "veltra: %s:%zu: the last line is not complete and is left out\n",
                         Escaped(path_).c_str(), line_);
        }
        return std::nullopt;
    }
    if (file_.fail()) {
        Fail("is longer than " + std::to_string(MAX_LINE_BYTES) + " bytes");
    }
    if (line_ > MAX_RECORDS) {
        Fail("is one too many: a recording has at most 1000000 lines");
    }
    Json::Value value;
    if (!TAVO::Veltra::JsonUtils::Parse(std::string(buffer_.data(), static_cast<size_t>(length - 1)), value) ||
        !value.isObject()) {
        Fail("is no JSON object");
    }
    return value;
}

void RecordingReader::Fail(const std::string& why) const
{
    throw ToolError(EXIT_NO, path_ + ":" + std::to_string(line_) + ": the line " + why);
}

void RequireOtherFile(const std::string& recording, const std::string& output)
{
    std::error_code none;  // the output need not exist
    // The names as well: neither of them may exist yet.
    if (recording == output || std::filesystem::equivalent(recording, output, none)) {
        throw ToolError(EXIT_USAGE, "the recording " + recording + " would be replaced", "name another file to write");
    }
}

void AddGames(const Json::Value& games, Json::Value& header)
{
    size_t sizeBytes = JsonText(header).size() + std::strlen(R"(,"games":[])");
    for (const Json::Value& game : games) {
        sizeBytes += JsonText(game).size() + 1;
        if (sizeBytes > RecordingReader::MAX_LINE_BYTES) {
            return;
        }
        header["games"].append(game);
    }
}

int64_t MicrosecondsOf(const Json::Value& record)
{
    return std::llround(record["t"].asDouble() * 1e6);
}

int32_t ProcessOf(const Json::Value& record)
{
    return record["pid"].asInt();
}

bool IsCut(const Json::Value& record)
{
    return record["cut"].isBool() && record["cut"].asBool();
}

}  // namespace VeltraTool
