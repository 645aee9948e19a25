// SPDX-License-Identifier: Apache-2.0
// Reads what `record` wrote. A recording may come from anybody: each line is checked before it is used.
#ifndef VELTRA_TOOLS_RECORDING_H
#define VELTRA_TOOLS_RECORDING_H

#include <json/value.h>

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace VeltraTool {

class RecordingReader {
public:
    static constexpr size_t MAX_LINE_BYTES = size_t{64} << 10;
    static constexpr size_t MAX_RECORDS = 1000000;

    // Reads the header. ToolError, with the number of the line, for whatever is wrong, here and in Next.
    explicit RecordingReader(const std::string& path);

    // The first line; of its keys only "schema" and "type" have been checked.
    const Json::Value& Header() const { return header_; }
    // The next record, whose keys have the types of docs/control.md; empty: the recording has ended. A last line
    // without its end, which a full disk may leave, is left out with a warning.
    std::optional<Json::Value> Next();
    // Ends the verb: something is wrong in the line that was read last.
    [[noreturn]] void Fail(const std::string& why) const;

private:
    std::optional<Json::Value> ReadObject();

    const std::string path_;
    std::ifstream file_;
    std::vector<char> buffer_;
    Json::Value header_;
    size_t line_ = 0;
};

// ToolError if `output` is the recording itself, which it would replace.
void RequireOtherFile(const std::string& recording, const std::string& output);

// Adds the games to a header, as many of them as fit in a line that RecordingReader reads.
void AddGames(const Json::Value& games, Json::Value& header);

// When the record was over, in microseconds since the epoch.
int64_t MicrosecondsOf(const Json::Value& record);
int32_t ProcessOf(const Json::Value& record);
bool IsCut(const Json::Value& record);

}  // namespace VeltraTool

#endif
