// SPDX-License-Identifier: Apache-2.0
#include "device_document.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "snapshot_cell.h"

namespace TAVO::Veltra {
namespace {

TEST(DeviceDocument, HasWhatTheTextHasAndNothingElse)
{
    const auto document = ParseDeviceDocument(R"({
        "tempLevel": 3, "tempLevelFrom": "sensor", "temperature": 88, "cpuLoadPercent": "much",
        "gpuInfo": {"known": [], "gpuMemoryTotalBytes": 17179869184, "currentFrequency": 2.5},
        "thermalInfo": 7, "powerInfo": {"platformProfile": "balanced"},
        "cpuFrequencies": {"policy0": 2400, "policy4": {}}, "ignoredSensors": {"acpitz": "127 degrees", "x": 1},
        "sources": {"temperature": "coretemp/Package id 0", "platformProfile": 5}})");
    ASSERT_TRUE(document);
    const DeviceSnapshot& snapshot = document->snapshot;
    EXPECT_EQ(snapshot.tempLevel->value, 3);
    EXPECT_STREQ(snapshot.levelFrom->text, "sensor");
    EXPECT_STREQ(snapshot.temperature->source, "coretemp/Package id 0");
    EXPECT_EQ(snapshot.gpuMemoryTotalBytes->value, 17179869184);
    EXPECT_STREQ(snapshot.platformProfile->text, "balanced");
    EXPECT_STREQ(snapshot.platformProfile->source, "");
    EXPECT_FALSE(snapshot.cpuLoadPercent || snapshot.currentFrequency || snapshot.thermalMargin);
    EXPECT_EQ(document->details.cpuFrequencies.at("cpuFrequencies").size(), 1u);
    EXPECT_EQ(document->details.ignoredSensors.size(), 1u);
}

TEST(DeviceDocument, ALevelOutOfBoundsIsAbsent)
{
    for (const char* level : {"-1", "6"}) {
        const auto document = ParseDeviceDocument(std::string(R"({"tempLevel": )") + level + "}");
        ASSERT_TRUE(document) << level;
        EXPECT_FALSE(document->snapshot.tempLevel) << level;
    }
}

TEST(DeviceDocument, IsRefusedWhole)
{
    const std::string longText = R"({"tempLevel": 1, "x": ")" + std::string(1024 * 1024, 'x') + "\"}";
    for (const std::string& text : {std::string(), std::string("[1]"), std::string(R"({"tempLevel": 1)"),
                                    std::string(R"({"tempLevel": "1"})"), std::string("{}"), longText}) {
        EXPECT_FALSE(ParseDeviceDocument(text)) << text.substr(0, 40);
    }
}

// Texts come from another process, which must not fill this one's memory.
TEST(DeviceDocument, KeepsABoundedNumberOfSourceTexts)
{
    const char* const first = KeptText("first");
    for (int i = 0; i < 2000; ++i) {
        KeptText(std::to_string(i));
    }
    EXPECT_EQ(KeptText("first"), first);
    EXPECT_STREQ(KeptText("one more"), "(more)");
    EXPECT_STREQ(KeptText(std::string(257, 'x')), "(more)");
}

TEST(SnapshotCell, ReadersSeeNoMixtureOfTwoSnapshots)
{
    SnapshotCell cell;
    std::atomic<bool> isOver{false};
    std::thread writer([&] {
        for (uint64_t number = 1; number < 200000; ++number) {
            DeviceSnapshot snapshot;
            snapshot.number = number;
            const Reading reading{static_cast<int64_t>(number), ""};
            snapshot.tempLevel = snapshot.gpuLoadLevel = snapshot.powerDrawMilliwatts = reading;
            cell.Store(snapshot);
        }
        isOver = true;
    });
    uint64_t last = 0;
    bool isWhole = true;
    while (!isOver) {
        const DeviceSnapshot snapshot = cell.Load();
        const auto expected = static_cast<int64_t>(snapshot.number);
        isWhole = isWhole && snapshot.number >= last &&
                  (last == 0 || (snapshot.tempLevel->value == expected && snapshot.gpuLoadLevel->value == expected &&
                                 snapshot.powerDrawMilliwatts->value == expected));
        last = snapshot.number;
    }
    writer.join();
    EXPECT_TRUE(isWhole);
}

}  // namespace
}  // namespace TAVO::Veltra
