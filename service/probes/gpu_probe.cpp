// SPDX-License-Identifier: Apache-2.0
// Each driver family has files of its own below sys/class/drm/cardN: amdgpu in the device's folder and its hwmon chip,
// i915 beside the card and in gt/gt0, xe in device/tile0/gt0. GPUs of ARM systems are devfreq devices, found below the
// card or, with drivers outside the mainline, only in sys/class/devfreq. The first file of a list that can be read
// gives the value.
#include "probes/gpu_probe.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "probes/amdgpu_metrics.h"
#include "probes/device_sleep.h"

namespace TAVO::Veltra {

namespace {

constexpr int64_t MOST_MHZ = 100000;
constexpr int64_t MOST_BYTES = int64_t{1} << 50;
constexpr int64_t MOST_MICROJOULES = int64_t{1} << 60;
constexpr int64_t MOST_MICROWATTS = 10000000000;
constexpr int64_t HERTZ_PER_MHZ = 1000000;

using Value = std::optional<Measured>;

// One GPU's files.
struct Source {
    const RootFiles& files;
    const std::string dir;    // "sys/class/drm/card0/"
    const std::string shown;  // in the names of sources: "drm card0/"

    // `file` in units of which `divisor` make one of the result's, or of which `factor` are one.
    Value Number(const std::string& file, int64_t most, int64_t divisor = 1, int64_t least = 0) const
    {
        const std::optional<int64_t> number = files.ReadNumber(dir + file, least, most);
        return number ? Value(Measured{*number / divisor, shown + file}) : std::nullopt;
    }
    // A number that may be followed by a unit: "91", "91 %", "91@587000000Hz".
    Value LeadingPercent(const std::string& file) const
    {
        const std::optional<std::string> text = files.ReadText(dir + file);
        if (!text) {
            return std::nullopt;
        }
        int64_t percent = 0;
        const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), percent);
        const size_t rest = static_cast<size_t>(end - text->data());
        const bool isWhole = rest == text->size() || std::string_view(" %@\n").find((*text)[rest]) != std::string::npos;
        return error == std::errc() && isWhole && percent >= 0 && percent <= 100
                   ? Value(Measured{percent, shown + file})
                   : std::nullopt;
    }
};

template <typename Read>
void FillFrom(Value& value, std::initializer_list<const char*> names, Read read)
{
    for (auto name = names.begin(); !value && name != names.end(); ++name) {
        value = read(*name);
    }
}

// The largest number of a list: "315000000 443000000", in Hz; or of the lines "2: 2100Mhz *".
Value LargestMhz(const Source& source, const std::string& file, bool isDpmTable)
{
    const std::optional<std::string> text = source.files.ReadText(source.dir + file);
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    int64_t largest = 0;
    while (!rest.empty()) {
        const size_t skipped = isDpmTable ? rest.find(": ") : rest.find_first_of("0123456789");
        if (skipped == std::string_view::npos) {
            break;
        }
        rest.remove_prefix(skipped + (isDpmTable ? 2 : 0));
        int64_t number = 0;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
        rest.remove_prefix(std::max<size_t>(1, static_cast<size_t>(end - rest.data())));
        if (error == std::errc()) {
            largest = std::max(largest, isDpmTable ? number : number / HERTZ_PER_MHZ);
        }
    }
    return largest > 0 && largest <= MOST_MHZ ? Value(Measured{largest, source.shown + file}) : std::nullopt;
}

void AddHwmon(const Source& card, GpuReading& gpu)
{
    for (const int number : card.files.Numbers(card.dir + "device/hwmon", "hwmon")) {
        const std::string chip = "device/hwmon/hwmon" + std::to_string(number) + "/";
        const auto fill = [&card, &chip](Value& value, const char* file, int64_t most, int64_t divisor) {
            if (!value) {
                value = card.Number(chip + file, most, divisor);
            }
        };
        fill(gpu.frequencyMhz, "freq1_input", MOST_MHZ * HERTZ_PER_MHZ, HERTZ_PER_MHZ);
        fill(gpu.memoryFrequencyMhz, "freq2_input", MOST_MHZ * HERTZ_PER_MHZ, HERTZ_PER_MHZ);
        fill(gpu.temperatureCelsius, "temp1_input", 126000, 1000);
        // The average first: the momentary power of a GPU changes many times a second.
        fill(gpu.powerMilliwatts, "power1_average", MOST_MICROWATTS, 1000);
        fill(gpu.powerMilliwatts, "power1_input", MOST_MICROWATTS, 1000);
        fill(gpu.energyMillijoules, "energy1_input", MOST_MICROJOULES, 1000);
        fill(gpu.fanPercent, "pwm1", 255, 1);
        if (gpu.fanPercent && gpu.fanPercent->source == card.shown + chip + "pwm1") {
            // pwm1 counts from 0 to 255.
            gpu.fanPercent->value = gpu.fanPercent->value * 100 / 255;
        }
    }
}

