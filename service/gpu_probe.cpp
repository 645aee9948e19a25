// SPDX-License-Identifier: Apache-2.0
#include "gpu_probe.h"

#include <string>

namespace TAVO::Veltra {

namespace {

constexpr int64_t MOST_MHZ = 100000;

// `file` of a card, in units of which `divisor` make one of the result's.
std::optional<Measured> Read(const RootFiles& files, const std::string& card, const std::string& file, int64_t most,
                             int64_t divisor = 1)
{
    const std::optional<int64_t> number = files.ReadNumber("sys/class/drm/" + card + "/" + file, 0, most * divisor);
    if (!number) {
        return std::nullopt;
    }
    return Measured{static_cast<int32_t>(*number / divisor), "drm " + card + "/" + file};
}

std::optional<Measured> ReadFrequency(const RootFiles& files, const std::string& card)
{
    for (const char* file : {"gt_act_freq_mhz", "gt_cur_freq_mhz"}) {  // actual before requested
        // The actual clock is 0 while the GPU sleeps: that is what the driver tells.
        if (std::optional<Measured> frequency = Read(files, card, file, MOST_MHZ)) {
            return frequency;
        }
    }
    for (const int number : files.Numbers("sys/class/drm/" + card + "/device/hwmon", "hwmon")) {
        const std::string file = "device/hwmon/hwmon" + std::to_string(number) + "/freq1_input";  // in Hz
        if (std::optional<Measured> frequency = Read(files, card, file, MOST_MHZ, 1000000)) {
            return frequency;
        }
    }
    return std::nullopt;
}

}  // namespace

GpuReading ReadGpu(const RootFiles& files)
{
    GpuReading best;
    for (const int number : files.Numbers("sys/class/drm", "card")) {
        const std::string card = "card" + std::to_string(number);
        GpuReading reading;
        reading.loadPercent = Read(files, card, "device/gpu_busy_percent", 100);
        reading.memoryLoadPercent = Read(files, card, "device/mem_busy_percent", 100);
        reading.frequencyMhz = ReadFrequency(files, card);
        const bool isBusier =
            reading.loadPercent && (!best.loadPercent || best.loadPercent->value < reading.loadPercent->value);
        if (isBusier || best.IsEmpty()) {
            best = std::move(reading);
        }
    }
    return best;
}

int32_t LoadLevel(int32_t percent)
{
    int32_t level = 0;
    for (const int32_t bound : {20, 40, 60, 80, 95}) {
        level += percent >= bound ? 1 : 0;
    }
    return level;
}

}  // namespace TAVO::Veltra
