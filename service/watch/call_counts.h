// SPDX-License-Identifier: Apache-2.0
// How often operations were called while a tool watched, and how long they took.
#ifndef VELTRA_SERVICE_CALL_COUNTS_H
#define VELTRA_SERVICE_CALL_COUNTS_H

#include <json/value.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>

#include <tavo/mutex.h>

namespace TAVO::Veltra {

// Any thread.
class CallCounts {
public:
    // `operation` is a literal.
    void Add(const char* operation, bool isRefused, std::chrono::nanoseconds duration);
    // By operation: count, refused, p50us, p99us, maxus.
    Json::Value Describe() const;

private:
    // Durations by powers of two, each in four steps: a quantile is exact to a quarter.
    static constexpr size_t STEPS = 4;
    static constexpr size_t BUCKETS = 48 * STEPS;
    struct Operation {
        uint64_t count = 0;
        uint64_t refused = 0;
        std::chrono::nanoseconds longest{0};
        std::array<uint32_t, BUCKETS> buckets{};
    };
    static size_t BucketOf(uint64_t nanoseconds);
    static double Quantile(const Operation& operation, double share);  // microseconds

    mutable Mutex mutex_;
    std::map<std::string_view, Operation> operations_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Veltra

#endif