void AddMetrics(const Source& card, GpuReading& gpu)
{
    const std::optional<std::string> bytes = card.files.ReadText(card.dir + "device/gpu_metrics");
    const AmdgpuMetrics metrics = bytes ? ParseAmdgpuMetrics(*bytes) : AmdgpuMetrics();
    const auto fill = [&card](Value& value, const std::optional<int64_t>& metric) {
        if (!value && metric) {
            value = Measured{*metric, card.shown + "device/gpu_metrics"};
        }
    };
    fill(gpu.loadPercent, metrics.loadPercent);
    fill(gpu.memoryLoadPercent, metrics.memoryLoadPercent);
    fill(gpu.frequencyMhz, metrics.graphicsClockMhz);
    fill(gpu.memoryFrequencyMhz, metrics.memoryClockMhz);
    fill(gpu.temperatureCelsius, metrics.temperatureCelsius);
    fill(gpu.powerMilliwatts, metrics.powerMilliwatts);
}

void AddDevfreq(const Source& device, GpuReading& gpu)
{
    const auto percent = [&device](const char* file) { return device.LeadingPercent(file); };
    FillFrom(gpu.loadPercent,
             {"load", "gpu_load", "utilization", "device/gpu_busy_percentage", "device/gpu_busy_percent",
              "device/utilization"},
             percent);
    const auto mhz = [&device](const char* file) {
        return device.Number(file, MOST_MHZ * HERTZ_PER_MHZ, HERTZ_PER_MHZ);
    };
    FillFrom(gpu.frequencyMhz, {"cur_freq"}, mhz);
    FillFrom(gpu.frequencyCapMhz, {"max_freq"}, mhz);
    if (!gpu.frequencyMaxMhz) {
        gpu.frequencyMaxMhz = LargestMhz(device, "available_frequencies", false);
    }
}

// The value of `key` in the device's description, which has lines such as "PCI_SLOT_NAME=0000:03:00.0".
std::string Described(const RootFiles& files, const std::string& device, const std::string& key)
{
    const std::string text = '\n' + files.ReadText(device + "uevent").value_or("");
    const size_t begin = text.find('\n' + key + '=');
    if (begin == std::string::npos) {
        return {};
    }
    const size_t value = begin + key.size() + 2;
    return text.substr(value, text.find('\n', value) - value).substr(0, RootFiles::MAX_NAME_BYTES);
}

GpuReading ReadCard(const RootFiles& files, const std::string& name, bool isAsleep)
{
    const Source card{files, "sys/class/drm/" + name + "/", "drm " + name + "/"};
    GpuReading gpu;
    gpu.name = name;
    gpu.slot = Described(files, card.dir + "device/", "PCI_SLOT_NAME");
    // Those of the driver "nvidia" are counted by their maker's library, and would appear twice.
    gpu.canRender = Described(files, card.dir + "device/", "DRIVER") != "nvidia" &&
                    !files.Numbers(card.dir + "device/drm", "renderD").empty();
    if (isAsleep) {
        return gpu;
    }
    gpu.loadPercent = card.LeadingPercent("device/gpu_busy_percent");
    gpu.memoryLoadPercent = card.LeadingPercent("device/mem_busy_percent");
    gpu.memoryUsedBytes = card.Number("device/mem_info_vram_used", MOST_BYTES);
    gpu.memoryTotalBytes = card.Number("device/mem_info_vram_total", MOST_BYTES, 1, 1);
    const auto mhz = [&card](const char* file) { return card.Number(file, MOST_MHZ); };
    // The actual clock before the requested one; it is 0 while the GPU sleeps.
    FillFrom(gpu.frequencyMhz,
             {"gt_act_freq_mhz", "gt_cur_freq_mhz", "gt/gt0/rps_act_freq_mhz", "device/tile0/gt0/freq0/act_freq",
              "device/tile0/gt0/freq0/cur_freq"},
             mhz);
    FillFrom(gpu.frequencyCapMhz, {"gt_max_freq_mhz", "gt/gt0/rps_max_freq_mhz", "device/tile0/gt0/freq0/max_freq"},
             mhz);
    FillFrom(gpu.frequencyMaxMhz, {"gt_RP0_freq_mhz", "gt/gt0/rps_RP0_freq_mhz", "device/tile0/gt0/freq0/rp0_freq"},
             mhz);
    if (!gpu.frequencyMaxMhz) {
        gpu.frequencyMaxMhz = LargestMhz(card, "device/pp_dpm_sclk", true);
    }
    FillFrom(gpu.idleMilliseconds,
             {"gt/gt0/rc6_residency_ms", "power/rc6_residency_ms", "device/tile0/gt0/gtidle/idle_residency_ms"},
             [&card](const char* file) { return card.Number(file, INT64_MAX); });
    AddHwmon(card, gpu);
    AddMetrics(card, gpu);
    return gpu;
}

