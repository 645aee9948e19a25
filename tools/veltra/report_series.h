// SPDX-License-Identifier: Apache-2.0
// Curves of a report, with a bounded number of points however long the recording is.
#ifndef VELTRA_TOOLS_REPORT_SERIES_H
#define VELTRA_TOOLS_REPORT_SERIES_H

#include <json/value.h>

#include <array>
#include <cstdint>
#include <vector>

namespace VeltraTool {

// All times are seconds since the recording began, and never decrease.

// The values of the device. Of a long recording the highest and lowest value of each stretch are kept, so that no peak
// is lost.
class DeviceSeries {
public:
    static constexpr size_t MOST_SAMPLES = 4096;
    // Those that a page draws, in the order of a sample.
    static constexpr std::array KEYS{
        "tempLevel",           "temperature",           "thermalMargin",   "gpuLoadLevel",       "gpuLoadPercent",
        "cpuLoadPercent",      "currentFrequency",      "gpuFrequencyCap", "cpuPressurePercent", "batteryPercent",
        "powerDrawMilliwatts", "memoryPressurePercent", "fanRpm",          "gpuPowerMilliwatts"};

    // `values`: an object of numbers.
    void Add(double seconds, const Json::Value& values);
    // {"t": [...], "values": {KEY: [...]}}, as tools/web/curves.js draws it. Only keys with a value; null: not known.
    Json::Value Document() const;

private:
    struct Sample {
        double seconds;
        std::array<double, KEYS.size()> values;  // NaN: not known
    };
    static void AppendGroup(const Sample* from, size_t count, std::vector<Sample>& samples);
    void Thin();
    std::vector<Sample> WithGaps() const;

    std::vector<Sample> samples_;
    size_t groupSize_ = 1;       // how many records one or two samples stand for
    std::vector<Sample> group_;  // less than one
    double gapSeconds_ = 30;  // the service records at least every 10 s; samples farther apart have a gap between them
};

// How many calls and pushes there were in each second, or in each so many seconds of a long recording.
class RateSeries {
public:
    static constexpr size_t MOST_BUCKETS = 2048;

    void AddCall(double seconds) { ++BucketAt(seconds).calls; }
    void AddPush(double seconds) { ++BucketAt(seconds).pushes; }
    // As that of DeviceSeries, with the keys callsPerSecond and pushesPerSecond.
    Json::Value Document() const;

private:
    struct Bucket {
        uint32_t calls = 0;
        uint32_t pushes = 0;
    };
    Bucket& BucketAt(double seconds);

    std::vector<Bucket> buckets_;
    double width_ = 1;
};

}  // namespace VeltraTool

#endif
