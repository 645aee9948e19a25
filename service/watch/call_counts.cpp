// SPDX-License-Identifier: Apache-2.0
// Durations are counted in buckets with four steps for each power of two: a bucket's upper bound is at most a quarter
// above its values, and the memory for each operation is fixed, however many calls there are.
//
// A call is one addition to the bucket of its duration and one to the sum, without a lock. The number of calls is the
// sum of the buckets as they are read, so a description is consistent in itself while calls go on. Readers that add up
// the histograms of many services need equal bounds: buckets are joined at every second power of two.
#include "watch/call_counts.h"

#include <algorithm>
#include <bit>
#include <new>
#include <numeric>

#include "base/operation_names.h"

namespace TAVO::Veltra {

namespace {

constexpr size_t SHOWN_POWERS = 2;  // of two, between the bounds that are described

double Microseconds(double nanoseconds)
{
    return nanoseconds / 1000;
}

}  // namespace

CallCounts::~CallCounts()
{
    for (const auto& operation : operations_) {
        delete operation.load(std::memory_order_relaxed);
    }
}

CallCounts::Operation* CallCounts::Ensure(ServerCode code) noexcept
{
    std::atomic<Operation*>& place = operations_[static_cast<size_t>(code)];
    Operation* known = place.load(std::memory_order_acquire);
    if (known == nullptr) {
        auto* const made = new (std::nothrow) Operation;
        if (place.compare_exchange_strong(known, made, std::memory_order_acq_rel)) {
            return made;
        }
        delete made;  // Another thread was faster; `known` is its own.
    }
    return known;
}

void CallCounts::Add(ServerCode code, bool isRefused, std::chrono::nanoseconds duration)
{
    Operation* const operation = Ensure(code);
    if (operation == nullptr) {
        return;
    }
    Operation& counts = *operation;
    const int64_t nanoseconds = std::max<int64_t>(duration.count(), 0);
    counts.buckets[BucketOf(static_cast<uint64_t>(nanoseconds))].fetch_add(1, std::memory_order_relaxed);
    counts.total.fetch_add(nanoseconds, std::memory_order_relaxed);
    if (isRefused) {
        counts.refused.fetch_add(1, std::memory_order_relaxed);
    }
    int64_t longest = counts.longest.load(std::memory_order_relaxed);
    while (nanoseconds > longest &&
           !counts.longest.compare_exchange_weak(longest, nanoseconds, std::memory_order_relaxed)) {}
}

Json::Value CallCounts::Describe() const
{
    Json::Value shown(Json::objectValue);
    for (size_t i = 0; i < CODES; ++i) {
        const Operation* const operation = operations_[i].load(std::memory_order_acquire);
        if (operation == nullptr) {
            continue;
        }
        Buckets buckets;
        std::transform(operation->buckets.begin(), operation->buckets.end(), buckets.begin(),
                       [](const std::atomic<uint64_t>& bucket) { return bucket.load(std::memory_order_relaxed); });
        const uint64_t count = std::accumulate(buckets.begin(), buckets.end(), uint64_t{0});
        if (count > 0) {
            shown[NameOf(static_cast<ServerCode>(i))] = DescribeOperation(*operation, buckets, count);
        }
    }
    return shown;
}

Json::Value CallCounts::DescribeOperation(const Operation& operation, const Buckets& buckets, uint64_t count)
{
    const auto longest = static_cast<double>(operation.longest.load(std::memory_order_relaxed));
    Json::Value item;
    item["count"] = Json::UInt64{count};
    item["refused"] = Json::UInt64{operation.refused.load(std::memory_order_relaxed)};
    item["totalus"] = Microseconds(static_cast<double>(operation.total.load(std::memory_order_relaxed)));
    item["p50us"] = Microseconds(Quantile(buckets, count, 0.5, longest));
    item["p99us"] = Microseconds(Quantile(buckets, count, 0.99, longest));
    item["maxus"] = Microseconds(longest);
    uint64_t below = 0;
    for (size_t bucket = 0; bucket + 1 < BUCKETS; ++bucket) {
        below += buckets[bucket];
        if (bucket % (SHOWN_POWERS * STEPS) == 0) {
            Json::Value pair(Json::arrayValue);
            pair.append(Microseconds(UpperBound(bucket)));
            pair.append(Json::UInt64{below});
            item["buckets"].append(std::move(pair));
        }
    }
    return item;
}

size_t CallCounts::BucketOf(uint64_t nanoseconds)
{
    if (nanoseconds < uint64_t{1} << FIRST_POWER) {
        return 0;
    }
    const auto power = static_cast<size_t>(std::bit_width(nanoseconds) - 1);
    const auto step = static_cast<size_t>(nanoseconds >> (power - 2)) - STEPS;  // the two bits below the highest
    return std::min(1 + (power - FIRST_POWER) * STEPS + step, BUCKETS - 1);
}

double CallCounts::UpperBound(size_t bucket)
{
    const size_t power = FIRST_POWER + bucket / STEPS;
    return static_cast<double>(STEPS + bucket % STEPS) / STEPS * static_cast<double>(uint64_t{1} << power);
}

// The upper bound of the bucket that the share falls into, at most the longest duration; in ns.
double CallCounts::Quantile(const Buckets& buckets, uint64_t count, double share, double longest)
{
    const auto wanted = static_cast<uint64_t>(static_cast<double>(count) * share);
    uint64_t seen = 0;
    size_t bucket = 0;
    while (bucket + 1 < BUCKETS && (seen += buckets[bucket]) <= wanted) {
        ++bucket;
    }
    return bucket + 1 < BUCKETS ? std::min(UpperBound(bucket), longest) : longest;
}

}  // namespace TAVO::Veltra
