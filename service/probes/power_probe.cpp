// SPDX-License-Identifier: Apache-2.0
// Each function reads its files once and keeps nothing. sysfs gives power in microwatts, current in microamperes and
// voltage in microvolts; a battery has either its power or the other two. The draw is reported only while the battery
// is discharged, because on mains the same files show the charging power. proc/meminfo is searched by key, since its
// lines differ between kernel versions.
#include "probes/power_probe.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

#include "probes/device_sleep.h"

namespace TAVO::Veltra {

namespace {

constexpr int64_t MOST_MICRO = 1000000000;  // volts, amperes or watts: a thousand of them
constexpr int64_t MOST_KIB = int64_t{1} << 40;

std::optional<int64_t> DrawMicrowatts(const RootFiles& files, const std::string& dir)
{
    // Drivers disagree about the sign of what flows out of a battery.
    if (const std::optional<int64_t> power = files.ReadNumber(dir + "power_now", -MOST_MICRO, MOST_MICRO)) {
        return std::abs(*power);
    }
    const std::optional<int64_t> current = files.ReadNumber(dir + "current_now", -MOST_MICRO, MOST_MICRO);
    const std::optional<int64_t> voltage = files.ReadNumber(dir + "voltage_now", 0, MOST_MICRO);
    // Microamperes times millivolts are nanowatts.
    return current && voltage ? std::optional(std::abs(*current) * (*voltage / 1000) / 1000) : std::nullopt;
}

// "MemAvailable:    9000000 kB", somewhere in the text.
std::optional<Measured> MemoryLine(const std::string& text, const std::string& key)
{
    const size_t begin = ('\n' + text).find('\n' + key + ':');
    if (begin == std::string::npos) {
        return std::nullopt;
    }
    const size_t digits = text.find_first_not_of(' ', begin + key.size() + 1);
    int64_t kib = 0;
    if (digits == std::string::npos ||
        std::from_chars(text.data() + digits, text.data() + text.size(), kib).ec != std::errc() || kib < 0 ||
        kib > MOST_KIB) {
        return std::nullopt;
    }
    return Measured{kib * 1024, "proc/meminfo " + key};
}

}  // namespace

BatteryReading ReadBattery(const RootFiles& files)
{
    BatteryReading battery;
    const std::string supplies = "sys/class/power_supply/";
    for (const std::string& name : files.Names(supplies)) {
        const std::string dir = supplies + name + "/";
        // "Device" is the battery of a mouse or a headset. An empty slot for a battery is there, but has none.
        if (files.ReadName(dir + "type") != "Battery" || files.ReadName(dir + "scope") == "Device" ||
            files.ReadNumber(dir + "present", 0, 0)) {
            continue;
        }
        const std::string source = "power_supply " + name + "/";
        if (const std::optional<int64_t> percent = files.ReadNumber(dir + "capacity", 0, 100)) {
            battery.percent = Measured{*percent, source + "capacity"};
        }
        const std::string status = files.ReadName(dir + "status").value_or("Unknown");
        if (status != "Unknown") {
            battery.isCharging = Measured{status == "Charging" ? 1 : 0, source + "status"};
        }
        const std::optional<int64_t> draw = DrawMicrowatts(files, dir);
        // The first battery is reported; a second one is rare, and a sum would have no single source.
        if (draw && status == "Discharging") {
            battery.drawMilliwatts = Measured{*draw / 1000, source + "power_now or current_now"};
        }
        break;
    }
    return battery;
}

std::optional<std::pair<std::string, std::string>> ReadPlatformProfile(const RootFiles& files)
{
    const std::string path = "sys/firmware/acpi/platform_profile";
    const std::optional<std::string> name = files.ReadName(path);
    return name ? std::optional(std::pair(*name, path)) : std::nullopt;
}

std::optional<Measured> ReadFan(const RootFiles& files)
{
    constexpr int64_t MOST_RPM = 100000;
    std::optional<Measured> fastest;
    for (const int number : files.Numbers("sys/class/hwmon", "hwmon")) {
        const std::string chip = "sys/class/hwmon/hwmon" + std::to_string(number) + "/";
        if (IsAsleep(files, chip + "device/")) {
            continue;
        }
        for (const int fan : files.Numbers(chip, "fan", "_input")) {
            const std::string input = "fan" + std::to_string(fan) + "_input";
            const std::optional<int64_t> rpm = files.ReadNumber(chip + input, 0, MOST_RPM);
            if (rpm && (!fastest || *rpm > fastest->value)) {
                fastest = Measured{*rpm, "hwmon " + files.ReadName(chip + "name").value_or("unnamed") + "/" + input};
            }
        }
    }
    return fastest;
}

MemoryReading ReadMemory(const RootFiles& files)
{
    const std::optional<std::string> text = files.ReadText("proc/meminfo");
    return text ? MemoryReading{MemoryLine(*text, "MemAvailable"), MemoryLine(*text, "MemTotal")} : MemoryReading();
}

}  // namespace TAVO::Veltra
