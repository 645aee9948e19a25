// SPDX-License-Identifier: Apache-2.0
// The counters of a GPU sample: what each is called, where it travels in a GpuPerfInfo, and who supplies them.
#ifndef VELTRA_SERVICE_GPU_COUNTERS_H
#define VELTRA_SERVICE_GPU_COUNTERS_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "veltra_records.h"

namespace TAVO::Veltra {

// A sample's int1 is the number of the GPU, long1 the time in nanoseconds, long2 the sample's number in its stream,
// from 0. Each counter has a field of its own; bit n of uint10 is set where counter n was reported, so that 0 is
// never made up.
enum class GpuCounter : size_t {
    GPU_LOAD_PERCENT,     // uint1
    MEMORY_LOAD_PERCENT,  // uint2
    MEMORY_USED_BYTES,    // ulong1
    MEMORY_TOTAL_BYTES,   // ulong2
    ENERGY_MILLIJOULES,   // ulong3, since an arbitrary moment, such as the load of the driver
    GRAPHICS_CLOCK_MHZ,   // uint3
    SM_CLOCK_MHZ,         // uint4
    MEMORY_CLOCK_MHZ,     // uint5
    TEMPERATURE_CELSIUS,  // uint6
    POWER_MILLIWATTS,     // uint7
    FAN_PERCENT,          // uint8
    ENCODER_PERCENT,      // uint9
};

// As they are called in scenarios, in the order of GpuCounter.
constexpr std::array<const char*, 12> GPU_COUNTER_NAMES = {
    "gpuLoadPercent",     "memoryLoadPercent", "memoryUsedBytes", "memoryTotalBytes",
    "energyMillijoules",  "graphicsClockMhz",  "smClockMhz",      "memoryClockMhz",
    "temperatureCelsius", "powerMilliwatts",   "fanPercent",      "encoderPercent",
};

// Values beyond 32 bits are cut to the largest one where the field is no wider.
void SetGpuCounter(GpuPerfInfo& sample, GpuCounter counter, uint64_t value);
// Empty: the sample does not have it.
std::optional<uint64_t> GpuCounterOf(const GpuPerfInfo& sample, GpuCounter counter);

// One client's stream of samples.
struct CounterStream {
    uint64_t sent = 0;     // samples so far
    pid_t process = 0;     // the client's; 0: not known
    uint64_t earlier = 0;  // samples before the scenario that plays
};

// Interval: any thread; the others: one thread at a time.
class GpuCounterSource {
public:
    virtual ~GpuCounterSource() = default;
    // Seconds between the batches of a client that requested `milliseconds`; 0 or below: the default.
    virtual double Interval(int32_t milliseconds) const;
    // What a stream gets at `now` (seconds of service time): one sample of each GPU. Empty: nothing for now.
    virtual std::vector<GpuPerfInfo> Batch(double now, const CounterStream& stream) = 0;
    // How many GPUs there are, asleep or not: their numbers are below it.
    virtual int32_t Count() const { return 1; }
};

}  // namespace TAVO::Veltra

#endif
