// SPDX-License-Identifier: Apache-2.0
// The encodings of the records: order and kind of every item, truncation at each, failing writes.
#include <gtest/gtest.h>

#include <limits>
#include <memory>

#include "game_scene_bundle.h"
#include "support/parcel_items.h"
#include "veltra_records.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t MIN32 = std::numeric_limits<int32_t>::min();
constexpr int64_t MIN64 = std::numeric_limits<int64_t>::min();

AppResourceInfo SampleResource()
{
    AppResourceInfo info;
    info.text1 = std::string("a\0b", 3);
    info.int1 = MIN32;
    info.int2 = 2;
    info.text3 = "three";
    info.long1 = MIN64;
    info.int3 = 3;
    info.text4 = "four";
    return info;
}

const Items RESOURCE_ITEMS = {std::string("a\0b", 3), MIN32, 2, "", "three", MIN64, 3, "four"};

GpuPerfInfo SampleGpu()
{
    GpuPerfInfo info;
    info.long1 = MIN64;
    info.long2 = 2;
    info.int1 = -3;
    info.uint1 = 4294967295u;
    info.uint2 = 5;
    info.ulong1 = 18446744073709551615u;
    info.ulong2 = 7;
    info.ulong3 = 8;
    uint32_t* const last[] = {&info.uint3, &info.uint4, &info.uint5, &info.uint6,
                              &info.uint7, &info.uint8, &info.uint9, &info.uint10};
    for (uint32_t i = 0; i < 8; ++i) {
        *last[i] = 30 + i;
    }
    return info;
}

const Items GPU_ITEMS = {MIN64, int64_t{2}, -3, -1, 5,  int64_t{-1}, int64_t{7}, int64_t{8},
                         30,    31,         32, 33, 34, 35,          36,         37};

// Encodes to exactly `items`, decodes from them to a record that encodes the same, and from no shorter parcel.
template <typename Record>
void ExpectEncoding(const Record& record, const Items& items)
{
    MessageParcel written;
    ASSERT_TRUE(record.Marshalling(written));
    ExpectItems(written, items);

    ASSERT_TRUE(written.SetReadPosition(0));
    const std::unique_ptr<Record> read(Record::Unmarshalling(written));
    ASSERT_NE(read, nullptr);
    MessageParcel again;
    ASSERT_TRUE(read->Marshalling(again));
    ExpectItems(again, items);

    for (size_t size = 0; size < written.GetDataSize(); size += Parcel::SLOT) {
        SCOPED_TRACE(size);
        MessageParcel cut;
        ASSERT_TRUE(cut.SetData(written.GetData(), size));
        EXPECT_EQ(std::unique_ptr<Record>(Record::Unmarshalling(cut)), nullptr);
        MessageParcel capped;
        capped.SetCapacityLimit(size);
        EXPECT_FALSE(record.Marshalling(capped));
        EXPECT_LE(capped.GetDataSize(), size);
    }
}

TEST(RecordEncoding, EveryItemInItsPlace)
{
    ExpectEncoding(SampleResource(), RESOURCE_ITEMS);
    ExpectEncoding(SampleGpu(), GPU_ITEMS);
    EXPECT_EQ(Bytes(GPU_ITEMS).size(), GpuPerfInfo::FIXED_PARCEL_BYTES);
    EXPECT_EQ(AppResourceInfo().int1, 1);  // the one default of the records that no other test would miss
    GameSceneBundle bundle;
    bundle.sceneId = -4;
    bundle.sceneName = "boss";
    bundle.attributes = {{"z", ""}, {"a", "1"}};
    ExpectEncoding(bundle, {-4, "boss", 2, "a", "1", "z", ""});
}

TEST(SceneBundle, BoundsHoldInBothDirections)
{
    const std::string longest(GameSceneBundle::MAX_TEXT_BYTES, 'x');
    GameSceneBundle full;
    full.sceneName = longest;
    for (size_t i = 0; i < GameSceneBundle::MAX_ATTRIBUTES; ++i) {
        full.attributes[std::to_string(i)] = longest;
    }
    MessageParcel parcel;
    EXPECT_TRUE(full.Marshalling(parcel));
    EXPECT_NE(std::unique_ptr<GameSceneBundle>(GameSceneBundle::Unmarshalling(parcel)), nullptr);

    GameSceneBundle beyond[4];
    beyond[0].sceneName = longest + "x";
    beyond[1].attributes = {{longest + "x", ""}};
    beyond[2].attributes = {{"k", longest + "x"}};
    beyond[3] = full;
    beyond[3].attributes["one more"] = "";
    for (const GameSceneBundle& bundle : beyond) {
        MessageParcel nothing;
        EXPECT_FALSE(bundle.Marshalling(nothing));
        EXPECT_EQ(nothing.GetDataSize(), 0u);
    }
}

TEST(SceneBundle, HostileEncodingsAreRefused)
{
    const std::string tooLong(GameSceneBundle::MAX_TEXT_BYTES + 1, 'x');
    const struct {
        const char* name;
        Items items;
    } rows[] = {
        {"negative count", {1, "a", -1}},
        {"count beyond the bound", {1, "a", 65}},
        {"largest count", {1, "a", std::numeric_limits<int32_t>::max()}},
        {"key twice", {1, "a", 2, "a", "b", "a", "b"}},
        {"keys out of order", {1, "a", 2, "b", "a", "a", "b"}},
        {"long name", {1, tooLong, 0}},
        {"long key", {1, "a", 1, tooLong, "a"}},
        {"long value", {1, "a", 1, "a", tooLong}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        MessageParcel parcel;
        WriteItems(parcel, row.items);
        EXPECT_EQ(std::unique_ptr<GameSceneBundle>(GameSceneBundle::Unmarshalling(parcel)), nullptr);
    }
}

}  // namespace
}  // namespace TAVO::Veltra
