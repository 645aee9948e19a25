// SPDX-License-Identifier: Apache-2.0
// Durations are counted in buckets with four steps for each power of two: a bucket's upper bound is at most a quarter
// above its values, and the memory for each operation is fixed, however many calls there are.
#include "watch/call_counts.h"

#include <algorithm>
#include <bit>
#include <string>

namespace TAVO::Veltra {

void CallCounts::Add(const char* operation, bool isRefused, std::chrono::nanoseconds duration)
{
    MutexLock lock(mutex_);
    Operation& counts = operations_[operation];
    ++counts.count;
    counts.refused += isRefused ? 1 : 0;
    counts.longest = std::max(counts.longest, duration);
    ++counts.buckets[BucketOf(static_cast<uint64_t>(duration.count()))];
}

Json::Value CallCounts::Describe() const
{
    MutexLock lock(mutex_);
    Json::Value shown(Json::objectValue);
    for (const auto& [name, counts] : operations_) {
        Json::Value& item = shown[std::string(name)];
        item["count"] = Json::UInt64{counts.count};
        item["refused"] = Json::UInt64{counts.refused};
        item["p50us"] = Quantile(counts, 0.5);
        item["p99us"] = Quantile(counts, 0.99);
        item["maxus"] = std::chrono::duration<double, std::micro>(counts.longest).count();
    }
    return shown;
}

size_t CallCounts::BucketOf(uint64_t nanoseconds)
{
    // The smallest durations share the first bucket: the shift below needs two bits under the highest.
    const uint64_t value = std::max<uint64_t>(nanoseconds, STEPS);
    const auto power = static_cast<size_t>(std::bit_width(value) - 1);
    const auto step = static_cast<size_t>(value >> (power - 2)) - STEPS;  // the two bits below the highest
    return std::min(power * STEPS + step, BUCKETS - 1);
}

// The upper bound of the bucket that the share falls into, at most the longest duration.
double CallCounts::Quantile(const Operation& operation, double share)
{
    const auto wanted = static_cast<uint64_t>(static_cast<double>(operation.count) * share);
    uint64_t seen = 0;
    size_t bucket = 0;
    while (bucket + 1 < BUCKETS && (seen += operation.buckets[bucket]) <= wanted) {
        ++bucket;
    }
    const double bound =
        static_cast<double>(STEPS + bucket % STEPS + 1) / STEPS * static_cast<double>(uint64_t{1} << (bucket / STEPS));
    return std::min(bound, static_cast<double>(operation.longest.count())) / 1000;
}

}  // namespace TAVO::Veltra
