// SPDX-License-Identifier: Apache-2.0
// Lines are put together as text and not as a tree of values: a watched service makes one for each request of each
// game, and a tree takes ten times as long.
#include "watch/watch_record.h"

#include <json/writer.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string_view>
#include <vector>

namespace TAVO::Veltra {

namespace {

// Names and keys nearly always are: they are copied without going through the escaping.
bool IsPlain(char letter)
{
    return letter >= ' ' && letter <= '~' && letter != '"' && letter != '\\';
}

// In quotes. What is not ASCII is escaped; what is no UTF-8 becomes U+FFFD.
void AppendText(std::string_view text, std::string& line)
{
    if (std::all_of(text.begin(), text.end(), IsPlain)) {
        ((line += '"') += text) += '"';
        return;
    }
    line += '"';
    for (bool isFirst = true;; isFirst = false) {
        const size_t end = text.find('\0');
        if (!isFirst) {
            line += "\\u0000";
        }
        // The library's function ends at a NUL, so the text is quoted piece by piece, with the NULs in between.
        const std::string quoted = Json::valueToQuotedString(std::string(text.substr(0, end)).c_str());
        line.append(quoted, 1, quoted.size() - 2);
        if (end == std::string_view::npos) {
            break;
        }
        text.remove_prefix(end + 1);
    }
    line += '"';
}

// The members of an object, the first with a comma in front unless the line ends with a bracket.
class Members {
public:
    explicit Members(std::string& line) : line_(line) {}

    std::string& Key(std::string_view key)
    {
        Separate();
        AppendText(key, line_);
        return line_ += ':';
    }
    void Number(std::string_view key, int64_t number) { Key(key) += std::to_string(number); }
    void Flag(std::string_view key, bool flag) { Key(key) += flag ? "true" : "false"; }
    void Text(std::string_view key, std::string_view text) { AppendText(text, Key(key)); }
    void Separate()
    {
        if (line_.back() != '{' && line_.back() != '[') {
            line_ += ',';
        }
    }

private:
    std::string& line_;
};

void AppendValue(const Note::Item& item, std::string& line)
{
    switch (item.kind) {
        case Note::Kind::NUMBER:
            line += std::to_string(item.number);
            break;
        case Note::Kind::FLAG:
            line += item.number != 0 ? "true" : "false";
            break;
        case Note::Kind::TEXT:
            AppendText(item.text, line);
            break;
        case Note::Kind::DOCUMENT:
            line += item.text;
            break;
        default:
            break;
    }
}

// What is open and not yet closed.
struct Open {
    char bracket;
    const char* name;  // of the object or list
    int64_t count;     // not 0: how many items it would have
};

void Close(std::vector<Open>& open, std::string& line)
{
    const Open closed = open.back();
    open.pop_back();
    line += closed.bracket;
    if (closed.count != 0 && closed.name != nullptr) {
        Members(line).Number(std::string(closed.name) + "Count", closed.count);
    }
}

// The items as members of the object that the line has opened.
void AppendItems(const Note& note, std::string& line)
{
    std::vector<Open> open = {{'}', nullptr, 0}};
    for (const Note::Item& item : note.Items()) {
        if (item.kind == Note::Kind::END) {
            Close(open, line);
            continue;
        }
        Members members(line);
        if (item.name != nullptr || !item.key.empty() || open.back().bracket == '}') {
            members.Key(item.name != nullptr ? std::string_view(item.name) : std::string_view(item.key));
        } else {
            members.Separate();
        }
        if (item.kind == Note::Kind::OBJECT || item.kind == Note::Kind::LIST) {
            const bool isList = item.kind == Note::Kind::LIST;
            line += isList ? '[' : '{';
            open.push_back({isList ? ']' : '}', item.name, item.number});
        } else {
            AppendValue(item, line);
        }
    }
    // A note that was full has no END items for its open levels.
    while (open.size() > 1) {
        Close(open, line);
    }
}

void AppendNote(const Note& note, std::string& line)
{
    line += '{';
    AppendItems(note, line);
    line += '}';
}

constexpr const char* TYPES[] = {"call", "push", "device", "game", "simulation"};
constexpr const char* VALUE_KEYS[] = {"args", "data", "values", nullptr, nullptr};

void AppendFrame(const WatchRecord& record, Members& members)
{
    if (record.kind == WatchRecord::Kind::CALL) {
        members.Text("op", record.name);
        members.Flag("oneway", record.isOneWay);
    } else if (record.kind == WatchRecord::Kind::PUSH) {
        members.Text("what", record.name);
    } else if (record.kind == WatchRecord::Kind::GAME) {
        members.Text("event", record.name);
    }
}

void AppendEnd(const WatchRecord& record, Members& members)
{
    if (record.kind != WatchRecord::Kind::CALL && record.kind != WatchRecord::Kind::PUSH) {
        return;
    }
    members.Number(record.kind == WatchRecord::Kind::CALL ? "code" : "status", record.code);
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", std::chrono::duration<double, std::micro>(record.duration).count());
    members.Key("us") += text;
}

std::string MakeLine(const WatchRecord& record, bool hasValues)
{
    std::string line = "{";
    line.reserve(256);
    Members members(line);
    members.Text("type", TYPES[static_cast<size_t>(record.kind)]);
    char time[40];
    // Whole numbers, since a double would lose microseconds when it is printed with few digits.
    std::snprintf(time, sizeof(time), "%" PRId64 ".%06" PRId64, record.microseconds / 1000000,
                  record.microseconds % 1000000);
    members.Key("t") += time;
    if (record.process != 0) {
        members.Number("pid", record.process);
    }
    AppendFrame(record, members);
    const char* key = VALUE_KEYS[static_cast<size_t>(record.kind)];
    if (hasValues && key != nullptr) {
        members.Key(key);
        AppendNote(record.values, line);
    } else if (hasValues) {
        AppendItems(record.values, line);
    }
    if (hasValues && !record.reply.IsEmpty()) {
        members.Key("reply");
        AppendNote(record.reply, line);
    }
    AppendEnd(record, members);
    if (!hasValues || record.values.IsCut() || record.reply.IsCut()) {
        members.Flag("cut", true);
    }
    return line += "}\n";
}

}  // namespace

std::string WatchRecord::Line() const
{
    std::string line = MakeLine(*this, true);
    // Escapes may make a line six times as long as its text.
    return line.size() <= MAX_LINE_BYTES ? line : MakeLine(*this, false);
}

}  // namespace TAVO::Veltra
