// SPDX-License-Identifier: Apache-2.0
// GPU counters of the GPUs that a machine's own files report about, whatever their maker.
#ifndef VELTRA_SERVICE_MACHINE_COUNTERS_H
#define VELTRA_SERVICE_MACHINE_COUNTERS_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/gpu_counters.h"
#include "probes/drm_usage.h"
#include "probes/gpu_probe.h"
#include "probes/root_files.h"

namespace TAVO::Veltra {

// Where a driver does not report the load or the used memory of the whole GPU, the sample has what the subscriber's own
// process uses of it.
class MachineCounters final : public GpuCounterSource {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Now = std::function<TimePoint()>;

    // Null when the machine has no such GPU now.
    static std::unique_ptr<GpuCounterSource> Open(const std::string& rootDir, Now now = std::chrono::steady_clock::now);

    std::vector<GpuPerfInfo> Batch(double now, const CounterStream& stream) override;
    int32_t Count() const override { return static_cast<int32_t>(numbers_.size()); }

private:
    MachineCounters(const std::string& rootDir, Now now) : files_(rootDir), now_(std::move(now)) {}

    GpuPerfInfo Sample(const GpuReading& gpu, const DrmLoadTracker::Uses& uses) const;
    int32_t NumberOf(const std::string& gpu);

    const RootFiles files_;
    const Now now_;
    GpuIdleTracker idle_;
    DrmLoadTracker games_;
    std::vector<std::string> numbers_;  // names of GPUs by their number: a GPU keeps it while others sleep or vanish
};

// All GPUs of the machine, by their maker's library and by the machine's files. Null when there is none. Without
// `triesLibrary` by the files only: a library that has failed once fails for a long time, and slowly.
std::unique_ptr<GpuCounterSource> OpenGpuCounters(const std::string& rootDir, bool triesLibrary);

// The GPUs of several sources, numbered on: those of the second follow the last one of the first.
class JoinedCounters final : public GpuCounterSource {
public:
    // Either may be null; null when both are.
    static std::unique_ptr<GpuCounterSource> Join(std::unique_ptr<GpuCounterSource> first,
                                                  std::unique_ptr<GpuCounterSource> second);

    std::vector<GpuPerfInfo> Batch(double now, const CounterStream& stream) override;
    int32_t Count() const override { return first_->Count() + second_->Count(); }

private:
    JoinedCounters(std::unique_ptr<GpuCounterSource> first, std::unique_ptr<GpuCounterSource> second)
        : first_(std::move(first)), second_(std::move(second))
    {
    }

    const std::unique_ptr<GpuCounterSource> first_;
    const std::unique_ptr<GpuCounterSource> second_;
};

}  // namespace TAVO::Veltra

#endif
