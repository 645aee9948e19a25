// SPDX-License-Identifier: Apache-2.0
// Each descriptor of a GPU has a text of lines "key:<tab>value". Several descriptors may belong to one client of the
// driver and repeat its numbers: a client counts once. "drm-engine-X" is time in nanoseconds, "drm-cycles-X" cycles, to
// be compared with "drm-total-cycles-X" or, without it, with "drm-maxfreq-X". Memory is "drm-total-<region>", or
// "drm-memory-<region>" with older drivers.
#include "probes/drm_usage.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>
#include <string_view>
#include <utility>

namespace TAVO::Veltra {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr double NANOSECONDS = 1e9;
constexpr uint64_t MOST_NUMBER = uint64_t{1} << 62;
constexpr uint64_t MOST_BYTES = uint64_t{1} << 50;
// Of one process: as many as it may open by default. Those of a GPU need not be the first; each costs a read.
constexpr size_t MOST_DESCRIPTORS = 1024;

std::map<std::string, std::string> Lines(const std::string& text)
{
    std::map<std::string, std::string> lines;
    std::string_view rest(text);
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const size_t colon = line.find(':');
        const size_t value = line.find_first_not_of(" \t", colon == std::string_view::npos ? colon : colon + 1);
        if (line.starts_with("drm-") && value != std::string_view::npos) {
            lines.emplace(line.substr(0, colon), line.substr(value));
        }
    }
    return lines;
}

// "524288 KiB", "41000000000 ns", "800000000 Hz", "3"; empty for what is no number.
std::optional<uint64_t> Number(const std::string& text)
{
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) {
        return std::nullopt;
    }
    const std::string_view unit(end, static_cast<size_t>(text.data() + text.size() - end));
    // Compared with the limit before the multiplication, which could overflow.
    const uint64_t factor = unit.starts_with(" KiB") ? 1024 : unit.starts_with(" MiB") ? 1024 * 1024 : 1;
    return number > MOST_NUMBER / factor ? std::nullopt : std::optional(number * factor);
}

// Both are at most MOST_NUMBER, as is the sum.
uint64_t Sum(const std::optional<uint64_t>& sum, uint64_t value)
{
    return std::min(sum.value_or(0) + value, MOST_NUMBER);
}

void AddEngines(const std::map<std::string, std::string>& lines, DrmUsage& usage)
{
    const auto each = [&lines](std::string_view prefix, auto take) {
        for (auto line = lines.lower_bound(std::string(prefix)); line != lines.end() && line->first.starts_with(prefix);
             ++line) {
            if (const std::optional<uint64_t> number = Number(line->second)) {
                take(line->first.substr(prefix.size()), *number);
            }
        }
    };
    each("drm-engine-", [&usage](const std::string& name, uint64_t value) {
        if (!name.starts_with("capacity-")) {
            std::optional<uint64_t>& busy = usage.engines[name].busyNanoseconds;
            busy = Sum(busy, value);
        }
    });
    each("drm-engine-capacity-", [&usage](const std::string& name, uint64_t value) {
        usage.engines[name].capacity = std::max<uint64_t>(value, 1);
    });
    each("drm-cycles-", [&usage](const std::string& name, uint64_t value) {
        std::optional<uint64_t>& busy = usage.engines[name].busyCycles;
        busy = Sum(busy, value);
    });
    each("drm-total-cycles-", [&usage](const std::string& name, uint64_t value) {
        usage.engines[name].allCycles = std::max(usage.engines[name].allCycles, value);
    });
    each("drm-maxfreq-",
         [&usage](const std::string& name, uint64_t value) { usage.engines[name].cyclesPerSecond = value; });
    std::optional<uint64_t> total;
    each("drm-total-", [&total](const std::string& name, uint64_t value) {
        if (!name.starts_with("cycles-")) {
            total = Sum(total, value);
        }
    });
    if (!total) {
        each("drm-memory-", [&total](const std::string&, uint64_t value) { total = Sum(total, value); });
    }
    if (total) {
        usage.memoryBytes = Sum(usage.memoryBytes, *total);
    }
}

