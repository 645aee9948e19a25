// SPDX-License-Identifier: Apache-2.0
#include "report_series.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace VeltraTool {

namespace {

constexpr double UNKNOWN = std::numeric_limits<double>::quiet_NaN();

// Whole numbers without a fraction, so that a page is not longer than it must be.
Json::Value NumberAsJson(double number)
{
    if (std::isnan(number)) {
        return Json::nullValue;
    }
    constexpr double EXACT = 1e15;
    if (std::abs(number) < EXACT && number == std::floor(number)) {
        return Json::Int64(number);
    }
    return std::round(number * 1000) / 1000;
}

}  // namespace

void DeviceSeries::Add(double seconds, const Json::Value& values)
{
    if (samples_.size() == MOST_SAMPLES) {
        Thin();
    }
    Sample& sample = samples_.emplace_back(Sample{seconds, {}});
    for (size_t key = 0; key < KEYS.size(); ++key) {
        sample.values[key] = values.isMember(KEYS[key]) ? values[KEYS[key]].asDouble() : UNKNOWN;
    }
}

// Makes two samples of each four: of each value the least and the greatest, in the order in which they came.
void DeviceSeries::Thin()
{
    constexpr size_t GROUP = 4;
    static_assert(MOST_SAMPLES % GROUP == 0);
    for (size_t group = 0; group < MOST_SAMPLES / GROUP; ++group) {
        const Sample* const from = &samples_[group * GROUP];
        Sample first{from[0].seconds, {}};
        Sample second{from[GROUP / 2].seconds, {}};
        for (size_t key = 0; key < KEYS.size(); ++key) {
            const Sample* least = nullptr;
            const Sample* greatest = nullptr;
            for (const Sample* each = from; each < from + GROUP; ++each) {
                if (!std::isnan(each->values[key])) {
                    least = least == nullptr || each->values[key] < least->values[key] ? each : least;
                    greatest = greatest == nullptr || each->values[key] > greatest->values[key] ? each : greatest;
                }
            }
            first.values[key] = least == nullptr ? UNKNOWN : std::min(least, greatest)->values[key];
            second.values[key] = least == nullptr ? UNKNOWN : std::max(least, greatest)->values[key];
        }
        samples_[group * 2] = first;
        samples_[group * 2 + 1] = second;
    }
    samples_.resize(MOST_SAMPLES / 2);
    gapSeconds_ *= 2;
}

std::vector<DeviceSeries::Sample> DeviceSeries::WithGaps() const
{
    std::vector<Sample> samples;
    for (const Sample& sample : samples_) {
        if (!samples.empty() && sample.seconds - samples.back().seconds > gapSeconds_) {
            Sample gap{samples.back().seconds + gapSeconds_ / 2, {}};
            gap.values.fill(UNKNOWN);
            samples.push_back(gap);
        }
        samples.push_back(sample);
    }
    return samples;
}

Json::Value DeviceSeries::Document() const
{
    const std::vector<Sample> samples = WithGaps();
    Json::Value document;
    document["t"] = Json::arrayValue;
    document["values"] = Json::objectValue;
    for (const Sample& sample : samples) {
        document["t"].append(NumberAsJson(sample.seconds));
    }
    for (size_t key = 0; key < KEYS.size(); ++key) {
        const bool isKnown = std::any_of(samples.begin(), samples.end(),
                                         [key](const Sample& sample) { return !std::isnan(sample.values[key]); });
        if (!isKnown) {
            continue;
        }
        Json::Value& values = document["values"][KEYS[key]];
        for (const Sample& sample : samples) {
            values.append(NumberAsJson(sample.values[key]));
        }
    }
    return document;
}

RateSeries::Bucket& RateSeries::BucketAt(double seconds)
{
    while (seconds / width_ >= static_cast<double>(MOST_BUCKETS)) {
        for (size_t i = 0; i < buckets_.size(); ++i) {
            const Bucket bucket = buckets_[i];
            buckets_[i] = Bucket();
            buckets_[i / 2].calls += bucket.calls;
            buckets_[i / 2].pushes += bucket.pushes;
        }
        buckets_.resize((buckets_.size() + 1) / 2);
        width_ *= 2;
    }
    const auto index = static_cast<size_t>(seconds / width_);
    buckets_.resize(std::max(buckets_.size(), index + 1));
    return buckets_[index];
}

Json::Value RateSeries::Document() const
{
    Json::Value document;
    document["t"] = Json::arrayValue;
    document["values"] = Json::objectValue;
    for (size_t i = 0; i < buckets_.size(); ++i) {
        document["t"].append(NumberAsJson(static_cast<double>(i) * width_));
        document["values"]["callsPerSecond"].append(NumberAsJson(buckets_[i].calls / width_));
        document["values"]["pushesPerSecond"].append(NumberAsJson(buckets_[i].pushes / width_));
    }
    return document;
}

}  // namespace VeltraTool
