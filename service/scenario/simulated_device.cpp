// SPDX-License-Identifier: Apache-2.0
// A value that was set by command has priority over the scenario, and the scenario over the machine; a scenario that
// came with the service hides the machine. Each call takes one snapshot of what is simulated and uses it to the end, so
// a change on another thread cannot mix two states. While nothing is simulated, a call goes straight to the machine.
// The machine's counters are opened at first need, since the load of a GPU library may take a second; while there are
// none, each need is another attempt, since a GPU may be plugged in or wake up later.
#include "scenario/simulated_device.h"

#include <string>

namespace TAVO::Veltra {

namespace {

bool HasGpu(const Playing* playing)
{
    return playing != nullptr && playing->scenario != nullptr && playing->scenario->Gpu();
}

void Overlay(DeviceReading& reading, const std::string& key, int64_t value, const char* from, const std::string& name)
{
    reading.values[key] = {value, name.empty() ? from : from + (" " + name)};
    if (key == "tempLevel") {
        reading.levelFrom = from;
    }
}

}  // namespace

DeviceReading SimulatedDevice::Read(const WantedState& wanted)
{
    const std::shared_ptr<const Playing> playing = simulation_.Current();
    // The usual case costs one atomic load.
    if (playing == nullptr) {
        return machine_->Read(wanted);
    }
    // The order is the priority: the machine, then the scenario, then values that were set.
    DeviceReading reading = playing->hidesMachine ? DeviceReading() : machine_->Read(wanted);
    if (playing->scenario != nullptr) {
        const char* from = playing->hidesMachine ? "scenario" : "simulation";
        const double time = playing->TimeAt(simulation_.Clock().Now());
        for (const auto& [key, value] : playing->scenario->At(time, wanted)) {
            Overlay(reading, key, value, from, playing->name);
        }
    }
    for (const auto& [key, value] : playing->values) {
        if (wanted.Includes(FindDeviceField(key)->type)) {
            Overlay(reading, key, value, "simulation", "");
        }
    }
    return reading;
}

bool SimulatedCounters::IsThere()
{
    const std::shared_ptr<const Playing> playing = simulation_.Current();
    if (playing != nullptr && (HasGpu(playing.get()) || playing->hidesMachine)) {
        return HasGpu(playing.get());
    }
    return Machine() != nullptr;
}

double SimulatedCounters::Interval(int32_t milliseconds) const
{
    const std::shared_ptr<const Playing> playing = simulation_.Current();
    const double asked = GpuCounterSource::Interval(milliseconds);
    return HasGpu(playing.get()) ? playing->scenario->Gpu()->intervalSeconds.value_or(asked) : asked;
}

std::vector<GpuPerfInfo> SimulatedCounters::Batch(double now, const CounterStream& stream)
{
    const std::shared_ptr<const Playing> playing = simulation_.Current();
    if (HasGpu(playing.get())) {
        return playing->scenario->Samples(playing->TimeAt(now), stream);
    }
    GpuCounterSource* machine = playing != nullptr && playing->hidesMachine ? nullptr : Machine();
    return machine == nullptr ? std::vector<GpuPerfInfo>() : machine->Batch(now, stream);
}

GpuCounterSource* SimulatedCounters::Machine()
{
    MutexLock lock(mutex_);
    if (machine_ == nullptr) {
        machine_ = open_();
    }
    return machine_.get();
}

}  // namespace TAVO::Veltra