// Empty when a counter ran backwards, as it does when a descriptor is closed.
std::optional<double> ShareOf(const DrmEngine& before, const DrmEngine& now, double seconds)
{
    const auto capacity = static_cast<double>(now.capacity);
    if (before.busyNanoseconds && now.busyNanoseconds && *now.busyNanoseconds >= *before.busyNanoseconds) {
        return static_cast<double>(*now.busyNanoseconds - *before.busyNanoseconds) / NANOSECONDS / seconds / capacity;
    }
    if (!before.busyCycles || !now.busyCycles || *now.busyCycles < *before.busyCycles) {
        return std::nullopt;
    }
    const auto busy = static_cast<double>(*now.busyCycles - *before.busyCycles);
    if (now.allCycles > before.allCycles && before.allCycles > 0) {
        return busy / static_cast<double>(now.allCycles - before.allCycles) / capacity;
    }
    return now.cyclesPerSecond > 0 ? std::optional(busy / static_cast<double>(now.cyclesPerSecond) / seconds / capacity)
                                   : std::nullopt;
}

std::optional<int64_t> LoadOf(const DrmUsage& before, const DrmUsage& now, double seconds)
{
    std::optional<double> most;
    for (const auto& [name, engine] : now.engines) {
        const auto past = before.engines.find(name);
        const std::optional<double> share =
            past != before.engines.end() ? ShareOf(past->second, engine, seconds) : std::nullopt;
        if (share) {
            most = std::max(most.value_or(0), *share);
        }
    }
    return most ? std::optional(static_cast<int64_t>(std::llround(std::min(*most, 1.0) * 100))) : std::nullopt;
}

}  // namespace

std::map<std::string, DrmUsage> ReadDrmUsage(const RootFiles& files, pid_t process)
{
    const std::string dir = "proc/" + std::to_string(process) + "/fdinfo/";
    std::map<std::string, DrmUsage> usage;
    std::set<std::pair<std::string, std::string>> clients;
    for (const int fd : files.Numbers(dir, "", "", MOST_DESCRIPTORS)) {
        const std::optional<std::string> text = files.ReadText(dir + std::to_string(fd));
        // Most descriptors of a process are no GPUs.
        if (!text || text->find("drm-driver:") == std::string::npos) {
            continue;
        }
        std::map<std::string, std::string> lines = Lines(*text);
        // The PCI address tells two GPUs of one driver apart. A GPU without one is the only one of its driver.
        const std::string gpu = lines.count("drm-pdev") > 0 ? lines["drm-pdev"] : lines["drm-driver"];
        if (clients.emplace(gpu, lines["drm-client-id"]).second) {
            AddEngines(lines, usage[gpu]);
        }
    }
    return usage;
}

std::optional<DrmLoadTracker::Uses> DrmLoadTracker::Recent(pid_t process, TimePoint now,
                                                           std::chrono::milliseconds interval) const
{
    const auto past = past_.find(process);
    return past != past_.end() && now - past->second.at < interval ? std::optional(past->second.uses) : std::nullopt;
}

DrmLoadTracker::Uses DrmLoadTracker::Update(pid_t process, std::map<std::string, DrmUsage> usage, TimePoint now)
{
    Past& past = past_[process];
    const double seconds = Seconds(now - past.at).count();
    Uses uses;
    for (const auto& [gpu, current] : usage) {
        const auto before = past.usage.find(gpu);
        if (before != past.usage.end() && seconds > 0) {
            uses[gpu].loadPercent = LoadOf(before->second, current, seconds);
        }
        if (current.memoryBytes && *current.memoryBytes <= MOST_BYTES) {
            uses[gpu].memoryBytes = static_cast<int64_t>(*current.memoryBytes);
        }
    }
    past = {now, std::move(usage), uses};
    // The process that asked longest ago. Pids are reused, so the table must not be trusted for long anyway.
    if (past_.size() > MOST_PROCESSES) {
        past_.erase(std::min_element(past_.begin(), past_.end(), [](const auto& left, const auto& right) {
            return left.second.at < right.second.at;
        }));
    }
    return uses;
}

}  // namespace TAVO::Veltra
