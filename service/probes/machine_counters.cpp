// SPDX-License-Identifier: Apache-2.0
// Each batch reads every GPU anew and adds what one reading cannot contain: loads from the idle time since the last
// batch, and, where the driver has no figures for the whole GPU, the use by the subscriber's own process from its
// fdinfo. A GPU without any counter has no sample in the batch, but keeps its number. JoinedCounters puts two sources
// behind each other and shifts the GPU numbers of the second by the count of the first. One thread at a time calls: the
// trackers have no lock.
#include "probes/machine_counters.h"

#include <algorithm>
#include <utility>

#include "probes/nvml_counters.h"

namespace TAVO::Veltra {

namespace {

void Set(GpuPerfInfo& sample, GpuCounter counter, const std::optional<Measured>& measured)
{
    if (measured && measured->value >= 0) {
        SetGpuCounter(sample, counter, static_cast<uint64_t>(measured->value));
    }
}

void SetIfAbsent(GpuPerfInfo& sample, GpuCounter counter, const std::optional<int64_t>& value)
{
    if (value && !GpuCounterOf(sample, counter)) {
        SetGpuCounter(sample, counter, static_cast<uint64_t>(*value));
    }
}

}  // namespace

std::unique_ptr<GpuCounterSource> MachineCounters::Open(const std::string& rootDir, Now now)
{
    std::unique_ptr<MachineCounters> counters(new MachineCounters(rootDir, std::move(now)));
    for (const GpuReading& gpu : ReadGpus(counters->files_)) {
        counters->NumberOf(gpu.name);
    }
    return counters->numbers_.empty() ? nullptr : std::move(counters);
}

std::vector<GpuPerfInfo> MachineCounters::Batch(double, const CounterStream& stream)
{
    const TimePoint now = now_();
    std::vector<GpuReading> gpus = ReadGpus(files_);
    idle_.AddLoads(gpus, now);
    const DrmLoadTracker::Uses uses = stream.process > 0
                                          ? games_.Update(stream.process, ReadDrmUsage(files_, stream.process), now)
                                          : DrmLoadTracker::Uses();
    std::vector<GpuPerfInfo> batch;
    for (const GpuReading& gpu : gpus) {
        GpuPerfInfo sample = Sample(gpu, uses);
        if (sample.uint10 != 0) {
            sample.int1 = NumberOf(gpu.name);
            sample.long1 = std::chrono::nanoseconds(now.time_since_epoch()).count();
            sample.long2 = static_cast<int64_t>(stream.sent + batch.size());
            batch.push_back(sample);
        }
    }
    return batch;
}

GpuPerfInfo MachineCounters::Sample(const GpuReading& gpu, const DrmLoadTracker::Uses& uses) const
{
    GpuPerfInfo sample;
    Set(sample, GpuCounter::GPU_LOAD_PERCENT, gpu.loadPercent);
    Set(sample, GpuCounter::MEMORY_LOAD_PERCENT, gpu.memoryLoadPercent);
    Set(sample, GpuCounter::MEMORY_USED_BYTES, gpu.memoryUsedBytes);
    Set(sample, GpuCounter::MEMORY_TOTAL_BYTES, gpu.memoryTotalBytes);
    Set(sample, GpuCounter::ENERGY_MILLIJOULES, gpu.energyMillijoules);
    Set(sample, GpuCounter::GRAPHICS_CLOCK_MHZ, gpu.frequencyMhz);
    Set(sample, GpuCounter::MEMORY_CLOCK_MHZ, gpu.memoryFrequencyMhz);
    Set(sample, GpuCounter::TEMPERATURE_CELSIUS, gpu.temperatureCelsius);
    Set(sample, GpuCounter::POWER_MILLIWATTS, gpu.powerMilliwatts);
    Set(sample, GpuCounter::FAN_PERCENT, gpu.fanPercent);
    // Keys of `uses` are PCI addresses, as `slot` is, or names of drivers. A machine has one GPU without an address.
    const auto use = gpu.slot.empty()
                         ? std::find_if(uses.begin(), uses.end(),
                                        [](const auto& entry) { return entry.first.find(':') == std::string::npos; })
                         : uses.find(gpu.slot);
    if (use != uses.end()) {
        // The whole GPU's figure, if the driver has one, is the better answer.
        SetIfAbsent(sample, GpuCounter::GPU_LOAD_PERCENT, use->second.loadPercent);
        SetIfAbsent(sample, GpuCounter::MEMORY_USED_BYTES, use->second.memoryBytes);
    }
    return sample;
}

int32_t MachineCounters::NumberOf(const std::string& gpu)
{
    const auto known = std::find(numbers_.begin(), numbers_.end(), gpu);
    const auto number = static_cast<int32_t>(known - numbers_.begin());
    if (known == numbers_.end()) {
        numbers_.push_back(gpu);
    }
    return number;
}

std::unique_ptr<GpuCounterSource> OpenGpuCounters(const std::string& rootDir, bool triesLibrary)
{
    // The maker's library reports about this machine only, which another root is not.
    return JoinedCounters::Join(triesLibrary && rootDir == "/" ? OpenNvmlCounters() : nullptr,
                                MachineCounters::Open(rootDir));
}

std::unique_ptr<GpuCounterSource> JoinedCounters::Join(std::unique_ptr<GpuCounterSource> first,
                                                       std::unique_ptr<GpuCounterSource> second)
{
    if (first == nullptr || second == nullptr) {
        return first != nullptr ? std::move(first) : std::move(second);
    }
    return std::unique_ptr<GpuCounterSource>(new JoinedCounters(std::move(first), std::move(second)));
}

std::vector<GpuPerfInfo> JoinedCounters::Batch(double now, const CounterStream& stream)
{
    std::vector<GpuPerfInfo> batch = first_->Batch(now, stream);
    for (GpuPerfInfo& sample : second_->Batch(now, {stream.sent + batch.size(), stream.process})) {
        // The numbers of the first source are fixed, so those of the second stay the same while the service runs.
        sample.int1 += first_->Count();
        batch.push_back(sample);
    }
    return batch;
}

}  // namespace TAVO::Veltra
