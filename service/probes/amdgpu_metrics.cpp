// SPDX-License-Identifier: Apache-2.0
// The file begins with its size (16 bits), its format and its content revision (8 bits each). Fields are little endian,
// at offsets that depend on both; all bits set means that the hardware does not measure the value.
#include "probes/amdgpu_metrics.h"

#include <cstddef>

namespace TAVO::Veltra {

namespace {

constexpr size_t ABSENT = 0;  // no field begins at the header
constexpr size_t HEADER_BYTES = 4;

struct Layout {
    unsigned format;
    unsigned firstRevision;
    unsigned lastRevision;
    size_t temperature;  // 16 bits each, but for the power of format 3
    size_t load;
    size_t memoryLoad;
    size_t graphicsClock;
    size_t memoryClock;
    size_t power;
    size_t powerBytes;
    size_t bytes;  // the least that holds all of these
    int64_t temperatureDivisor;
    int64_t powerFactor;  // to milliwatts
};
// The revisions differ in where these fields are, because later ones moved the temperatures to the front; new fields
// are only added behind.
constexpr Layout LAYOUTS[] = {
    {1, 0, 0, 16, 28, 30, 54, 58, 34, 2, 60, 1, 1000},       {1, 1, 3, 4, 16, 18, 54, 58, 22, 2, 60, 1, 1000},
    {2, 0, 0, 16, 40, ABSENT, 80, 84, 44, 2, 86, 100, 1},    {2, 1, 4, 4, 28, ABSENT, 76, 80, 40, 2, 82, 100, 1},
    {3, 0, 0, 4, 42, ABSENT, 174, 186, 112, 4, 188, 100, 1},
};

std::optional<int64_t> Field(std::string_view bytes, size_t offset, size_t size, int64_t most)
{
    if (offset == ABSENT) {
        return std::nullopt;
    }
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[offset + i])) << (8 * i);
    }
    // All bits set. `size` is 2 or 4, so the shift is defined.
    const bool isMeasured = value != (uint64_t{1} << (8 * size)) - 1;
    return isMeasured && value <= static_cast<uint64_t>(most) ? std::optional(static_cast<int64_t>(value))
                                                              : std::nullopt;
}

// Some processors report hundredths of a percent.
std::optional<int64_t> Percent(std::optional<int64_t> value)
{
    return value && *value > 100 ? std::optional(*value / 100) : value;
}

}  // namespace

AmdgpuMetrics ParseAmdgpuMetrics(std::string_view bytes)
{
    constexpr int64_t MOST_PERCENT = 10000;
    constexpr int64_t MOST_MHZ = 20000;
    constexpr int64_t MOST_POWER = 10000000;
    if (bytes.size() < HEADER_BYTES) {
        return {};
    }
    const auto format = static_cast<unsigned char>(bytes[2]);
    const auto revision = static_cast<unsigned char>(bytes[3]);
    for (const Layout& layout : LAYOUTS) {
        if (layout.format != format || revision < layout.firstRevision || revision > layout.lastRevision ||
            // A file that is shorter than its format says is not read at all.
            bytes.size() < layout.bytes) {
            continue;
        }
        AmdgpuMetrics metrics;
        metrics.loadPercent = Percent(Field(bytes, layout.load, 2, MOST_PERCENT));
        metrics.memoryLoadPercent = Percent(Field(bytes, layout.memoryLoad, 2, MOST_PERCENT));
        metrics.graphicsClockMhz = Field(bytes, layout.graphicsClock, 2, MOST_MHZ);
        metrics.memoryClockMhz = Field(bytes, layout.memoryClock, 2, MOST_MHZ);
        metrics.temperatureCelsius = Field(bytes, layout.temperature, 2, 126 * layout.temperatureDivisor);
        if (metrics.temperatureCelsius) {
            *metrics.temperatureCelsius /= layout.temperatureDivisor;
        }
        metrics.powerMilliwatts = Field(bytes, layout.power, layout.powerBytes, MOST_POWER / layout.powerFactor);
        if (metrics.powerMilliwatts) {
            *metrics.powerMilliwatts *= layout.powerFactor;
        }
        return metrics;
    }
    return {};
}

}  // namespace TAVO::Veltra
