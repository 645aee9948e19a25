// SPDX-License-Identifier: Apache-2.0
// How often operations were called since the service started, and how long they took.
#ifndef VELTRA_SERVICE_CALL_COUNTS_H
#define VELTRA_SERVICE_CALL_COUNTS_H

#include <json/value.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "ipc/server_codes.h"

namespace TAVO::Veltra {

// Any thread, without a lock: each call costs two relaxed additions. An operation takes its KiB of memory with its first
// call; without memory that call is not counted.
class CallCounts {
public:
    CallCounts() = default;
    ~CallCounts();
    CallCounts(const CallCounts&) = delete;
    CallCounts& operator=(const CallCounts&) = delete;

    // Above every code that is counted: VeltraServerStub checks its table of requests against this when it is compiled.
    static constexpr size_t CODES = 32;

    void Add(ServerCode code, bool isRefused, std::chrono::nanoseconds duration);
    // By operation, for those that were called: count, refused, totalus, p50us, p99us, maxus, buckets.
    Json::Value Describe() const;

private:
    // Durations by powers of two, each in four steps: a quantile is exact to a quarter. The first bucket has all below
    // 2^FIRST_POWER ns, the last one all from 2^LAST_POWER ns on.
    static constexpr size_t STEPS = 4;
    static constexpr size_t FIRST_POWER = 8;  // 256 ns
    static constexpr size_t LAST_POWER = 34;  // 17 s: longer than a caller waits
    static constexpr size_t BUCKETS = (LAST_POWER - FIRST_POWER) * STEPS + 2;
    struct Operation {
        std::atomic<uint64_t> refused{0};
        std::atomic<int64_t> total{0};    // ns
        std::atomic<int64_t> longest{0};  // ns
        std::array<std::atomic<uint64_t>, BUCKETS> buckets{};
    };
    using Buckets = std::array<uint64_t, BUCKETS>;

    Operation* Ensure(ServerCode code) noexcept;
    static size_t BucketOf(uint64_t nanoseconds);
    static double UpperBound(size_t bucket);  // ns; of all but the last
    static Json::Value DescribeOperation(const Operation& operation, const Buckets& buckets, uint64_t count);
    static double Quantile(const Buckets& buckets, uint64_t count, double share, double longest);

    std::array<std::atomic<Operation*>, CODES> operations_{};  // by ServerCode; null: never called
};

}  // namespace TAVO::Veltra

#endif
