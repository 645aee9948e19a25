// SPDX-License-Identifier: Apache-2.0
// Every maker's driver tells the load of its GPU in its own way, and a game's own part of it is told apart.
#include "gpu_probe.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "amdgpu_metrics.h"
#include "drm_usage.h"
#include "machine_counters.h"
#include "service/fake_clock.h"
#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

using Files = std::vector<std::pair<std::string, std::string>>;
using std::chrono::milliseconds;
using TimePoint = GpuIdleTracker::TimePoint;

void WriteAll(const ScratchDir& root, const std::string& dir, const Files& files)
{
    for (const auto& [name, text] : files) {
        root.Write(dir + name, text);
    }
}

int64_t ValueOf(const std::optional<Measured>& measured)
{
    return measured ? measured->value : -1;
}

// The second reading comes one second after the first and finds the files of `later` changed.
TEST(GpuProbe, EachDriverTellsLoadClockAndCap)
{
    const std::string card = "sys/class/drm/card0/";
    const std::string arm = "sys/class/devfreq/fb000000.gpu/";
    const struct {
        const char* what;
        std::string dir;
        Files first;
        Files later;
        int64_t load;
        int64_t mhz;
        int64_t cap;
        int64_t max;
    } rows[] = {
        {"amdgpu",
         card,
         {{"device/gpu_busy_percent", "97\n"}, {"device/pp_dpm_sclk", "0: 500Mhz\n1: 2600Mhz *\n"}},
         {},
         97,
         -1,
         -1,
         2600},
        {"i915",
         card,
         {{"gt_act_freq_mhz", "650\n"},
          {"gt_max_freq_mhz", "1300\n"},
          {"gt_RP0_freq_mhz", "1450\n"},
          {"gt/gt0/rc6_residency_ms", "5000\n"}},
         {{"gt/gt0/rc6_residency_ms", "5250\n"}},
         75,
         650,
         1300,
         1450},
        {"i915, awake all the time", card, {{"power/rc6_residency_ms", "7\n"}}, {}, 100, -1, -1, -1},
        {"xe",
         card,
         {{"device/tile0/gt0/freq0/act_freq", "1800\n"},
          {"device/tile0/gt0/freq0/max_freq", "2050\n"},
          {"device/tile0/gt0/gtidle/idle_residency_ms", "100\n"}},
         {{"device/tile0/gt0/gtidle/idle_residency_ms", "1100\n"}},
         0,
         1800,
         2050,
         -1},
        {"restarted driver",
         card,
         {{"power/rc6_residency_ms", "7000\n"}},
         {{"power/rc6_residency_ms", "1\n"}},
         -1,
         -1,
         -1,
         -1},
        {"devfreq with load and clock",
         arm,
         {{"load", "91@800000000Hz\n"},
          {"cur_freq", "800000000\n"},
          {"max_freq", "850000000\n"},
          {"available_frequencies", "200000000 800000000 950000000 \n"}},
         {},
         91,
         800,
         850,
         950},
        {"devfreq below the card", card, {{"device/devfreq/fb000000.gpu/load", "33@1Hz\n"}}, {}, 33, -1, -1, -1},
        {"percent with a unit",
         "sys/class/devfreq/3d00000.qcom,kgsl-3d0/",
         {{"device/gpu_busy_percentage", "91 %\n"}},
         {},
         91,
         -1,
         -1,
         -1},
        {"no number", arm, {{"load", "busy\n"}, {"cur_freq", "1\n"}}, {}, -1, 0, -1, -1},
        {"more than all", arm, {{"load", "101\n"}, {"cur_freq", "1\n"}}, {}, -1, 0, -1, -1},
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
        EXPECT_EQ(ValueOf(gpus[0].loadPercent), row.load);
        EXPECT_EQ(ValueOf(gpus[0].frequencyMhz), row.mhz);
        EXPECT_EQ(ValueOf(gpus[0].frequencyCapMhz), row.cap);
        EXPECT_EQ(ValueOf(gpus[0].frequencyMaxMhz), row.max);
    }
}

TEST(GpuProbe, OtherDevicesAreNoGpus)
{
    const ScratchDir root;
    root.Write("sys/class/drm/card0/device/uevent", "DRIVER=simpledrm\n");
    root.Write("sys/class/drm/card1/device/gpu_busy_percent", "50\n");
    root.Write("sys/class/drm/card1/device/power/runtime_status", "suspended\n");
    root.Write("sys/class/devfreq/soc:qcom,gpubw/cur_freq", "1720000000\n");
    root.Write("sys/class/devfreq/1d84000.ufshc/cur_freq", "300000000\n");
    EXPECT_TRUE(ReadGpus(RootFiles(root.Path())).empty()) << "a display, one that sleeps, a bus, a disk";
}

