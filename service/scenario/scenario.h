// SPDX-License-Identifier: Apache-2.0
// A script for the service: device values over time, events, GPU counters and faults.
#ifndef VELTRA_SERVICE_SCENARIO_H
#define VELTRA_SERVICE_SCENARIO_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/device_fields.h"
#include "base/gpu_counters.h"
#include "scenario/curve.h"
#include "scenario/fault_plan.h"

namespace TAVO::Veltra {

// What the document says, in the time of the scenario. Never changes once it is read; docs/service.md describes the
// file.
class Scenario {
public:
    // Throws ConfigError. The same file and seed give the same values.
    static Scenario Load(const std::string& file, uint64_t seed);
    static Scenario Parse(const ConfigNode& root, uint64_t seed);
    // Every mistake of a scenario's text, by its place; empty: it can be played.
    static std::vector<ConfigMistake> Check(std::string text);

    const std::string& Name() const { return name_; }

    // The values of the parts requested, by DeviceField::key.
    std::map<std::string, int64_t> At(double seconds, const WantedState& wanted) const;

    struct Event {
        double at = 0;
        std::string text;
    };
    // Those with after < at <= upTo, in their order.
    std::vector<Event> EventsIn(double after, double upTo) const;
    // When the first one after `seconds` comes; infinity when there is none.
    double NextEvent(double seconds) const;

    struct GpuStream {
        size_t count = 1;                       // samples of a batch
        std::optional<double> intervalSeconds;  // between batches; empty: as the client asks
        std::optional<uint64_t> total;          // samples after which a stream falls silent
        std::vector<std::pair<GpuCounter, Curve>> counters;
    };
    const std::optional<GpuStream>& Gpu() const { return gpu_; }
    // What a stream gets at `seconds` from a scenario that has a GPU.
    std::vector<GpuPerfInfo> Samples(double seconds, const CounterStream& stream) const;
    const FaultPlan& Faults() const { return faults_; }

private:
    std::string name_;
    std::vector<std::pair<const DeviceField*, Curve>> curves_;
    std::vector<Event> events_;  // by time
    std::optional<GpuStream> gpu_;
    FaultPlan faults_;
};

}  // namespace TAVO::Veltra

#endif
