// SPDX-License-Identifier: Apache-2.0
// What a report has of a recording, gathered in one pass with bounded memory.
#ifndef VELTRA_TOOLS_RECORDED_REPORT_H
#define VELTRA_TOOLS_RECORDED_REPORT_H

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "report_device.h"
#include "report_marks.h"
#include "report_series.h"

namespace VeltraTool {

// How long calls took, in microseconds. A recording has at most a million lines, so each is kept.
class Durations {
public:
    void Add(double microseconds) { all_.push_back(static_cast<float>(microseconds)); }
    void Sort();
    size_t Count() const { return all_.size(); }
    // Once sorted; 0 if there is none. `share` from 0 to 1.
    double Quantile(double share) const;

private:
    std::vector<float> all_;
};

// Calls of one operation, or pushes of one kind.
struct CallSummary {
    Durations durations;
    uint64_t failed = 0;
    int32_t firstFailure = 0;  // its code
    double firstFailedAt = 0;
};

struct GameSummary {
    std::string name;  // empty: it has reported none
    std::string scene;
    std::optional<double> quality;
    std::optional<double> endedAt;
    Durations durations;  // of its calls
    uint64_t failedCalls = 0;
    uint64_t pushes = 0;
    uint64_t failedPushes = 0;
};

struct QualityChange {
    double seconds;
    int32_t process;
    double before;
    double now;
};

struct SlowCall {
    std::string operation;
    double microseconds = 0;
    double seconds = 0;
};

struct RecordedReport {
    static constexpr double SLOW_MICROSECONDS = 100000;

    std::string name;    // of the file
    Json::Value header;  // as the recording has it
    double seconds = 0;  // from the first record to the last
    uint64_t records = 0;
    uint64_t lost = 0;
    uint64_t slowCalls = 0;
    SlowCall slowest;
    bool wasSimulated = false;

    std::map<std::string, CallSummary> operations;
    std::map<std::string, CallSummary> pushes;
    std::map<int32_t, GameSummary> games;  // by process
    std::vector<QualityChange> qualityChanges;
    ReportMarks marks;
    DeviceSeries series;
    RateSeries rates;
    DeviceStory device;

    // "com.example.racer", or "process 4711".
    std::string NameOf(int32_t process) const;
    uint64_t Calls() const;
    uint64_t FailedCalls() const;
};

// Shows its progress on standard error if that is a terminal. ToolError, as RecordingReader has them.
RecordedReport ReadReport(const std::string& path);

}  // namespace VeltraTool

#endif
