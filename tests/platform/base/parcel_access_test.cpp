// SPDX-License-Identifier: Apache-2.0
// What the transport does with parcels: receiving past the limit, moving; and buffers that are used again.
#include "base/parcel_access.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace TAVO {
namespace {

size_t CapacityOf(const Parcel& parcel)
{
    return ParcelBuffer::Capacity(parcel.GetData());
}

// A parcel with a buffer for `capacity` bytes, just so many on a thread that keeps none yet; known again by that.
std::unique_ptr<Parcel> ParcelWith(size_t capacity)
{
    auto parcel = std::make_unique<Parcel>();
    EXPECT_NE(ParcelAccess::Append(*parcel, capacity), nullptr);
    EXPECT_GE(CapacityOf(*parcel), capacity);
    return parcel;
}

// Runs `body` in a thread that keeps no buffer yet.
template <typename Body>
void InFreshThread(Body body)
{
    std::thread(body).join();
}

TEST(ParcelAccess, LimitAppliesToWritesOnly)
{
    Parcel parcel;
    parcel.SetCapacityLimit(8);
    ASSERT_TRUE(parcel.WriteInt32(1));
    uint8_t* place = ParcelAccess::Append(parcel, 3000);
    ASSERT_EQ(place, parcel.GetData() + 4);
    std::memset(place, 2, 3000);
    EXPECT_EQ(parcel.GetDataSize(), 3004u);
    EXPECT_EQ(parcel.ReadInt32(), 1);
    EXPECT_FALSE(parcel.WriteInt32(1));

    ParcelAccess::Truncate(parcel, 4);
    EXPECT_EQ(parcel.GetReadableBytes(), 0u);
    EXPECT_TRUE(parcel.WriteInt32(1));
    EXPECT_FALSE(parcel.WriteInt32(1));
    ParcelAccess::ResetRead(parcel);
    EXPECT_EQ(parcel.GetReadableBytes(), 8u);
}

TEST(ParcelAccess, BufferAtMostDoublesAndImpossibleSizesChangeNothing)
{
    Parcel parcel;
    while (parcel.GetDataSize() < 1'000'000) {
        ASSERT_NE(ParcelAccess::Append(parcel, 1000), nullptr);
        ASSERT_LE(CapacityOf(parcel), std::max(2 * parcel.GetDataSize(), ParcelBuffer::MAX_KEPT_CAPACITY));
    }
    for (const size_t impossible : {std::numeric_limits<size_t>::max(), std::numeric_limits<size_t>::max() / 2}) {
        EXPECT_EQ(ParcelAccess::Append(parcel, impossible), nullptr);
    }
    EXPECT_EQ(parcel.GetDataSize(), 1'000'000u);
    EXPECT_EQ(parcel.GetReadableBytes(), 1'000'000u);
}

TEST(ParcelAccess, SwapMovesEverythingAndClearKeepsTheLimit)
{
    MessageParcel left;
    MessageParcel right;
    left.SetCapacityLimit(12);
    ASSERT_TRUE(left.WriteInt64(1) && left.WriteInt32(2));
    left.ReadInt64();
    ParcelAccess::Swap(left, right);
    EXPECT_EQ(left.GetDataSize(), 0u);
    EXPECT_TRUE(left.WriteString("longer than twelve bytes"));
    EXPECT_EQ(right.ReadInt32(), 2);
    EXPECT_FALSE(right.WriteInt32(3));

    ParcelAccess::Clear(right);
    EXPECT_EQ(right.GetData(), nullptr);
    EXPECT_TRUE(right.WriteInt64(1) && right.WriteInt32(2));
    EXPECT_FALSE(right.WriteInt32(3));
}

TEST(ParcelBuffer, SmallBuffersAreUsedAgainUpToABound)
{
    constexpr size_t PARCELS = 12;
    const struct {
        size_t capacity;
        size_t kept;
    } rows[] = {{2000, 8}, {ParcelBuffer::MAX_KEPT_CAPACITY, 8}, {ParcelBuffer::MAX_KEPT_CAPACITY + 1, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.capacity);
        InFreshThread([&row] {
            std::vector<std::unique_ptr<Parcel>> parcels(PARCELS);
            for (std::unique_ptr<Parcel>& parcel : parcels) {
                parcel = ParcelWith(row.capacity);
            }
            parcels = std::vector<std::unique_ptr<Parcel>>(PARCELS);
            size_t known = 0;
            for (std::unique_ptr<Parcel>& parcel : parcels) {
                parcel = ParcelWith(1);
                known += CapacityOf(*parcel) == row.capacity ? 1 : 0;
            }
            EXPECT_EQ(known, row.kept);
        });
    }
}

// Ends after the thread's kept buffers: what threads keep under keys ends in the order in which the keys were made.
void EndLate(void* parcel)
{
    delete static_cast<Parcel*>(parcel);
    Parcel after;
    EXPECT_TRUE(after.WriteInt32(1));
    EXPECT_NE(CapacityOf(after), 2000u) << "nothing may be kept any more: nobody would free it";
}

TEST(ParcelBuffer, ParcelsMayOutliveTheCacheOfTheirThread)
{
    ParcelWith(10);  // makes the key of the buffers
    pthread_key_t key{};
    ASSERT_EQ(pthread_key_create(&key, EndLate), 0);
    InFreshThread([key] {
        ASSERT_EQ(pthread_setspecific(key, ParcelWith(2000).release()), 0);
        ParcelWith(3000);  // the first to be freed: from here on the thread keeps buffers
    });
    pthread_key_delete(key);
}

}  // namespace
}  // namespace TAVO
