// SPDX-License-Identifier: Apache-2.0
// Every maker's driver tells the load of its GPU in its own way, and a game's own part of it is told apart.
#include "gpu_probe.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "drm_usage.h"
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
        {"amdgpu", card, {{"device/gpu_busy_percent", "97\n"}, {"device/pp_dpm_sclk", "0: 500Mhz\n1: 2600Mhz *\n"}}, {},
         97, -1, -1, 2600},
        {"i915", card,
         {{"gt_act_freq_mhz", "650\n"}, {"gt_max_freq_mhz", "1300\n"}, {"gt_RP0_freq_mhz", "1450\n"},
          {"gt/gt0/rc6_residency_ms", "5000\n"}},
         {{"gt/gt0/rc6_residency_ms", "5250\n"}}, 75, 650, 1300, 1450},
        {"i915, awake all the time", card, {{"power/rc6_residency_ms", "7\n"}}, {}, 100, -1, -1, -1},
        {"xe", card,
         {{"device/tile0/gt0/freq0/act_freq", "1800\n"}, {"device/tile0/gt0/freq0/max_freq", "2050\n"},
          {"device/tile0/gt0/gtidle/idle_residency_ms", "100\n"}},
         {{"device/tile0/gt0/gtidle/idle_residency_ms", "1100\n"}}, 0, 1800, 2050, -1},
        {"restarted driver", card, {{"power/rc6_residency_ms", "7000\n"}}, {{"power/rc6_residency_ms", "1\n"}},
         -1, -1, -1, -1},
        {"devfreq with load and clock", arm,
         {{"load", "91@800000000Hz\n"}, {"cur_freq", "800000000\n"}, {"max_freq", "850000000\n"},
          {"available_frequencies", "200000000 800000000 950000000 \n"}}, {}, 91, 800, 850, 950},
        {"devfreq below the card", card, {{"device/devfreq/fb000000.gpu/load", "33@1Hz\n"}}, {}, 33, -1, -1, -1},
        {"percent with a unit", "sys/class/devfreq/3d00000.qcom,kgsl-3d0/", {{"device/gpu_busy_percentage", "91 %\n"}}, {},
         91, -1, -1, -1},
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
        {"time of two engines", {{"3", pdev + "1\ndrm-engine-gfx:\t100 ns\ndrm-engine-copy:\t0 ns\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t400000100 ns\ndrm-engine-copy:\t10 ns\n"}}, 40, {}},
        {"the same client twice", {{"3", pdev + "1\ndrm-engine-gfx:\t0 ns\n"}, {"4", pdev + "1\ndrm-engine-gfx:\t0 ns\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t300000000 ns\n"}, {"4", pdev + "1\ndrm-engine-gfx:\t300000000 ns\n"}}, 30, {}},
        {"two clients", {{"3", pdev + "1\ndrm-engine-gfx:\t0 ns\n"}, {"4", pdev + "2\ndrm-engine-gfx:\t0 ns\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t300000000 ns\n"}, {"4", pdev + "2\ndrm-engine-gfx:\t300000000 ns\n"}}, 60, {}},
        {"two engines of a kind", {{"3", pdev + "1\ndrm-engine-gfx:\t0 ns\ndrm-engine-capacity-gfx:\t2\n"}},
         {{"3", pdev + "1\ndrm-engine-gfx:\t1000000000 ns\ndrm-engine-capacity-gfx:\t2\n"}}, 50, {}},
        {"cycles of all cycles", {{"3", pdev + "1\ndrm-cycles-rcs:\t10\ndrm-total-cycles-rcs:\t1000\n"}},
         {{"3", pdev + "1\ndrm-cycles-rcs:\t260\ndrm-total-cycles-rcs:\t2000\n"}}, 25, {}},
        {"cycles by the clock", {{"3", "drm-driver:\tpanfrost\ndrm-cycles-fragment:\t0\ndrm-maxfreq-fragment:\t800 Hz\n"}},
         {{"3", "drm-driver:\tpanfrost\ndrm-cycles-fragment:\t400\ndrm-maxfreq-fragment:\t800 Hz\n"}}, 50, {}},
        {"closed meanwhile", {{"3", pdev + "1\ndrm-engine-gfx:\t900 ns\n"}}, {{"3", pdev + "1\ndrm-engine-gfx:\t5 ns\n"}},
         {}, {}},
        {"memory", {}, {{"3", pdev + "1\ndrm-total-vram0:\t8 KiB\ndrm-total-gtt:\t1 MiB\ndrm-memory-vram:\t4 KiB\n"}},
         {}, 1056768},
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
        const DrmLoadTracker::Uses uses =
            tracker.Update(77, ReadDrmUsage(files, 77), TimePoint() + milliseconds(2000));
        ASSERT_EQ(uses.size(), 1U);
        EXPECT_EQ(uses.begin()->second.loadPercent, row.percent);
        EXPECT_EQ(uses.begin()->second.memoryBytes, row.memory);
        EXPECT_TRUE(ReadDrmUsage(files, 78).empty());
    }
}

}  // namespace
}  // namespace TAVO::Veltra
