// SPDX-License-Identifier: Apache-2.0
// How the tool prints: escaped text, colour where a person reads it, JSON with a versioned schema.
#ifndef VELTRA_TOOLS_OUTPUT_H
#define VELTRA_TOOLS_OUTPUT_H

#include <json/value.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace VeltraTool {

enum class Tone { PLAIN, GOOD, WARNING, BAD };

// What the verbs share.
struct Tool {
    bool isJson = false;
    int exitCode = 0;
    // Words that the completion offers behind a verb, besides its options.
    std::map<const CLI::App*, std::vector<std::string>> words;
};

constexpr int SCHEMA = 1;  // of every JSON document; raised when a key changes its meaning or goes

// `text` with control characters, invalid UTF-8 and backslashes as escapes: it may come from another process, and must
// not control the terminal.
std::string Escaped(std::string_view text);

// `text` in colour if stdout is a terminal and NO_COLOR is not set.
std::string Toned(std::string_view text, Tone tone);

// Writes one line to stdout, whose reader may follow it as it grows. `text` is escaped by the caller where it must be.
// ToolError if it cannot be written, also in what follows.
void PrintLine(const std::string& text);
// Writes what another library has left in the buffer of stdout. ToolError.
void FlushOutput();
// A label and its value in columns; the value is escaped here.
void PrintRow(const std::string& label, const std::string& value);

// The document, indented, with the key "schema".
void PrintJson(Json::Value document);
// The same on one line, for output that has many of them.
void PrintJsonLine(Json::Value document);
std::string JsonText(const Json::Value& value);

// "12.3", "0.045": a number for people.
std::string Shown(double number, int decimals);
// "12", "2.5": without digits that are not needed.
std::string ShownShort(double number);
// "01:15", "1:01:15": how long after a beginning.
std::string Elapsed(double seconds);
// "12:34:56.789" of the local day; `seconds` since the epoch, whatever a peer has put there.
std::string TimeOfDay(double seconds);
// A scalar of a document as text; a list or an object as JSON.
std::string ShownValue(const Json::Value& value);

// A null value unless `object` is an object and has the key.
const Json::Value& MemberOf(const Json::Value& object, const char* key);
// The value as a text, a number or 0, whatever a peer has put there.
std::string TextOf(const Json::Value& value);
double NumberOf(const Json::Value& value);

}  // namespace VeltraTool

#endif
