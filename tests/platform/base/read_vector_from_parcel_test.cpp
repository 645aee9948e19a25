// SPDX-License-Identifier: Apache-2.0
// The list reader at its limits, for records from the heap, records that read in place and records of a fixed size.
#include "tavo/read_vector_from_parcel.h"

#include <gtest/gtest.h>

namespace TAVO {
namespace {

struct HeapRecord : public Parcelable {
    HeapRecord() = default;
    explicit HeapRecord(int64_t initial) : value(initial) {}
    bool Marshalling(Parcel& parcel) const override { return parcel.WriteInt64(value); }
    static HeapRecord* Unmarshalling(Parcel& parcel)
    {
        auto record = std::make_unique<HeapRecord>();
        return parcel.ReadInt64(record->value) ? record.release() : nullptr;
    }
    int64_t value = 0;
};

struct PlaceRecord : public HeapRecord {
    using HeapRecord::HeapRecord;
    bool ReadFields(Parcel& parcel) { return parcel.ReadInt64(value); }
};
static_assert(ReadsInPlace<PlaceRecord>::value && !ReadsInPlace<HeapRecord>::value);

struct FixedRecord : public HeapRecord {
    using HeapRecord::HeapRecord;
    static constexpr size_t FIXED_PARCEL_BYTES = 8;
    template <typename Items>
    bool ReadFields(Items& items)
    {
        return items.ReadInt64(value);
    }
};
static_assert(HasFixedSize<FixedRecord>::value && !HasFixedSize<PlaceRecord>::value);

template <typename T>
class ListReader : public testing::Test {
protected:
    void Header(int32_t flag, int32_t count)
    {
        ASSERT_TRUE(parcel_.WriteInt32(flag));
        ASSERT_TRUE(parcel_.WriteInt32(count));
    }
    void Element(int32_t marker, int64_t value)
    {
        ASSERT_TRUE(parcel_.WriteInt32(marker));
        ASSERT_TRUE(parcel_.WriteInt64(value));
    }
    bool Read() { return ReadVectorFromParcel(parcel_, list_); }
    std::vector<int64_t> Values() const
    {
        std::vector<int64_t> values;
        for (const T& record : list_) {
            values.push_back(record.value);
        }
        return values;
    }

    Parcel parcel_;
    std::vector<T> list_{T(100), T(200)};
    const std::vector<int64_t> untouched_{100, 200};
};

using Records = testing::Types<HeapRecord, PlaceRecord, FixedRecord>;
TYPED_TEST_SUITE(ListReader, Records);

TYPED_TEST(ListReader, OtherFlagsMeanThatNoListWasSent)
{
    for (const int32_t flag : {0, -1, 2}) {
        this->Header(flag, 5);
        EXPECT_TRUE(this->Read());
        EXPECT_EQ(this->Values(), this->untouched_);
        EXPECT_EQ(this->parcel_.ReadInt32(), 5) << "nothing behind the flag is read";
    }
    EXPECT_FALSE(this->Read()) << "no flag at all";
}

TYPED_TEST(ListReader, CountIsCheckedBeforeTheListIsTouched)
{
    ASSERT_TRUE(this->parcel_.WriteInt32(1));
    EXPECT_FALSE(this->Read()) << "no count";
    this->Header(1, MAX_LIST_ELEMENTS + 1);
    EXPECT_FALSE(this->Read());
    EXPECT_EQ(this->Values(), this->untouched_);
    for (const int32_t count : {0, -5}) {
        this->list_.assign(2, TypeParam(1));
        this->Header(1, count);
        EXPECT_TRUE(this->Read());
        EXPECT_TRUE(this->list_.empty());
    }
}

TYPED_TEST(ListReader, LargestListIsReadWholeAndWithoutElementsTakesNoMemory)
{
    this->list_ = std::vector<TypeParam>();
    this->Header(1, MAX_LIST_ELEMENTS);
    EXPECT_FALSE(this->Read());
    EXPECT_EQ(this->list_.capacity(), 0u);
    this->Header(1, MAX_LIST_ELEMENTS);
    this->Element(1, 1);
    this->Element(1, 2);
    EXPECT_FALSE(this->Read());
    EXPECT_LE(this->list_.capacity(), 100u) << "room is made for what is present, not for what is announced";
    this->Header(1, MAX_LIST_ELEMENTS);
    for (int32_t i = 0; i < MAX_LIST_ELEMENTS; ++i) {
        this->Element(1, i);
    }
    ASSERT_TRUE(this->Read());
    ASSERT_EQ(this->list_.size(), 524288u);
    EXPECT_EQ(this->list_.back().value, 524287);
    EXPECT_EQ(this->parcel_.GetReadableBytes(), 0u);
}

TYPED_TEST(ListReader, ListEndsAtAZeroMarkerOrACutElement)
{
    this->Header(1, 3);
    this->Element(1, 10);
    this->Element(-7, 11);  // any marker but 0
    this->Element(0, 12);
    EXPECT_FALSE(this->Read());
    EXPECT_EQ(this->Values(), (std::vector<int64_t>{10, 11}));

    EXPECT_EQ(this->parcel_.ReadInt64(), 12);
    this->Header(1, 2);
    this->Element(1, 20);
    ASSERT_TRUE(this->parcel_.WriteInt32(1));
    ASSERT_TRUE(this->parcel_.WriteInt32(21));  // half an element
    EXPECT_FALSE(this->Read());
    EXPECT_EQ(this->Values(), (std::vector<int64_t>{20}));
}

TYPED_TEST(ListReader, WriterWritesWhatTheReaderReads)
{
    ASSERT_TRUE(WriteVectorToParcel(this->parcel_, std::vector<TypeParam>{TypeParam(1), TypeParam(-1)}));
    EXPECT_EQ(this->parcel_.GetDataSize(), 8u + 2 * 12);
    EXPECT_TRUE(this->Read());
    EXPECT_EQ(this->Values(), (std::vector<int64_t>{1, -1}));

    EXPECT_FALSE(WriteVectorToParcel(this->parcel_, std::vector<TypeParam>(MAX_LIST_ELEMENTS + 1)));
    this->parcel_.SetCapacityLimit(this->parcel_.GetDataSize() + 8 + 12 + 11);
    EXPECT_FALSE(WriteVectorToParcel(this->parcel_, this->list_));
}

}  // namespace
}  // namespace TAVO
