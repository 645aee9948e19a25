// SPDX-License-Identifier: Apache-2.0
// Three counters need 64 bits (memory used, memory total, energy); all others have 32 bits and are cut to the largest
// value. The two functions with a switch are the only place that assigns a field to a counter, for reading as well as
// for writing. A counter counts as present only by its bit in uint10: the field alone cannot tell 0 from absent.
#include "base/gpu_counters.h"

#include <algorithm>

namespace TAVO::Veltra {

namespace {

constexpr int32_t DEFAULT_INTERVAL_MS = 1000;
constexpr int32_t LEAST_INTERVAL_MS = 50;
constexpr int32_t MOST_INTERVAL_MS = 60000;

uint64_t* WideField(GpuPerfInfo& sample, GpuCounter counter)
{
    switch (counter) {
        case GpuCounter::MEMORY_USED_BYTES:
            return &sample.ulong1;
        case GpuCounter::MEMORY_TOTAL_BYTES:
            return &sample.ulong2;
        case GpuCounter::ENERGY_MILLIJOULES:
            return &sample.ulong3;
        default:
            return nullptr;
    }
}

uint32_t& NarrowField(GpuPerfInfo& sample, GpuCounter counter)
{
    switch (counter) {
        case GpuCounter::GPU_LOAD_PERCENT:
            return sample.uint1;
        case GpuCounter::MEMORY_LOAD_PERCENT:
            return sample.uint2;
        case GpuCounter::GRAPHICS_CLOCK_MHZ:
            return sample.uint3;
        case GpuCounter::SM_CLOCK_MHZ:
            return sample.uint4;
        case GpuCounter::MEMORY_CLOCK_MHZ:
            return sample.uint5;
        case GpuCounter::TEMPERATURE_CELSIUS:
            return sample.uint6;
        case GpuCounter::POWER_MILLIWATTS:
            return sample.uint7;
        case GpuCounter::FAN_PERCENT:
            return sample.uint8;
        default:
            return sample.uint9;
    }
}

}  // namespace

void SetGpuCounter(GpuPerfInfo& sample, GpuCounter counter, uint64_t value)
{
    if (uint64_t* wide = WideField(sample, counter)) {
        *wide = value;
    } else {
        // The largest value instead of the lower 32 bits, which would look like a small one.
        NarrowField(sample, counter) = static_cast<uint32_t>(std::min<uint64_t>(value, UINT32_MAX));
    }
    sample.uint10 |= 1U << static_cast<size_t>(counter);
}

std::optional<uint64_t> GpuCounterOf(const GpuPerfInfo& sample, GpuCounter counter)
{
    if ((sample.uint10 & 1U << static_cast<size_t>(counter)) == 0) {
        return std::nullopt;
    }
    GpuPerfInfo copy = sample;  // the fields of a counter are named once, for writing
    const uint64_t* wide = WideField(copy, counter);
    return wide != nullptr ? *wide : NarrowField(copy, counter);
}

double GpuCounterSource::Interval(int32_t milliseconds) const
{
    // Clamped and not refused: a game that asks for a rate of its own gets the nearest one that is offered.
    const int32_t asked = milliseconds > 0 ? milliseconds : DEFAULT_INTERVAL_MS;
    return std::clamp(asked, LEAST_INTERVAL_MS, MOST_INTERVAL_MS) / 1000.0;
}

}  // namespace TAVO::Veltra