// What the descriptors of one process say now and a second later, and what that is in percent.
TEST(DrmUsage, IsTheBusiestEngineSinceTheReadingBefore)
{
    const std::string pdev = "drm-driver:\txe\ndrm-pdev:\t0000:03:00.0\ndrm-client-id:\t";
    const struct {
        const char* what;
        Files first;
        Files later;
        std::optional<int64_t> percent;
        std::optional<int64_t> memory;
    } rows[] = {
        {"time of two engines",
         {{"3", pdev + "1\ndrm-engine-gfx:\t100 ns\ndrm-engine-copy:\t0 ns\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t400000100 ns\ndrm-engine-copy:\t10 ns\n"}},
         40,
         {}},
        {"the same client twice",
         {{"3", pdev + "1\ndrm-engine-gfx:\t0 ns\n"}, {"4", pdev + "1\ndrm-engine-gfx:\t0 ns\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t300000000 ns\n"}, {"4", pdev + "1\ndrm-engine-gfx:\t300000000 ns\n"}},
         30,
         {}},
        {"two clients",
         {{"3", pdev + "1\ndrm-engine-gfx:\t0 ns\n"}, {"4", pdev + "2\ndrm-engine-gfx:\t0 ns\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t300000000 ns\n"}, {"4", pdev + "2\ndrm-engine-gfx:\t300000000 ns\n"}},
         60,
         {}},
        {"two engines of a kind",
         {{"3", pdev + "1\ndrm-engine-gfx:\t0 ns\ndrm-engine-capacity-gfx:\t2\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t1000000000 ns\ndrm-engine-capacity-gfx:\t2\n"}},
         50,
         {}},
        {"cycles of all cycles",
         {{"3", pdev + "1\ndrm-cycles-rcs:\t10\ndrm-total-cycles-rcs:\t1000\n"}},
         {{"3", pdev + "1\ndrm-cycles-rcs:\t260\ndrm-total-cycles-rcs:\t2000\n"}},
         25,
         {}},
        {"cycles by the clock",
         {{"3", "drm-driver:\tpanfrost\ndrm-cycles-fragment:\t0\ndrm-maxfreq-fragment:\t800 Hz\n"}},
         {{"3", "drm-driver:\tpanfrost\ndrm-cycles-fragment:\t400\ndrm-maxfreq-fragment:\t800 Hz\n"}},
         50,
         {}},
        {"closed meanwhile",
         {{"3", pdev + "1\ndrm-engine-gfx:\t900 ns\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t5 ns\n"}},
         {},
         {}},
        {"memory",
         {},
         {{"3", pdev + "1\ndrm-total-vram0:\t8 KiB\ndrm-total-gtt:\t1 MiB\ndrm-memory-vram:\t4 KiB\n"}},
         {},
         1056768},
        {"memory of older drivers", {}, {{"3", pdev + "1\ndrm-memory-vram:\t4 KiB\n"}}, {}, 4096},
        {"no number", {}, {{"3", pdev + "1\ndrm-total-vram:\tlots\n"}}, {}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const ScratchDir root;
        const RootFiles files(root.Path());
        DrmLoadTracker tracker;
        root.Write("proc/77/fdinfo/2", "pos:\t0\n");
        WriteAll(root, "proc/77/fdinfo/", row.first);
        tracker.Update(77, ReadDrmUsage(files, 77), TimePoint() + milliseconds(1000));
        WriteAll(root, "proc/77/fdinfo/", row.later);
        const DrmLoadTracker::Uses uses = tracker.Update(77, ReadDrmUsage(files, 77), TimePoint() + milliseconds(2000));
        ASSERT_EQ(uses.size(), 1U);
        EXPECT_EQ(uses.begin()->second.loadPercent, row.percent);
        EXPECT_EQ(uses.begin()->second.memoryBytes, row.memory);
        EXPECT_TRUE(ReadDrmUsage(files, 78).empty());
    }
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

TEST(AmdgpuMetrics, FieldsStandWhereTheRevisionSays)
{
    const struct {
        const char* what;
        std::string file;
        AmdgpuMetrics expected;
    } rows[] = {
        {"1.0",
         Metrics(80, 1, 0, {{16, 61}, {28, 97}, {30, 40}, {34, 212}, {54, 2450}, {58, 1250}}),
         {97, 40, 2450, 1250, 61, 212000}},
        {"1.3",
         Metrics(120, 1, 3, {{4, 61}, {16, 97}, {18, 40}, {22, 212}, {54, 2450}, {58, 1250}}),
         {97, 40, 2450, 1250, 61, 212000}},
        {"2.0",
         Metrics(120, 2, 0, {{16, 7130}, {40, 9100}, {44, 14500}, {80, 1600}, {84, 800}}),
         {91, {}, 1600, 800, 71, 14500}},
        {"2.3",
         Metrics(152, 2, 3, {{4, 7130}, {28, 91}, {40, 14500}, {76, 1600}, {80, 800}}),
         {91, {}, 1600, 800, 71, 14500}},
        {"3.0",
         Metrics(264, 3, 0, {{4, 7130}, {42, 55}, {112, 14500}, {114, 0}, {174, 1600}, {186, 800}}),
         {55, {}, 1600, 800, 71, 14500}},
        {"not measured", Metrics(120, 1, 3, {}), {}},
        {"of the future", Metrics(120, 1, 4, {{16, 97}}), {}},
        {"other format", Metrics(120, 4, 0, {{16, 97}}), {}},
        {"cut off", Metrics(120, 1, 3, {{16, 97}}).substr(0, 59), {}},
        {"header only", "\4", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const AmdgpuMetrics metrics = ParseAmdgpuMetrics(row.file);
        EXPECT_EQ(metrics.loadPercent, row.expected.loadPercent);
        EXPECT_EQ(metrics.memoryLoadPercent, row.expected.memoryLoadPercent);
        EXPECT_EQ(metrics.graphicsClockMhz, row.expected.graphicsClockMhz);
        EXPECT_EQ(metrics.memoryClockMhz, row.expected.memoryClockMhz);
        EXPECT_EQ(metrics.temperatureCelsius, row.expected.temperatureCelsius);
        EXPECT_EQ(metrics.powerMilliwatts, row.expected.powerMilliwatts);
    }
}

// The counters that a sample has, by the names that scenarios use.
std::map<std::string, uint64_t> CountersOf(const GpuPerfInfo& sample)
{
    const uint64_t values[] = {sample.uint1, sample.uint2, sample.ulong1, sample.ulong2, sample.ulong3, sample.uint3,
                               sample.uint4, sample.uint5, sample.uint6,  sample.uint7,  sample.uint8,  sample.uint9};
    std::map<std::string, uint64_t> counters;
    for (size_t i = 0; i < GPU_COUNTER_NAMES.size(); ++i) {
        if (sample.uint10 & 1U << i) {
            counters[GPU_COUNTER_NAMES[i]] = values[i];
        }
    }
    return counters;
}

TEST(MachineCounters, RecordedMachinesGiveOneSampleOfEachGpu)
{
    using Counters = std::map<std::string, uint64_t>;
    const struct {
        const char* machine;
        std::vector<Counters> samples;
    } rows[] = {
        {"desktop",
         {{{"gpuLoadPercent", 3}, {"memoryLoadPercent", 0}, {"temperatureCelsius", 41}},
          {{"gpuLoadPercent", 97},
           {"memoryLoadPercent", 41},
           {"memoryUsedBytes", 9663676416},
           {"memoryTotalBytes", 17163091968},
           {"graphicsClockMhz", 2450},
           {"memoryClockMhz", 1250},
           {"temperatureCelsius", 59},
           {"powerMilliwatts", 212000}}}},
        {"laptop",
         {{{"graphicsClockMhz", 650}},
          {{"gpuLoadPercent", 37},
           {"memoryLoadPercent", 12},
           {"memoryUsedBytes", 1073741824},
           {"memoryTotalBytes", 4294967296},
           {"graphicsClockMhz", 1200},
           {"memoryClockMhz", 875},
           {"temperatureCelsius", 61},
           {"powerMilliwatts", 35000},
           {"fanPercent", 40}}}},
        {"phone", {{{"gpuLoadPercent", 91}, {"graphicsClockMhz", 587}}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.machine);
        const auto counters = MachineCounters::Open(std::string(VELTRA_TEST_ROOTS "/") + row.machine);
        ASSERT_NE(counters, nullptr);
        const std::vector<GpuPerfInfo> batch = counters->Batch(0, {7, 0});
        ASSERT_EQ(batch.size(), row.samples.size());
        for (size_t i = 0; i < batch.size(); ++i) {
            EXPECT_EQ(CountersOf(batch[i]), row.samples[i]);
            EXPECT_EQ(batch[i].int1, static_cast<int32_t>(i));
            EXPECT_EQ(batch[i].long2, static_cast<int64_t>(7 + i));
        }
    }
    EXPECT_EQ(MachineCounters::Open(VELTRA_TEST_ROOTS "/server"), nullptr) << "a display is no GPU";
}

// A driver that tells only what each process uses: the sample has the subscriber's part.
TEST(MachineCounters, TheSubscribersOwnUseStandsInWhereTheDriverTellsNoMore)
{
    const ScratchDir root;
    const FakeClock clock;
    root.Write("sys/class/drm/card1/device/devfreq/fb000000.gpu/cur_freq", "800000000\n");
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
    const std::vector<GpuPerfInfo> batch = counters->Batch(1, {1, 77});
    ASSERT_EQ(batch.size(), 1U);
    using Counters = std::map<std::string, uint64_t>;
    EXPECT_EQ(CountersOf(batch[0]),
              (Counters{{"gpuLoadPercent", 40}, {"memoryUsedBytes", 4096}, {"graphicsClockMhz", 800}}));
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
