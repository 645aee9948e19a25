// SPDX-License-Identifier: Apache-2.0
// The curves of a report, in bounded memory for a recording of any length. When the samples reach their limit, groups
// of four become two: the least and the greatest value of each key, so that peaks stay. Later records are grouped in
// the same way before they are stored. Rates are counts in equal intervals, whose width doubles when there are too
// many.
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
    Sample& sample = group_.emplace_back(Sample{seconds, {}});
    for (size_t key = 0; key < KEYS.size(); ++key) {
        sample.values[key] = values.isMember(KEYS[key]) ? values[KEYS[key]].asDouble() : UNKNOWN;
    }
    if (group_.size() < groupSize_) {
        return;
    }
    AppendGroup(group_.data(), group_.size(), samples_);
    group_.clear();
    if (samples_.size() >= MOST_SAMPLES) {
        Thin();
    }
}

// A single sample stays as it is. Of several, two remain: of each value the least and the greatest, in their order in
// time.
void DeviceSeries::AppendGroup(const Sample* from, size_t count, std::vector<Sample>& samples)
{
    if (count == 1) {
        samples.push_back(*from);
        return;
    }
    Sample first{from[0].seconds, {}};
    Sample second{from[count / 2].seconds, {}};
    for (size_t key = 0; key < KEYS.size(); ++key) {
        const Sample* least = nullptr;
        const Sample* greatest = nullptr;
        for (const Sample* each = from; each < from + count; ++each) {
            if (!std::isnan(each->values[key])) {
                least = least == nullptr || each->values[key] < least->values[key] ? each : least;
                greatest = greatest == nullptr || each->values[key] > greatest->values[key] ? each : greatest;
            }
        }
        first.values[key] = least == nullptr ? UNKNOWN : std::min(least, greatest)->values[key];
        second.values[key] = least == nullptr ? UNKNOWN : std::max(least, greatest)->values[key];
    }
    samples.push_back(first);
    samples.push_back(second);
}

// Groups the samples that are stored, and lets Add group as many records from now on, so that all parts of a curve are
// equally fine.
void DeviceSeries::Thin()
{
    constexpr size_t GROUP = 4;
    static_assert(MOST_SAMPLES % GROUP == 0);
    std::vector<Sample> thinned;
    for (size_t i = 0; i < MOST_SAMPLES; i += GROUP) {
        AppendGroup(&samples_[i], GROUP, thinned);
    }
    samples_ = std::move(thinned);
    groupSize_ = groupSize_ == 1 ? GROUP : groupSize_ * 2;
    gapSeconds_ *= 2;
}

std::vector<DeviceSeries::Sample> DeviceSeries::WithGaps() const
{
    std::vector<Sample> all = samples_;
    if (!group_.empty()) {
        AppendGroup(group_.data(), group_.size(), all);
    }
    std::vector<Sample> samples;
    for (const Sample& sample : all) {
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
