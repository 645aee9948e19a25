// SPDX-License-Identifier: Apache-2.0
#include "support/parcel_items.h"

#include <gtest/gtest.h>

#include <utility>

namespace TAVO::Veltra {
namespace {

template <typename Value>
void ExpectNext(bool isRead, const Value& value, const Value& expected)
{
    EXPECT_TRUE(isRead);
    EXPECT_EQ(value, expected);
}

struct ItemReader {
    Parcel& parcel;

    void operator()(int32_t expected) const
    {
        int32_t value = 0;
        ExpectNext(parcel.ReadInt32(value), value, expected);
    }
    void operator()(int64_t expected) const
    {
        int64_t value = 0;
        ExpectNext(parcel.ReadInt64(value), value, expected);
    }
    void operator()(const std::string& expected) const
    {
        std::string value;
        ExpectNext(parcel.ReadString(value), value, expected);
    }
    void operator()(const sptr<IRemoteObject>& expected) const
    {
        EXPECT_TRUE(dynamic_cast<MessageParcel&>(parcel).ReadRemoteObject() == expected);
    }
};

struct ItemWriter {
    Parcel& parcel;

    bool operator()(int32_t value) const { return parcel.WriteInt32(value); }
    bool operator()(int64_t value) const { return parcel.WriteInt64(value); }
    bool operator()(const std::string& value) const { return parcel.WriteString(value); }
    bool operator()(const sptr<IRemoteObject>& value) const
    {
        return dynamic_cast<MessageParcel&>(parcel).WriteRemoteObject(value);
    }
};

}  // namespace

Items operator+(Items left, const Items& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Items Times(size_t count, const Items& items)
{
    Items all;
    while (count-- > 0) {
        all = std::move(all) + items;
    }
    return all;
}

void ExpectItems(Parcel& parcel, const Items& items)
{
    for (size_t i = 0; i < items.size(); ++i) {
        SCOPED_TRACE("item " + std::to_string(i));
        std::visit(ItemReader{parcel}, items[i]);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
    EXPECT_EQ(parcel.GetReadableBytes(), 0u) << "more than the items";
}

void WriteItems(Parcel& parcel, const Items& items)
{
    for (const Item& item : items) {
        EXPECT_TRUE(std::visit(ItemWriter{parcel}, item));
    }
}

std::string Bytes(const Parcel& parcel)
{
    return std::string(reinterpret_cast<const char*>(parcel.GetData()), parcel.GetDataSize());
}

std::string Bytes(const Items& items)
{
    MessageParcel parcel;
    WriteItems(parcel, items);
    return Bytes(parcel);
}

}  // namespace TAVO::Veltra
