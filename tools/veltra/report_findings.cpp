// SPDX-License-Identifier: Apache-2.0
// The sentences at the top of a report. Each function looks at one subject, and adds a sentence only if the recording
// has values about it: nothing is concluded from values that are missing.
#include "report_findings.h"

#include <cmath>

#include "exit_code.h"

namespace VeltraTool {

namespace {

constexpr double REACTION_SECONDS = 10;

using Findings = std::vector<Finding>;

std::string Times(uint64_t count, const std::string& one, const char* ending = "s")
{
    return std::to_string(count) + " " + one + (count == 1 ? "" : ending);
}

// ", 1.4 s later the quality of racer was lowered from 5 to 4": by the first game that did so after the time, or else
// the last one earlier than that. Empty if games report no quality.
std::string ReactionTo(double seconds, const RecordedReport& report)
{
    const QualityChange* before = nullptr;
    bool isReported = false;
    for (const auto& [process, game] : report.games) {
        isReported = isReported || game.quality.has_value();
    }
    for (const QualityChange& change : report.qualityChanges) {
        if (change.now >= change.before || std::abs(change.seconds - seconds) > REACTION_SECONDS) {
            continue;
        }
        if (change.seconds >= seconds) {
            return ", " + Shown(change.seconds - seconds, 1) + " s later the quality of " +
                   report.NameOf(change.process) + " was lowered from " + ShownShort(change.before) + " to " +
                   ShownShort(change.now);
        }
        before = &change;
    }
    if (before != nullptr) {
        return ", " + Shown(seconds - before->seconds, 1) + " s before the quality of " +
               report.NameOf(before->process) + " had been lowered to " + ShownShort(before->now);
    }
    return isReported ? ", no game lowered its quality within " + ShownShort(REACTION_SECONDS) + " s" : "";
}

void AddHeat(const RecordedReport& report, Findings& findings)
{
    const DeviceStory& device = report.device;
    for (const auto& [level, phase] : device.HotPhases()) {
        if (!phase.first) {
            continue;
        }
        const std::string again = phase.times > 1 ? ", " + Times(phase.times, "time") + " in all" : "";
        findings.push_back({Tone::WARNING, "Level " + std::to_string(level) + " reached at " + Elapsed(*phase.first) +
                                               ReactionTo(*phase.first, report) + "; " + Elapsed(phase.seconds) +
                                               " at this level or above" + again + "."});
    }
    if (device.HighestLevel() && device.HighestLevel()->value < DeviceStory::HOT_LEVEL) {
        findings.push_back({Tone::GOOD, "The device stayed cool: its level was " +
                                            ShownShort(device.HighestLevel()->value) + " at most."});
    }
    if (!device.HighestLevel()) {
        findings.push_back({Tone::PLAIN, "The device reported no temperature level."});
    }
    if (device.Throttling().first) {
        findings.push_back({Tone::BAD, "The device throttled for " + Elapsed(device.Throttling().seconds) +
                                           " in all, first at " + Elapsed(*device.Throttling().first) + "."});
    }
    if (const auto& slowest = device.SlowestWhileHot()) {
        findings.push_back({Tone::BAD, "While hot, the GPU slowed down to " + ShownShort(slowest->value) + " MHz at " +
                                           Elapsed(slowest->seconds) + ", from " +
                                           ShownShort(device.HighestFrequency()) + " MHz."});
    }
}

void AddTemperature(const RecordedReport& report, Findings& findings)
{
    const auto& highest = report.device.HighestTemperature();
    const auto& margin = report.device.LeastMargin();
    if (!highest) {
        return;
    }
    std::string text =
        "The highest temperature was " + ShownShort(highest->value) + " \u00b0C at " + Elapsed(highest->seconds);
    if (margin) {
        text +=
            ", the least margin to the limit " + ShownShort(margin->value) + " \u00b0C at " + Elapsed(margin->seconds);
    }
    findings.push_back({margin && margin->value <= 0 ? Tone::BAD : Tone::PLAIN, text + "."});
}

void AddBattery(const RecordedReport& report, Findings& findings)
{
    const auto& first = report.device.FirstCharge();
    const auto& last = report.device.LastCharge();
    if (first && last && first->value != last->value) {
        findings.push_back({Tone::PLAIN, "The battery went from " + ShownShort(first->value) + " % to " +
                                             ShownShort(last->value) + " % in " +
                                             Elapsed(last->seconds - first->seconds) + "."});
    }
}

void AddCalls(const RecordedReport& report, Findings& findings)
{
    if (report.slowCalls > 0) {
        findings.push_back({Tone::WARNING, Times(report.slowCalls, "call") + " waited over 100 ms, the longest " +
                                               ShownDuration(report.slowest.microseconds) + " (" +
                                               report.slowest.operation + ", answered at " +
                                               Elapsed(report.slowest.seconds) + ")."});
    } else if (report.Calls() > 0) {
        findings.push_back({Tone::GOOD, "No call waited over 100 ms; the longest took " +
                                            ShownDuration(report.slowest.microseconds) + " (" +
                                            report.slowest.operation + ")."});
    } else {
        findings.push_back({Tone::PLAIN, "No game called the service."});
    }
    for (const auto& [name, summary] : report.operations) {
        if (summary.failed > 0) {
            findings.push_back({Tone::BAD, std::to_string(summary.failed) + " of " +
                                               Times(summary.durations.Count(), "call") + " of " + name +
                                               " failed, the first at " + Elapsed(summary.firstFailedAt) + " with " +
                                               NameOfCode(summary.firstFailure) + "."});
        }
    }
    for (const auto& [name, summary] : report.pushes) {
        if (summary.failed > 0) {
            findings.push_back({Tone::BAD, std::to_string(summary.failed) + " of " +
                                               Times(summary.durations.Count(), "push", "es") + " of " + name +
                                               " failed, the first at " + Elapsed(summary.firstFailedAt) + "."});
        }
    }
}

void AddGames(const RecordedReport& report, Findings& findings)
{
    constexpr size_t MOST_NAMED = 5;
    size_t ended = 0;
    for (const auto& [process, game] : report.games) {
        if (game.endedAt && ++ended <= MOST_NAMED) {
            findings.push_back({Tone::PLAIN, report.NameOf(process) + " ended at " + Elapsed(*game.endedAt) + "."});
        }
    }
    if (ended > MOST_NAMED) {
        findings.push_back({Tone::PLAIN, Times(ended - MOST_NAMED, "more game") + " ended."});
    }
}

void AddLimits(const RecordedReport& report, Findings& findings)
{
    if (report.lost > 0) {
        findings.push_back(
            {Tone::WARNING,
             Times(report.lost, "record") + " were lost, since the recorder could not keep up: counts are too low."});
    }
    const Json::Value& simulated = MemberOf(report.header, "simulated");
    if (report.wasSimulated || (simulated.isBool() && simulated.asBool())) {
        findings.push_back({Tone::PLAIN, "The device was simulated: its values are not those of the machine."});
    }
}

}  // namespace

std::vector<Finding> FindingsOf(const RecordedReport& report)
{
    Findings findings;
    AddHeat(report, findings);
    AddTemperature(report, findings);
    AddBattery(report, findings);
    AddCalls(report, findings);
    AddGames(report, findings);
    AddLimits(report, findings);
    return findings;
}

std::string ShownDuration(double microseconds)
{
    return microseconds < 1000      ? Shown(microseconds, 1) + " \u00b5s"
           : microseconds < 1000000 ? Shown(microseconds / 1000, 1) + " ms"
                                    : Shown(microseconds / 1000000, 2) + " s";
}

}  // namespace VeltraTool
