// SPDX-License-Identifier: Apache-2.0
// Printing. All text that another process may have chosen goes through Escaped before it reaches a terminal; JsonCpp
// escapes it in documents by itself. Lines are flushed one by one, since a watch may be read through a pipe.
#include "output.h"

#include <json/writer.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "exit_code.h"

namespace VeltraTool {

namespace {

constexpr size_t LABEL_WIDTH = 14;

// The length of the character at the start of `text`; 0 when it is no valid UTF-8 or a control character.
size_t PrintableLength(std::string_view text)
{
    const auto byte = [text](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7f && first != '\\' ? 1 : 0;
    }
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    // 0x80 to 0xc1 begin no character: they continue one, or would encode ASCII in two bytes.
    if (first < 0xc2 || first > 0xf4 || text.size() < length) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) {
            return 0;
        }
    }
    const unsigned second = byte(1);
    const bool isOverlong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
    const bool isSurrogate = first == 0xed && second >= 0xa0;
    // U+0080 to U+009F: some terminals act on them as on escape sequences.
    const bool isControl = first == 0xc2 && second < 0xa0;
    // Characters that reverse the direction of what follows: U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069.
    const bool isDirection =
        length == 3 && first == 0xe2 &&
        ((second == 0x80 && (byte(2) == 0x8e || byte(2) == 0x8f || (byte(2) >= 0xaa && byte(2) <= 0xae))) ||
         (second == 0x81 && byte(2) >= 0xa6 && byte(2) <= 0xa9));
    return isOverlong || isSurrogate || isControl || isDirection ? 0 : length;
}

bool HasColour()
{
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (noColour == nullptr || *noColour == '\0') && terminal != nullptr && std::string_view(terminal) != "dumb" &&
           ::isatty(STDOUT_FILENO) == 1;
}

std::string Written(const Json::Value& value, const char* indentation)
{
    constexpr int MICROSECONDS = 6;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = indentation;
    builder["commentStyle"] = "None";
    builder["precision"] = MICROSECONDS;
    // Digits behind the point, not significant ones: times in seconds since 1970 keep their microseconds.
    builder["precisionType"] = "decimal";
    return Json::writeString(builder, value);
}

}  // namespace

std::string Escaped(std::string_view text)
{
    std::string escaped;
    while (!text.empty()) {
        const size_t length = PrintableLength(text);
        if (length > 0) {
            escaped += text.substr(0, length);
        } else if (text.front() == '\n') {
            escaped += "\\n";
        } else if (text.front() == '\t') {
            escaped += "\\t";
        } else if (text.front() == '\\') {
            escaped += "\\\\";
        } else {
            char code[8];
            std::snprintf(code, sizeof(code), "\\x%02x", static_cast<unsigned char>(text.front()));
            escaped += code;
        }
        text.remove_prefix(length > 0 ? length : 1);
    }
    return escaped;
}

// The caller escapes the text first: the sequences added here must be the only ones in the line.
std::string Toned(std::string_view text, Tone tone)
{
    static const bool hasColour = HasColour();
    static constexpr const char* STARTS[] = {"", "\033[32m", "\033[33m", "\033[31m"};
    if (!hasColour || tone == Tone::PLAIN) {
        return std::string(text);
    }
    return STARTS[static_cast<size_t>(tone)] + std::string(text) + "\033[0m";
}

void PrintLine(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    FlushOutput();
}

void FlushOutput()
{
    // ferror: an earlier write may have failed with an empty buffer left behind.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw ToolError(EXIT_NO, std::string("standard output cannot be written: ") + std::strerror(errno),
                        "make room, or redirect it to another file");
    }
}

void PrintRow(const std::string& label, const std::string& value)
{
    const size_t gap = label.size() < LABEL_WIDTH ? LABEL_WIDTH - label.size() : 1;
    PrintLine(label + std::string(gap, ' ') + Escaped(value));
}

void PrintJson(Json::Value document)
{
    document["schema"] = SCHEMA;
    PrintLine(Written(document, "  "));
}

void PrintJsonLine(Json::Value document)
{
    document["schema"] = SCHEMA;
    PrintLine(JsonText(document));
}

std::string JsonText(const Json::Value& value)
{
    return Written(value, "");
}

std::string Shown(double number, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", decimals, number);
    return text;
}

std::string ShownShort(double number)
{
    char text[64];
    std::snprintf(text, sizeof(text), "%g", number);
    return text;
}

std::string Elapsed(double seconds)
{
    const auto whole = static_cast<int64_t>(std::lround(std::clamp(seconds, 0.0, 1e11)));
    char text[64];
    std::snprintf(text, sizeof(text), "%02d:%02d", static_cast<int>(whole / 60 % 60), static_cast<int>(whole % 60));
    return whole < 3600 ? text : std::to_string(whole / 3600) + ":" + text;
}

std::string TimeOfDay(double seconds)
{
    const auto milliseconds = static_cast<int64_t>(std::clamp(seconds, 0.0, 1e11) * 1000);
    const auto whole = static_cast<std::time_t>(milliseconds / 1000);
    std::tm parts{};
    ::localtime_r(&whole, &parts);
    char text[32];
    std::snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<int>(milliseconds % 1000));
    return text;
}

std::string ShownValue(const Json::Value& value)
{
    return value.isString() ? value.asString() : JsonText(value);
}

const Json::Value& MemberOf(const Json::Value& object, const char* key)
{
    return object.isObject() ? object[key] : Json::Value::nullSingleton();
}

std::string TextOf(const Json::Value& value)
{
    return value.isString() ? value.asString() : "";
}

double NumberOf(const Json::Value& value)
{
    return value.isNumeric() ? value.asDouble() : 0;
}

}  // namespace VeltraTool
