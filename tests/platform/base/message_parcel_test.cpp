// SPDX-License-Identifier: Apache-2.0
// References to objects in a message: where they lie, who holds them, and which forgeries read as nothing.
#include "tavo/message_parcel.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/parcel_access.h"
#include "tavo/ipc_object_stub.h"

using namespace std::string_literals;

namespace TAVO {
namespace {

// Changes the data and leaves the table of references as it was.
void Overwrite(MessageParcel& parcel, size_t offset, uint32_t value)
{
    std::string bytes(reinterpret_cast<const char*>(parcel.GetData()), parcel.GetDataSize());
    std::memcpy(bytes.data() + offset, &value, sizeof(value));
    ASSERT_TRUE(parcel.SetData(bytes.data(), bytes.size()));
}

TEST(MessageParcel, ReferencesTakeTwoSlotsAndReadBackInPlace)
{
    const sptr<IRemoteObject> first = MakeRef<IPCObjectStub>();
    const sptr<IRemoteObject> second = MakeRef<IPCObjectStub>();
    MessageParcel parcel;
    ASSERT_TRUE(parcel.WriteInterfaceToken(u"a") && parcel.WriteRemoteObject(first) && parcel.WriteInt32(5) &&
                parcel.WriteRemoteObject(second) && parcel.WriteRemoteObject(first));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(parcel.GetData()), parcel.GetDataSize()),
              "\1\0\0\0a\0\0\0*OBJ\0\0\0\0\5\0\0\0*OBJ\1\0\0\0*OBJ\2\0\0\0"s);

    EXPECT_EQ(parcel.ReadRemoteObject(), nullptr) << "the token is no reference";
    EXPECT_EQ(parcel.ReadInterfaceToken(), u"a");
    EXPECT_EQ(parcel.ReadRemoteObject(), first);
    EXPECT_EQ(parcel.ReadRemoteObject(), nullptr);
    EXPECT_EQ(parcel.ReadInt32(), 5);
    EXPECT_EQ(parcel.ReadUint32(), 0x4a424f2aU) << "a reader of numbers gets numbers";
    EXPECT_EQ(parcel.ReadRemoteObject(), nullptr) << "the middle of a reference is none";
    EXPECT_EQ(parcel.ReadInt32(), 1);
    EXPECT_EQ(parcel.ReadRemoteObject(), first);
    EXPECT_EQ(parcel.GetReadableBytes(), 0u);
}

TEST(MessageParcel, HoldsItsObjectsWhileItLives)
{
    sptr<IRemoteObject> object = MakeRef<IPCObjectStub>();
    {
        MessageParcel parcel;
        ASSERT_TRUE(parcel.WriteRemoteObject(object) && parcel.WriteRemoteObject(object));
        EXPECT_EQ(object->GetStrongCount(), 3);
        ParcelAccess::Clear(parcel);
        EXPECT_EQ(object->GetStrongCount(), 1);
        ASSERT_TRUE(parcel.WriteRemoteObject(object));
        MessageParcel taken;
        ParcelAccess::Swap(parcel, taken);
        EXPECT_EQ(parcel.ReadRemoteObject(), nullptr);
        EXPECT_EQ(taken.ReadRemoteObject(), object);
    }
    EXPECT_EQ(object->GetStrongCount(), 1);
}

TEST(MessageParcel, RefusedReferencesLeaveNothingBehind)
{
    const sptr<IRemoteObject> object = MakeRef<IPCObjectStub>();
    MessageParcel parcel;
    EXPECT_FALSE(parcel.WriteRemoteObject(nullptr));
    parcel.SetCapacityLimit(7);
    EXPECT_FALSE(parcel.WriteRemoteObject(object));
    EXPECT_EQ(parcel.GetDataSize(), 0u);
    EXPECT_EQ(object->GetStrongCount(), 1);

    parcel.SetCapacityLimit(Parcel::MAX_DATA_BYTES);
    for (size_t i = 0; i < MessageParcel::MAX_OBJECTS; ++i) {
        ASSERT_TRUE(parcel.WriteRemoteObject(object));
    }
    EXPECT_FALSE(parcel.WriteRemoteObject(object));
    EXPECT_EQ(parcel.GetDataSize(), MessageParcel::MAX_OBJECTS * 8);
    ASSERT_TRUE(parcel.SetReadPosition((MessageParcel::MAX_OBJECTS - 1) * 8));
    EXPECT_EQ(parcel.ReadRemoteObject(), object);
}

TEST(MessageParcel, ForgedSlotsAreNoReferences)
{
    const sptr<IRemoteObject> object = MakeRef<IPCObjectStub>();
    MessageParcel numbersOnly;
    ASSERT_TRUE(numbersOnly.WriteUint64(0x4a424f2a));
    EXPECT_EQ(numbersOnly.ReadRemoteObject(), nullptr) << "the right number without an entry in the table";

    const struct {
        size_t offset;
        uint32_t value;
    } rows[] = {{0, 0x4a424f2b}, {4, 1}, {4, 0xffffffff}};
    for (const auto& row : rows) {
        MessageParcel parcel;
        ASSERT_TRUE(parcel.WriteRemoteObject(object) && parcel.WriteRemoteObject(object));
        Overwrite(parcel, row.offset, row.value);
        EXPECT_EQ(parcel.ReadRemoteObject(), nullptr);
        EXPECT_EQ(parcel.GetReadPosition(), 0u);
        ASSERT_TRUE(parcel.SetReadPosition(8));
        EXPECT_EQ(parcel.ReadRemoteObject(), object) << "its neighbour is unharmed";
    }

    MessageParcel cut;
    ASSERT_TRUE(cut.WriteRemoteObject(object));
    ParcelAccess::Truncate(cut, 4);
    EXPECT_EQ(cut.ReadRemoteObject(), nullptr);
}

}  // namespace
}  // namespace TAVO
