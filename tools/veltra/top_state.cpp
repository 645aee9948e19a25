// SPDX-License-Identifier: Apache-2.0
// The state behind the verb `top`: curves of the device, and rates from the counters of two reports. A service that was
// started again counts from 0, so rates begin anew with it.
#include "top_layout.h"

namespace VeltraTool {

namespace {

constexpr size_t MOST_SAMPLES = 512;  // wider than a terminal is

struct Source {
    const char* group;  // null: a value of the device itself
    const char* key;
};
constexpr std::array<Source, TOP_CURVES> SOURCES{
    {{nullptr, "tempLevel"}, {nullptr, "temperature"}, {"gpuInfo", "gpuLoadPercent"}, {nullptr, "cpuLoadPercent"}}};

std::map<std::string, double> CountsOf(const Json::Value& report)
{
    std::map<std::string, double> counts;
    for (const auto& [group, key] : {std::pair{"calls", "count"}, std::pair{"pushes", "sent"}}) {
        const Json::Value& items = MemberOf(report, group);
        if (!items.isObject()) {
            continue;
        }
        for (const std::string& name : items.getMemberNames()) {
            counts[name] = NumberOf(MemberOf(items[name], key));
        }
    }
    return counts;
}

}  // namespace

void TopState::SetReport(const Json::Value& report, Clock::time_point now)
{
    const double process = NumberOf(MemberOf(MemberOf(report, "service"), "pid"));
    const std::map<std::string, double> counts = CountsOf(report);
    rates_.clear();
    // Another process counts from 0: a difference to the old one's counters would be wrong.
    if (time_ && process == process_ && now > *time_) {
        const double seconds = std::chrono::duration<double>(now - *time_).count();
        for (const auto& [name, count] : counts) {
            const auto before = counts_.find(name);  // an operation is listed from its first call on
            rates_[name] = (count - (before == counts_.end() ? 0 : before->second)) / seconds;
        }
    }
    report_ = report;
    trouble_.clear();
    counts_ = counts;
    process_ = process;
    time_ = now;
    AddSamples();
}

void TopState::SetTrouble(const std::string& trouble)
{
    report_ = Json::objectValue;
    trouble_ = trouble;
    time_.reset();
    rates_.clear();
    AddSamples();
}

std::optional<double> TopState::Rate(const std::string& name) const
{
    const auto rate = rates_.find(name);
    return rate == rates_.end() ? std::nullopt : std::optional(rate->second);
}

void TopState::AddSamples()
{
    const Json::Value& device = MemberOf(report_, "device");
    for (size_t i = 0; i < TOP_CURVES; ++i) {
        // A sample for each look, also for values that are absent, so that the curves stay aligned in time.
        const auto& [group, key] = SOURCES[i];
        const Json::Value& value = MemberOf(group == nullptr ? device : MemberOf(device, group), key);
        const bool isKnown = value.isNumeric() && (i > 0 || value.asDouble() >= 0);  // level -1: not known
        curves_[i].push_back(isKnown ? std::optional(value.asDouble()) : std::nullopt);
        if (curves_[i].size() > MOST_SAMPLES) {
            curves_[i].pop_front();
        }
    }
}

}  // namespace VeltraTool
