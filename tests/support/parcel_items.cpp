// SPDX-License-Identifier: Apache-2.0
#include "support/parcel_items.h"

#include <gtest/gtest.h>

namespace TAVO::Veltra {
namespace {

struct ItemReader {
    Parcel& parcel;

    void operator()(int32_t expected) const
    {
        int32_t value = 0;
        EXPECT_TRUE(parcel.ReadInt32(value));
        EXPECT_EQ(value, expected);
    }
    void operator()(int64_t expected) const
    {
        int64_t value = 0;
        EXPECT_TRUE(parcel.ReadInt64(value));
        EXPECT_EQ(value, expected);
    }
    void operator()(const std::string& expected) const
    {
        std::string value;
        EXPECT_TRUE(parcel.ReadString(value));
        EXPECT_EQ(value, expected);
    }
    void operator()(const sptr<IRemoteObject>& expected) const
    {
        EXPECT_TRUE(dynamic_cast<MessageParcel&>(parcel).ReadRemoteObject() == expected);
    }
};

struct ItemWriter {
    Parcel& parcel;

    void operator()(int32_t value) const { EXPECT_TRUE(parcel.WriteInt32(value)); }
    void operator()(int64_t value) const { EXPECT_TRUE(parcel.WriteInt64(value)); }
    void operator()(const std::string& value) const { EXPECT_TRUE(parcel.WriteString(value)); }
    void operator()(const sptr<IRemoteObject>& value) const
    {
        EXPECT_TRUE(dynamic_cast<MessageParcel&>(parcel).WriteRemoteObject(value));
    }
};

}  // namespace

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
        std::visit(ItemWriter{parcel}, item);
    }
}

}  // namespace TAVO::Veltra