bool IsGpu(const RootFiles& files, const std::string& devfreq)
{
    const auto has = [&devfreq](const char* part) { return devfreq.find(part) != std::string::npos; };
    if (has("bw") || has("bus")) {  // the memory path of a GPU
        return false;
    }
    return has("gpu") || has("mali") || has("kgsl") ||
           Described(files, "sys/class/devfreq/" + devfreq + "/device/", "OF_NAME") == "gpu";
}

}  // namespace

bool GpuReading::IsEmpty() const
{
    return !loadPercent && !memoryLoadPercent && !frequencyMhz && !frequencyCapMhz && !frequencyMaxMhz &&
           !memoryFrequencyMhz && !memoryUsedBytes && !memoryTotalBytes && !temperatureCelsius && !powerMilliwatts &&
           !energyMillijoules && !fanPercent && !idleMilliseconds;
}

std::vector<GpuReading> ReadGpus(const RootFiles& files)
{
    std::vector<GpuReading> gpus;
    std::vector<std::string> seen;
    for (const int number : files.Numbers("sys/class/drm", "card")) {
        const std::string name = "card" + std::to_string(number);
        const bool isAsleep = IsAsleep(files, "sys/class/drm/" + name + "/device/");
        GpuReading gpu = ReadCard(files, name, isAsleep);
        for (const std::string& devfreq : files.Names("sys/class/drm/" + name + "/device/devfreq")) {
            seen.push_back(devfreq);
            if (!isAsleep) {
                const std::string dir = "device/devfreq/" + devfreq + "/";
                AddDevfreq({files, "sys/class/drm/" + name + "/" + dir, "drm " + name + "/" + dir}, gpu);
            }
        }
        gpus.push_back(std::move(gpu));
    }
    for (const std::string& devfreq : files.Names("sys/class/devfreq")) {
        // A GPU may appear as a card and in devfreq; it is one GPU.
        if (IsGpu(files, devfreq) && std::find(seen.begin(), seen.end(), devfreq) == seen.end()) {
            GpuReading gpu;
            gpu.name = devfreq;
            gpu.canRender = true;
            if (!IsAsleep(files, "sys/class/devfreq/" + devfreq + "/device/")) {
                AddDevfreq({files, "sys/class/devfreq/" + devfreq + "/", "devfreq " + devfreq + "/"}, gpu);
            }
            gpus.push_back(std::move(gpu));
        }
    }
    std::erase_if(gpus, [](const GpuReading& gpu) { return gpu.IsEmpty() && !gpu.canRender; });
    return gpus;
}

const GpuReading* Busiest(const std::vector<GpuReading>& gpus, const std::string& before)
{
    // In half percents. The previous GPU gets an odd advantage, so it never ties with another one.
    const auto load = [&before](const GpuReading& gpu) {
        const int64_t advantage = gpu.name == before ? 2 * BUSIER_BY - 1 : 0;
        return gpu.loadPercent ? 2 * gpu.loadPercent->value + advantage : -1;
    };
    const GpuReading* busiest = nullptr;
    for (const GpuReading& gpu : gpus) {
        if (!gpu.IsEmpty() && (busiest == nullptr || load(gpu) > load(*busiest))) {
            busiest = &gpu;
        }
    }
    return busiest;
}

void GpuIdleTracker::AddLoads(std::vector<GpuReading>& gpus, TimePoint now)
{
    constexpr std::chrono::milliseconds SHORTEST{50};
    std::map<std::string, Past> past;
    for (GpuReading& gpu : gpus) {
        // A driver that reports a load has the better figure.
        if (gpu.loadPercent || !gpu.idleMilliseconds) {
            continue;
        }
        const auto before = past_.find(gpu.name);
        Past& current = past[gpu.name];
        current = {now, gpu.idleMilliseconds->value, std::nullopt};
        // Too close: milliseconds of idle time are too coarse for a share of it. The earlier result holds.
        if (before != past_.end() && now - before->second.at < SHORTEST) {
            current = before->second;
        } else if (before != past_.end() && gpu.idleMilliseconds->value >= before->second.idleMilliseconds) {
            const double elapsed = std::chrono::duration<double, std::milli>(now - before->second.at).count();
            const auto idle = static_cast<double>(gpu.idleMilliseconds->value - before->second.idleMilliseconds);
            current.percent = std::clamp<int64_t>(static_cast<int64_t>(100.5 - 100 * idle / elapsed), 0, 100);
        }
        if (current.percent) {
            gpu.loadPercent = Measured{*current.percent, gpu.idleMilliseconds->source};
        }
    }
    past_ = std::move(past);
}

int32_t LoadLevel(int64_t percent)
{
    int32_t level = 0;
    for (const int64_t bound : {20, 40, 60, 80, 95}) {
        level += percent >= bound ? 1 : 0;
    }
    return level;
}

}  // namespace TAVO::Veltra
