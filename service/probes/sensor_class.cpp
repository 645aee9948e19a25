// SPDX-License-Identifier: Apache-2.0
// Drivers name their sensors freely, so three rules are tried in order. A driver that is known to measure one thing
// decides alone. Of a Super-I/O chip only the digital readings that the processor itself sends are trusted: its analog
// inputs are often connected to nothing, whatever their label says. For all others words of the label count, then words
// of the name. What no rule knows is UNKNOWN and never decides the level.
#include "probes/sensor_class.h"

#include <algorithm>
#include <cctype>

namespace TAVO::Veltra {

namespace {

struct NamePart {
    std::string_view part;  // lower case
    SensorClass sensorClass;
};

constexpr const char* NAMES[SENSOR_CLASSES] = {"cpu",  "gpu",     "soc",      "skin",    "case",   "memory",
                                               "disk", "network", "wireless", "battery", "unknown"};

// Beginnings of driver names that settle the class.
constexpr NamePart DRIVERS[] = {
    {"coretemp", SensorClass::CPU},
    {"k10temp", SensorClass::CPU},
    {"k8temp", SensorClass::CPU},
    {"zenpower", SensorClass::CPU},
    {"via_cputemp", SensorClass::CPU},
    {"x86_pkg_temp", SensorClass::CPU},
    {"b0d4", SensorClass::CPU},
    {"tcpu", SensorClass::CPU},
    {"amdgpu", SensorClass::GPU},
    {"radeon", SensorClass::GPU},
    {"nouveau", SensorClass::GPU},
    {"nvidia", SensorClass::GPU},
    {"i915", SensorClass::GPU},
    {"xe", SensorClass::GPU},
    {"nvme", SensorClass::DISK},
    {"drivetemp", SensorClass::DISK},
    {"jc42", SensorClass::MEMORY},
    {"spd5118", SensorClass::MEMORY},
    {"iwlwifi", SensorClass::WIRELESS},
    {"ath", SensorClass::WIRELESS},
    {"mt76", SensorClass::WIRELESS},
    {"mt79", SensorClass::WIRELESS},
    {"rtw", SensorClass::WIRELESS},
    {"brcmfmac", SensorClass::WIRELESS},
    {"mlx", SensorClass::NETWORK},
    {"bnxt", SensorClass::NETWORK},
    {"ixgbe", SensorClass::NETWORK},
    {"igb", SensorClass::NETWORK},
    {"igc", SensorClass::NETWORK},
    {"i40e", SensorClass::NETWORK},
    {"ice", SensorClass::NETWORK},
    {"e1000", SensorClass::NETWORK},
    {"r8169", SensorClass::NETWORK},
    {"tg3", SensorClass::NETWORK},
    {"atlantic", SensorClass::NETWORK},
    {"enp", SensorClass::NETWORK},
    {"eth", SensorClass::NETWORK},
    {"sfp", SensorClass::NETWORK},
    {"qede", SensorClass::NETWORK},
    {"bat", SensorClass::BATTERY},
    {"bq27", SensorClass::BATTERY},
    {"cmb", SensorClass::BATTERY},
    {"hidpp_battery", SensorClass::BATTERY},
    {"acpitz", SensorClass::CASE},
    {"pch_", SensorClass::CASE},
    {"int3400", SensorClass::UNKNOWN},
};

// Beginnings of the names of Super-I/O chips and board monitors.
// Their inputs are wired differently on each board, and drivers cannot know how.
constexpr std::string_view BOARD_CHIPS[] = {"nct", "it8", "w83", "f71",  "f81", "f75",   "sch5",        "smsc",
                                            "lm7", "lm8", "lm9", "adt7", "emc", "max66", "gigabyte_wmi"};

// Words in any place, the first that fits. A voltage regulator beside the processor is not the processor, and neither
// are the memory of a GPU and the battery of a phone.
constexpr NamePart WORDS[] = {
    {"vrm", SensorClass::UNKNOWN},   {"vreg", SensorClass::UNKNOWN},   {"pmic", SensorClass::UNKNOWN},
    {"charg", SensorClass::UNKNOWN}, {"batt", SensorClass::BATTERY},   {"wlan", SensorClass::WIRELESS},
    {"wifi", SensorClass::WIRELESS}, {"modem", SensorClass::WIRELESS}, {"mdm", SensorClass::WIRELESS},
    {"nvme", SensorClass::DISK},     {"ssd", SensorClass::DISK},       {"hdd", SensorClass::DISK},
    {"disk", SensorClass::DISK},     {"ufs", SensorClass::DISK},       {"emmc", SensorClass::DISK},
    {"ddr", SensorClass::MEMORY},    {"dimm", SensorClass::MEMORY},    {"dram", SensorClass::MEMORY},
    {"mem", SensorClass::MEMORY},    {"skin", SensorClass::SKIN},      {"tskn", SensorClass::SKIN},
    {"shell", SensorClass::SKIN},    {"quiet", SensorClass::SKIN},     {"gpu", SensorClass::GPU},
    {"g3d", SensorClass::GPU},       {"gfx", SensorClass::GPU},        {"mali", SensorClass::GPU},
    {"cpu", SensorClass::CPU},       {"little", SensorClass::CPU},     {"big", SensorClass::CPU},
    {"soc", SensorClass::SOC},       {"bcm2", SensorClass::SOC},       {"imx", SensorClass::SOC},
    {"apu", SensorClass::SOC},       {"aoss", SensorClass::SOC},       {"tsens", SensorClass::SOC},
    {"case", SensorClass::CASE},     {"chassis", SensorClass::CASE},   {"board", SensorClass::CASE},
    {"ambient", SensorClass::CASE},  {"system", SensorClass::CASE},    {"systin", SensorClass::CASE},
    {"chipset", SensorClass::CASE},  {"pch", SensorClass::CASE},
};

std::string Lower(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return lower;
}

bool Contains(const std::string& text, std::string_view part)
{
    return text.find(part) != std::string::npos;
}

std::optional<SensorClass> ClassOfDriver(const std::string& driver)
{
    const auto known = std::find_if(std::begin(DRIVERS), std::end(DRIVERS),
                                    [&driver](const NamePart& row) { return driver.starts_with(row.part); });
    return known == std::end(DRIVERS) ? std::nullopt : std::optional(known->sensorClass);
}

SensorClass ClassOfWords(const std::string& text)
{
    const auto known = std::find_if(std::begin(WORDS), std::end(WORDS),
                                    [&text](const NamePart& row) { return Contains(text, row.part); });
    return known == std::end(WORDS) ? SensorClass::UNKNOWN : known->sensorClass;
}

SensorClass ClassOnBoardChip(const std::string& label)
{
    // Digital interfaces by which the processor itself reports its temperature to the chip.
    if (Contains(label, "peci") || Contains(label, "tsi")) {
        return SensorClass::CPU;
    }
    return Contains(label, "systin") || Contains(label, "board") ? SensorClass::CASE : SensorClass::UNKNOWN;
}

}  // namespace

const ThresholdTable& DefaultThresholds()
{
    static constexpr ThresholdTable TABLE = {{
        {95000, 105000, 10000},  // CPU
        {95000, 105000, 10000},  // GPU
        {85000, 105000, 10000},  // SOC
        {43000, 50000, 3000},    // SKIN: what a hand bears
        {60000, 80000, 5000},    // CASE and all below decide nothing unless a configuration gives them another class
        {85000, 95000, 10000},   // MEMORY
        {70000, 85000, 5000},    // DISK
        {95000, 105000, 10000},  // NETWORK
        {95000, 105000, 10000},  // WIRELESS
        {45000, 60000, 3000},    // BATTERY
        {95000, 105000, 10000},  // UNKNOWN
    }};
    return TABLE;
}

const char* NameOf(SensorClass sensorClass)
{
    return NAMES[static_cast<size_t>(sensorClass)];
}

std::optional<SensorClass> FindSensorClass(std::string_view name)
{
    const auto known = std::find(std::begin(NAMES), std::end(NAMES), name);
    return known == std::end(NAMES) ? std::nullopt : std::optional(static_cast<SensorClass>(known - NAMES));
}

SensorClass ClassOfZone(const std::string& type)
{
    const std::string name = Lower(type);
    return ClassOfDriver(name).value_or(ClassOfWords(name));
}

SensorClass ClassOfInput(const std::string& chip, const std::string& label)
{
    const std::string name = Lower(chip);
    const std::string input = Lower(label);
    if (const std::optional<SensorClass> known = ClassOfDriver(name)) {
        const bool isGpuMemory = *known == SensorClass::GPU && (Contains(input, "mem") || Contains(input, "vram"));
        return isGpuMemory ? SensorClass::MEMORY : *known;
    }
    if (std::any_of(std::begin(BOARD_CHIPS), std::end(BOARD_CHIPS),
                    [&name](std::string_view part) { return name.starts_with(part); })) {
        return ClassOnBoardChip(input);
    }
    const SensorClass byLabel = ClassOfWords(input);
    return byLabel != SensorClass::UNKNOWN ? byLabel : ClassOfWords(name);
}

}  // namespace TAVO::Veltra
