// SPDX-License-Identifier: Apache-2.0
// The load between two readings of the sums in proc/stat. A reading that is too close to the previous one keeps the old
// result: with few ticks the share would jump. Sums that go backwards (a processor was taken offline) start anew.
#include "probes/cpu_load.h"

namespace TAVO::Veltra {

std::optional<int32_t> CpuLoad::Update(const CpuTimes& now)
{
    if (!before_ || now.total < before_->total || now.idle < before_->idle) {
        before_ = now;
        percent_.reset();
        return percent_;
    }
    const uint64_t total = now.total - before_->total;
    const uint64_t idle = now.idle - before_->idle;
    if (total >= LEAST_TICKS && idle <= total) {
        before_ = now;
        percent_ = static_cast<int32_t>(100.0 * static_cast<double>(total - idle) / static_cast<double>(total));
    }
    return percent_;
}

}  // namespace TAVO::Veltra
