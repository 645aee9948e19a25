// SPDX-License-Identifier: Apache-2.0
// Every maker's driver reports the load of its GPU in its own way, and the part of it that one game causes.
#include "probes/gpu_probe.h"

#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "probes/amdgpu_metrics.h"
#include "probes/drm_usage.h"
#include "probes/machine_counters.h"
#include "probes/nvml_counters.h"
#include "service/fake_clock.h"
#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using TimePoint = GpuIdleTracker::TimePoint;

// The parts of "a;b;c".
std::vector<std::string> Split(const std::string& text, char separator = ';')
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

// Files as "name=content;name=content".
void WriteAll(const ScratchDir& root, const std::string& dir, const std::string& files)
{
    for (const std::string& file : Split(files)) {
        const size_t sign = file.find('=');
        root.Write(dir + file.substr(0, sign), file.substr(sign + 1) + "\n");
    }
}

template <typename Value>
std::string Shown(const std::optional<Value>& value)
{
    if constexpr (std::is_same_v<Value, Measured>) {
        return value ? std::to_string(value->value) : "-";
    } else {
        return value ? std::to_string(*value) : "-";
    }
}

// The second reading comes one second after the first and finds the files of `later` changed. What is expected: load in
// percent, then the frequency, its cap and its maximum in MHz.
TEST(GpuProbe, EachDriverReportsLoadClockAndCap)
{
    const std::string card = "sys/class/drm/card0/";
    const std::string arm = "sys/class/devfreq/fb000000.gpu/";
    const struct {
        const char* what;
        std::string dir;
        const char* first;
        const char* later;
        const char* expected;
    } rows[] = {
        {"amdgpu", card, "device/gpu_busy_percent=97;device/pp_dpm_sclk=0: 500Mhz\n1: 2600Mhz *", "", "97 - - 2600"},
        {"i915", card, "gt_act_freq_mhz=650;gt_max_freq_mhz=1300;gt_RP0_freq_mhz=1450;gt/gt0/rc6_residency_ms=5000",
         "gt/gt0/rc6_residency_ms=5250", "75 650 1300 1450"},
        {"i915, awake all the time", card, "power/rc6_residency_ms=7", "", "100 - - -"},
        {"xe", card + "device/tile0/gt0/", "freq0/act_freq=1800;freq0/max_freq=2050;gtidle/idle_residency_ms=100",
         "gtidle/idle_residency_ms=1100", "0 1800 2050 -"},
        {"restarted driver", card, "power/rc6_residency_ms=7000", "power/rc6_residency_ms=1", "- - - -"},
        {"devfreq with load and clock", arm,
         "load=91@800000000Hz;cur_freq=800000000;max_freq=850000000;available_frequencies=200000000 950000000 ", "",
         "91 800 850 950"},
        {"devfreq below the card", card, "device/devfreq/fb000000.gpu/load=33@1Hz", "", "33 - - -"},
        {"percent with a unit", "sys/class/devfreq/kgsl-3d0/", "device/gpu_busy_percentage=91 %", "", "91 - - -"},
        {"no number", arm, "load=busy;cur_freq=1", "", "- 0 - -"},
        {"more than all", arm, "load=101;cur_freq=1", "", "- 0 - -"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const ScratchDir root;
        const RootFiles files(root.Path());
        GpuIdleTracker tracker;
        WriteAll(root, row.dir, row.first);
        std::vector<GpuReading> gpus = ReadGpus(files);
        tracker.AddLoads(gpus, TimePoint());
        WriteAll(root, row.dir, row.later);
        gpus = ReadGpus(files);
        tracker.AddLoads(gpus, TimePoint() + milliseconds(1000));
        ASSERT_EQ(gpus.size(), 1U);
        EXPECT_EQ(Shown(gpus[0].loadPercent) + " " + Shown(gpus[0].frequencyMhz) + " " +
                      Shown(gpus[0].frequencyCapMhz) + " " + Shown(gpus[0].frequencyMaxMhz),
                  row.expected);
    }
}

TEST(GpuProbe, OtherDevicesAreNoGpus)
{
    const ScratchDir root;
    root.Write("sys/class/drm/card0/device/uevent", "DRIVER=simpledrm\n");
    root.Write("sys/class/drm/card1/device/gpu_busy_percent", "50\n");
    root.Write("sys/class/drm/card1/device/power/runtime_status", "suspended\n");
    root.Write("sys/class/drm/card1/device/devfreq/fb000000.gpu/load", "55\n");
    root.Write("sys/class/devfreq/fb000000.gpu/load", "55\n");
    root.Write("sys/class/devfreq/fc000000.gpu/load", "55\n");
    root.Write("sys/class/devfreq/fc000000.gpu/device/power/runtime_status", "suspended\n");
    root.Write("sys/class/devfreq/soc:qcom,gpubw/cur_freq", "1720000000\n");
    root.Write("sys/class/devfreq/1d84000.ufshc/cur_freq", "300000000\n");
    root.Write("sys/class/drm/card2/device/uevent", "DRIVER=nvidia\n");
    root.Write("sys/class/drm/card2/device/drm/renderD128/dev", "226:128\n");
    const std::vector<GpuReading> gpus = ReadGpus(RootFiles(root.Path()));
    ASSERT_EQ(gpus.size(), 1U) << "a display, one that sleeps, one of a library, one more that sleeps, a bus, a disk";
    EXPECT_EQ(gpus[0].name, "fc000000.gpu");
    EXPECT_EQ(Busiest(gpus), nullptr) << "its values are not read";
}

TEST(GpuProbe, GpusWithAlmostTheSameLoadDoNotTakeTurns)
{
    std::vector<GpuReading> gpus(2);
    gpus[0].name = "card0";
    gpus[1].name = "card1";
    std::string described;
    const std::tuple<int, int, const char*> steps[] = {{5, 6, "card1"},  {6, 5, "card1"},  {14, 5, "card1"},
                                                       {15, 5, "card0"}, {5, 14, "card0"}, {5, 15, "card1"}};
    for (const auto& [first, second, expected] : steps) {
        gpus[0].loadPercent = Measured{first, ""};
        gpus[1].loadPercent = Measured{second, ""};
        described = Busiest(gpus, described)->name;
        EXPECT_EQ(described, expected) << first << " " << second;
    }
}

// The descriptors of a process as "client|key:value|key:value;client|...", the keys without "drm-".
void WriteDescriptors(const ScratchDir& root, const std::string& descriptors)
{
    int fd = 3;
    for (const std::string& descriptor : Split(descriptors)) {
        const std::vector<std::string> parts = Split(descriptor, '|');
        std::string text = "pos:\t0\ndrm-driver:\txe\ndrm-client-id:\t" + parts[0] + "\n";
        for (size_t i = 1; i < parts.size(); ++i) {
            text += "drm-" + parts[i].substr(0, parts[i].find(':')) + ":\t" + parts[i].substr(parts[i].find(':') + 1) +
                    "\n";
        }
        root.Write("proc/77/fdinfo/" + std::to_string(fd++), text);
    }
}

// What the descriptors of one process are now and a microsecond later, and the percent and the bytes that follow.
TEST(DrmUsage, IsTheBusiestEngineSinceTheReadingBefore)
{
    const struct {
        const char* what;
        const char* first;
        const char* later;
        const char* expected;
    } rows[] = {
        {"two engines", "1|engine-gfx:100 ns|engine-copy:0 ns", "1|engine-gfx:500 ns|engine-copy:10 ns", "40 -"},
        {"one client twice", "1|engine-gfx:0 ns;1|engine-gfx:0 ns", "1|engine-gfx:300 ns;1|engine-gfx:300 ns", "30 -"},
        {"two clients", "1|engine-gfx:0 ns;2|engine-gfx:0 ns", "1|engine-gfx:300 ns;2|engine-gfx:300 ns", "60 -"},
        {"two engines of a kind", "1|engine-gfx:0 ns|engine-capacity-gfx:2",
         "1|engine-gfx:1000 ns|engine-capacity-gfx:2", "50 -"},
        {"cycles of all", "1|cycles-rcs:10|total-cycles-rcs:1000", "1|cycles-rcs:260|total-cycles-rcs:2000", "25 -"},
        {"cycles by the clock", "1|cycles-rcs:0|maxfreq-rcs:800000000 Hz", "1|cycles-rcs:400|maxfreq-rcs:800000000 Hz",
         "50 -"},
        {"closed meanwhile", "1|engine-gfx:900 ns", "1|engine-gfx:5 ns", "- -"},
        {"memory", "", "1|total-vram0:8 KiB|total-gtt:1 MiB|memory-vram:4 KiB", "- 1056768"},
        {"memory of older drivers", "", "1|memory-vram:4 KiB", "- 4096"},
        {"no number", "1|engine-gfx:100 ns", "1|engine-gfx:busy|total-vram:lots", "- -"},
        {"a sum beyond all bounds", "1|engine-gfx:0 ns",
         "1|engine-gfx:0 ns|total-vram:4611686018427387904|total-gtt:4611686018427387904", "0 -"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const ScratchDir root;
        const RootFiles files(root.Path());
        DrmLoadTracker tracker;
        root.Write("proc/77/fdinfo/2", "pos:\t0\n");
        WriteDescriptors(root, row.first);
        tracker.Update(77, ReadDrmUsage(files, 77), TimePoint() + nanoseconds(1000));
        WriteDescriptors(root, row.later);
        const DrmLoadTracker::Uses uses = tracker.Update(77, ReadDrmUsage(files, 77), TimePoint() + nanoseconds(2000));
        ASSERT_EQ(uses.size(), 1U);
        const DrmLoadTracker::Use& use = uses.begin()->second;
        EXPECT_EQ(Shown(use.loadPercent) + " " + Shown(use.memoryBytes), row.expected);
        EXPECT_TRUE(ReadDrmUsage(files, 78).empty());
    }
    const ScratchDir root;
    std::string many;
    for (int client = 0; client < 300; ++client) {
        many += std::to_string(client) + "|total-vram:4 KiB;";
    }
    WriteDescriptors(root, many);
    EXPECT_EQ(ReadDrmUsage(RootFiles(root.Path()), 77)["xe"].memoryBytes, 300 * 4096U) << "also of many descriptors";
}

// A file of `bytes` bytes in which only these 16-bit fields are measured.
std::string Metrics(size_t bytes, int format, int revision, const std::map<size_t, uint16_t>& fields)
{
    std::string file(bytes, '\xff');
    const auto set = [&file](size_t offset, unsigned value) {
        file[offset] = static_cast<char>(value & 0xff);
        file[offset + 1] = static_cast<char>(value >> 8);
    };
    set(0, static_cast<unsigned>(bytes));
    file[2] = static_cast<char>(format);
    file[3] = static_cast<char>(revision);
    for (const auto& [offset, value] : fields) {
        set(offset, value);
    }
    return file;
}

// Load, memory load, both clocks, degrees and milliwatts.
TEST(AmdgpuMetrics, OffsetsDependOnTheRevision)
{
    const struct {
        const char* what;
        std::string file;
        const char* expected;
    } rows[] = {
        {"1.0", Metrics(80, 1, 0, {{16, 61}, {28, 97}, {30, 40}, {34, 212}, {54, 2450}, {58, 1250}}),
         "97 40 2450 1250 61 212000"},
        {"1.3", Metrics(120, 1, 3, {{4, 61}, {16, 97}, {18, 40}, {22, 212}, {54, 2450}, {58, 1250}}),
         "97 40 2450 1250 61 212000"},
        {"2.0", Metrics(120, 2, 0, {{16, 7130}, {40, 9100}, {44, 14500}, {80, 1600}, {84, 800}}),
         "91 - 1600 800 71 14500"},
        {"2.3", Metrics(152, 2, 3, {{4, 7130}, {28, 91}, {40, 14500}, {76, 1600}, {80, 800}}),
         "91 - 1600 800 71 14500"},
        {"3.0", Metrics(264, 3, 0, {{4, 7130}, {42, 55}, {112, 14500}, {114, 0}, {174, 1600}, {186, 800}}),
         "55 - 1600 800 71 14500"},
        {"not measured", Metrics(120, 1, 3, {}), "- - - - - -"},
        {"of the future", Metrics(120, 1, 4, {{16, 97}}), "- - - - - -"},
        {"other format", Metrics(120, 4, 0, {{16, 97}}), "- - - - - -"},
        {"cut off", Metrics(120, 1, 3, {{16, 97}}).substr(0, 59), "- - - - - -"},
        {"header only", "\4", "- - - - - -"},
    };
    for (const auto& row : rows) {
        const AmdgpuMetrics metrics = ParseAmdgpuMetrics(row.file);
        EXPECT_EQ(Shown(metrics.loadPercent) + " " + Shown(metrics.memoryLoadPercent) + " " +
                      Shown(metrics.graphicsClockMhz) + " " + Shown(metrics.memoryClockMhz) + " " +
                      Shown(metrics.temperatureCelsius) + " " + Shown(metrics.powerMilliwatts),
                  row.expected)
            << row.what;
    }
}

// The counters that a sample has, after the number of its GPU: "1: gpuLoadPercent=97 fanPercent=40".
std::string CountersOf(const GpuPerfInfo& sample)
{
    std::string counters = std::to_string(sample.int1) + ":";
    for (size_t i = 0; i < GPU_COUNTER_NAMES.size(); ++i) {
        if (const auto value = GpuCounterOf(sample, static_cast<GpuCounter>(i))) {
            counters += std::string(" ") + GPU_COUNTER_NAMES[i] + "=" + std::to_string(*value);
        }
    }
    return counters;
}

TEST(MachineCounters, RecordedMachinesGiveOneSampleOfEachGpu)
{
    const struct {
        const char* machine;
        std::vector<std::string> samples;
    } rows[] = {
        {"desktop",
         {"0: gpuLoadPercent=3 memoryLoadPercent=0 temperatureCelsius=41",
          "1: gpuLoadPercent=97 memoryLoadPercent=41 memoryUsedBytes=9663676416 memoryTotalBytes=17163091968 "
          "graphicsClockMhz=2450 memoryClockMhz=1250 temperatureCelsius=59 powerMilliwatts=212000"}},
        {"laptop",
         {"0: graphicsClockMhz=650",
          "1: gpuLoadPercent=37 memoryLoadPercent=12 memoryUsedBytes=1073741824 memoryTotalBytes=4294967296 "
          "graphicsClockMhz=1200 memoryClockMhz=875 temperatureCelsius=61 powerMilliwatts=35000 fanPercent=40"}},
        {"phone", {"0: gpuLoadPercent=91 graphicsClockMhz=587"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.machine);
        const auto counters = MachineCounters::Open(std::string(VELTRA_TEST_ROOTS "/") + row.machine);
        ASSERT_NE(counters, nullptr);
        int64_t number = 7;
        std::vector<std::string> samples;
        for (const GpuPerfInfo& sample : counters->Batch(0, {7, 0})) {
            samples.push_back(CountersOf(sample));
            EXPECT_EQ(sample.long2, number++);
        }
        EXPECT_EQ(samples, row.samples);
    }
    EXPECT_EQ(MachineCounters::Open(VELTRA_TEST_ROOTS "/server"), nullptr) << "a display is no GPU";
}

// The driver reports only the use of each process. The first GPU sleeps at first and keeps its number.
TEST(MachineCounters, SamplesHoldTheSubscribersOwnUseIfTheDriverReportsOnlyThat)
{
    const ScratchDir root;
    const FakeClock clock;
    root.Write("sys/class/drm/card0/device/drm/renderD128/dev", "226:128\n");
    root.Write("sys/class/drm/card0/device/uevent", "PCI_SLOT_NAME=0000:03:00.0\n");
    root.Write("sys/class/drm/card0/device/gpu_busy_percent", "37\n");
    root.Write("sys/class/drm/card0/device/power/runtime_status", "suspended\n");
    root.Write("sys/class/drm/card1/device/drm/renderD129/dev", "226:129\n");
    root.Write("proc/77/fdinfo/4", "drm-driver:\txe\ndrm-pdev:\t0000:00:02.0\ndrm-total-vram:\t8 KiB\n");
    const auto use = [&root](const std::string& busy) {
        root.Write("proc/77/fdinfo/5",
                   "drm-driver:\tpanthor\ndrm-client-id:\t1\ndrm-total-memory:\t4 KiB\n"
                   "drm-engine-panthor:\t" +
                       busy + " ns\n");
    };
    use("0");
    const auto counters = MachineCounters::Open(root.Path(), clock.Now());
    ASSERT_NE(counters, nullptr);
    counters->Batch(0, {0, 77});
    use("400000000");
    clock.Advance(milliseconds(1000));
    root.Write("sys/class/drm/card1/device/devfreq/fb000000.gpu/cur_freq", "800000000\n");
    std::vector<GpuPerfInfo> batch = counters->Batch(1, {1, 77});
    ASSERT_EQ(batch.size(), 1U);
    EXPECT_EQ(CountersOf(batch[0]), "1: gpuLoadPercent=40 memoryUsedBytes=4096 graphicsClockMhz=800");
    root.Write("sys/class/drm/card0/device/power/runtime_status", "active\n");
    batch = counters->Batch(2, {2, 77});
    ASSERT_EQ(batch.size(), 2U);
    EXPECT_EQ(CountersOf(batch[0]), "0: gpuLoadPercent=37");
}

TEST(NvmlCounters, GpusGiveWhatTheirDriverReports)
{
    const auto counters = OpenNvmlCounters(FAKE_NVML);
    ASSERT_NE(counters, nullptr);
    EXPECT_EQ(counters->Count(), 3) << "numbers may have gaps";
    std::vector<std::string> samples;
    for (const GpuPerfInfo& sample : counters->Batch(0, {7, 0})) {
        samples.push_back(std::to_string(sample.long2) + " of " + CountersOf(sample));
    }
    EXPECT_EQ(samples, (std::vector<std::string>{
                           "7 of 0: gpuLoadPercent=97 memoryLoadPercent=41 memoryUsedBytes=8589934592 "
                           "memoryTotalBytes=17179869184 energyMillijoules=5 graphicsClockMhz=1000 smClockMhz=1001 "
                           "memoryClockMhz=1002 temperatureCelsius=60 powerMilliwatts=212000 fanPercent=40",
                           "8 of 2: temperatureCelsius=62"}));
    EXPECT_EQ(OpenNvmlCounters("/nonexistent/library.so"), nullptr);
}

TEST(JoinedCounters, NumbersGpusOn)
{
    const std::string root = VELTRA_TEST_ROOTS "/desktop";
    const auto joined = JoinedCounters::Join(MachineCounters::Open(root), MachineCounters::Open(root));
    const std::vector<GpuPerfInfo> batch = joined->Batch(0, {10, 0});
    ASSERT_EQ(batch.size(), 4U);
    for (int32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(batch[static_cast<size_t>(i)].int1, i);
        EXPECT_EQ(batch[static_cast<size_t>(i)].long2, 10 + i);
    }
    EXPECT_EQ(JoinedCounters::Join(nullptr, nullptr), nullptr);
}

}  // namespace
}  // namespace TAVO::Veltra
