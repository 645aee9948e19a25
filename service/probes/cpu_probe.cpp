// SPDX-License-Identifier: Apache-2.0
// The sums in proc/stat grow from the start of the machine; the caller computes a load from two readings. Idle time and
// time that waits for input and output count as idle. Numbers are taken off the front of the text one by one, and each
// is checked for its range, so that damaged text gives an absent value and no wrong one. proc/pressure exists only in
// kernels that account stalls; without it the pressure is absent.
#include "probes/cpu_probe.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace TAVO::Veltra {

namespace {

constexpr int COUNTED_FIELDS = 8;  // user to steal; guest time is part of user time already
constexpr int IDLE_FIELD = 3;
constexpr int IO_WAIT_FIELD = 4;
constexpr uint64_t MOST_TICKS = uint64_t{1} << 56;  // far from what a sum of eight could overflow
constexpr int64_t MOST_KHZ = 100000000;

// Takes a number off the front of `text`, blanks before it included.
template <typename Number>
bool TakeNumber(std::string_view& text, Number& number)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return error == std::errc();
}

bool TakePrefix(std::string_view& text, std::string_view prefix)
{
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

}  // namespace

std::optional<CpuTimes> ReadCpuTimes(const RootFiles& files)
{
    const std::optional<std::string> text = files.ReadText("proc/stat");
    if (!text) {
        return std::nullopt;
    }
    std::string_view line = std::string_view(*text).substr(0, text->find('\n'));
    // The first line is the sum of all processors; with a number behind "cpu" it would be one of them.
    if (!TakePrefix(line, "cpu ")) {
        return std::nullopt;
    }
    CpuTimes times;
    for (int field = 0; field < COUNTED_FIELDS; ++field) {
        uint64_t ticks = 0;
        if (!TakeNumber(line, ticks) || ticks > MOST_TICKS) {
            return std::nullopt;
        }
        times.total += ticks;
        // A processor that waits for a disk could run a game meanwhile.
        times.idle += field == IDLE_FIELD || field == IO_WAIT_FIELD ? ticks : 0;
    }
    return times;
}

std::map<std::string, int32_t> ReadCpuFrequencies(const RootFiles& files, const std::string& file)
{
    const std::string dir = "sys/devices/system/cpu/cpufreq/";
    std::map<std::string, int32_t> frequencies;
    for (const int number : files.Numbers(dir, "policy")) {
        const std::string policy = "policy" + std::to_string(number);
        // Below 1 MHz the driver does not know the frequency: some report 0 then.
        if (const std::optional<int64_t> khz = files.ReadNumber(dir + policy + "/" + file, 1000, MOST_KHZ)) {
            frequencies[policy] = static_cast<int32_t>(*khz / 1000);
        }
    }
    return frequencies;
}

std::optional<Measured> ReadPressure(const RootFiles& files, const std::string& resource)
{
    const std::string path = "proc/pressure/" + resource;
    const std::optional<std::string> text = files.ReadText(path);
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    uint32_t whole = 0;
    uint32_t hundredths = 0;
    // "some avg10=12.34 avg60=...": always two digits behind the point.
    if (!TakePrefix(rest, "some avg10=") || !TakeNumber(rest, whole) || !TakePrefix(rest, ".") || rest.find(' ') != 2 ||
        !TakeNumber(rest, hundredths) || whole > 100) {
        return std::nullopt;
    }
    return Measured{std::min((whole * 100 + hundredths + 50) / 100, 100U), path + " some avg10"};
}

}  // namespace TAVO::Veltra
