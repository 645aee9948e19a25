// SPDX-License-Identifier: Apache-2.0
// The library is opened with dlopen, so the service runs where it is not installed; no header of it is needed, since
// the few types and numbers of its stable binary interface are declared here. The constructor initialises the library
// and keeps a handle for each GPU; Batch then asks every GPU for each counter. Each call may fail on its own, and its
// counter is absent then. The library is never closed: threads of its own may still run in its code.
#include "probes/nvml_counters.h"

#include <dlfcn.h>

#include <chrono>
#include <utility>

namespace TAVO::Veltra {

namespace {

// The part of the library's binary interface that is used here; a result of 0 is success.
using Device = void*;
struct Utilization {
    unsigned int gpu;     // percent
    unsigned int memory;  // percent
};
struct MemoryInfo {
    unsigned long long total;  // bytes
    unsigned long long free;
    unsigned long long used;
};
constexpr unsigned int CLOCK_GRAPHICS = 0;
constexpr unsigned int CLOCK_SM = 1;
constexpr unsigned int CLOCK_MEMORY = 2;
constexpr unsigned int SENSOR_GPU = 0;
constexpr unsigned int MOST_DEVICES = 64;

// One entry of the library; absent ones fail like a GPU that does not tell.
template <typename... Arguments>
class Entry {
public:
    // Null for a function that an older version of the library does not have.
    Entry(void* library, const char* name) : function_(reinterpret_cast<Function>(dlsym(library, name))) {}

    bool operator()(Arguments... arguments) const { return function_ != nullptr && function_(arguments...) == 0; }

private:
    using Function = int (*)(Arguments...);
    const Function function_;
};

int64_t NowNanoseconds()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

class NvmlCounters final : public GpuCounterSource {
public:
    explicit NvmlCounters(void* library)
        : init_(library, "nvmlInit_v2"),
          count_(library, "nvmlDeviceGetCount_v2"),
          handle_(library, "nvmlDeviceGetHandleByIndex_v2"),
          utilization_(library, "nvmlDeviceGetUtilizationRates"),
          memory_(library, "nvmlDeviceGetMemoryInfo"),
          energy_(library, "nvmlDeviceGetTotalEnergyConsumption"),
          clock_(library, "nvmlDeviceGetClockInfo"),
          temperature_(library, "nvmlDeviceGetTemperature"),
          power_(library, "nvmlDeviceGetPowerUsage"),
          fan_(library, "nvmlDeviceGetFanSpeed"),
          encoder_(library, "nvmlDeviceGetEncoderUtilization")
    {
        unsigned int count = 0;
        if (!init_() || !count_(&count)) {
            return;
        }
        for (unsigned int i = 0; i < count && i < MOST_DEVICES; ++i) {
            Device device = nullptr;
            if (handle_(i, &device)) {
                devices_.emplace_back(static_cast<int32_t>(i), device);
            }
        }
    }

    // The numbers of GPUs may have gaps: one that cannot be opened has none.
    int32_t Count() const override { return devices_.back().first + 1; }
    bool HasDevices() const { return !devices_.empty(); }

    std::vector<GpuPerfInfo> Batch(double, const CounterStream& stream) override
    {
        std::vector<GpuPerfInfo> batch;
        for (const auto& [number, device] : devices_) {
            GpuPerfInfo sample = Read(device);
            if (sample.uint10 != 0) {  // a GPU that has fallen off the bus tells nothing
                sample.int1 = number;
                sample.long2 = static_cast<int64_t>(stream.sent + batch.size());
                batch.push_back(sample);
            }
        }
        return batch;
    }

private:
    GpuPerfInfo Read(Device device) const
    {
        GpuPerfInfo sample;
        sample.long1 = NowNanoseconds();
        if (Utilization load{}; utilization_(device, &load)) {
            SetGpuCounter(sample, GpuCounter::GPU_LOAD_PERCENT, load.gpu);
            SetGpuCounter(sample, GpuCounter::MEMORY_LOAD_PERCENT, load.memory);
        }
        if (MemoryInfo memory{}; memory_(device, &memory)) {
            SetGpuCounter(sample, GpuCounter::MEMORY_USED_BYTES, memory.used);
            SetGpuCounter(sample, GpuCounter::MEMORY_TOTAL_BYTES, memory.total);
        }
        if (unsigned long long energy = 0; energy_(device, &energy)) {
            SetGpuCounter(sample, GpuCounter::ENERGY_MILLIJOULES, energy);
        }
        ReadClock(sample, device, CLOCK_GRAPHICS, GpuCounter::GRAPHICS_CLOCK_MHZ);
        ReadClock(sample, device, CLOCK_SM, GpuCounter::SM_CLOCK_MHZ);
        ReadClock(sample, device, CLOCK_MEMORY, GpuCounter::MEMORY_CLOCK_MHZ);
        if (unsigned int degrees = 0; temperature_(device, SENSOR_GPU, &degrees)) {
            SetGpuCounter(sample, GpuCounter::TEMPERATURE_CELSIUS, degrees);
        }
        if (unsigned int milliwatts = 0; power_(device, &milliwatts)) {
            SetGpuCounter(sample, GpuCounter::POWER_MILLIWATTS, milliwatts);
        }
        if (unsigned int percent = 0; fan_(device, &percent)) {
            SetGpuCounter(sample, GpuCounter::FAN_PERCENT, percent);
        }
        if (unsigned int percent = 0, periodUs = 0; encoder_(device, &percent, &periodUs)) {
            SetGpuCounter(sample, GpuCounter::ENCODER_PERCENT, percent);
        }
        return sample;
    }
    void ReadClock(GpuPerfInfo& sample, Device device, unsigned int clock, GpuCounter counter) const
    {
        if (unsigned int mhz = 0; clock_(device, clock, &mhz)) {
            SetGpuCounter(sample, counter, mhz);
        }
    }

    const Entry<> init_;
    const Entry<unsigned int*> count_;
    const Entry<unsigned int, Device*> handle_;
    const Entry<Device, Utilization*> utilization_;
    const Entry<Device, MemoryInfo*> memory_;
    const Entry<Device, unsigned long long*> energy_;
    const Entry<Device, unsigned int, unsigned int*> clock_;
    const Entry<Device, unsigned int, unsigned int*> temperature_;
    const Entry<Device, unsigned int*> power_;
    const Entry<Device, unsigned int*> fan_;
    const Entry<Device, unsigned int*, unsigned int*> encoder_;
    std::vector<std::pair<int32_t, Device>> devices_;  // by their number
};

}  // namespace

std::unique_ptr<GpuCounterSource> OpenNvmlCounters(const char* library)
{
    // RTLD_NOW: a library with a missing symbol fails here, not in the middle of a batch.
    void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return nullptr;
    }
    auto counters = std::make_unique<NvmlCounters>(handle);
    return counters->HasDevices() ? std::move(counters) : nullptr;
}

}  // namespace TAVO::Veltra
