// SPDX-License-Identifier: Apache-2.0
// Byte by byte what a parcel writes, and what it refuses to read and to write.
#include "tavo/parcel.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace TAVO {
namespace {

struct Pair : public Parcelable {
    bool Marshalling(Parcel& parcel) const override { return parcel.WriteInt32(first) && parcel.WriteInt64(second); }
    static Pair* Unmarshalling(Parcel& parcel)
    {
        auto pair = std::make_unique<Pair>();
        return parcel.ReadInt32(pair->first) && parcel.ReadInt64(pair->second) ? pair.release() : nullptr;
    }
    int32_t first = 7;
    int64_t second = -2;
};

std::string Bytes(const Parcel& parcel)
{
    return {reinterpret_cast<const char*>(parcel.GetData()), parcel.GetDataSize()};
}

struct Item {
    const char* name;
    std::string bytes;
    std::function<bool(Parcel&)> write;
    std::function<bool(Parcel&)> readsBack;
};

template <typename Written, typename Value>
Item ItemOf(const char* name, bool (Parcel::*write)(Written), bool (Parcel::*read)(Value&), Value value,
            std::string bytes)
{
    return {name, std::move(bytes), [=](Parcel& p) { return (p.*write)(value); },
            [=](Parcel& p) {
                Value got{1};  // neither false nor empty
                return (p.*read)(got) && got == value;
            }};
}

Item BufferOf(const char* name, std::vector<uint8_t> value, std::string bytes)
{
    return {name, std::move(bytes), [=](Parcel& p) { return p.WriteBuffer(value.data(), value.size()); },
            [=](Parcel& p) {
                std::vector<uint8_t> got{1};
                return p.ReadBuffer(got) && got == value;
            }};
}

const Item ITEMS[] = {
    ItemOf("true", &Parcel::WriteBool, &Parcel::ReadBool, true, "\1\0\0\0"s),
    ItemOf("false", &Parcel::WriteBool, &Parcel::ReadBool, false, "\0\0\0\0"s),
    ItemOf("int32", &Parcel::WriteInt32, &Parcel::ReadInt32, -2, "\xfe\xff\xff\xff"s),
    ItemOf("uint32", &Parcel::WriteUint32, &Parcel::ReadUint32, 0x81020304, "\x04\x03\x02\x81"s),
    ItemOf("int64", &Parcel::WriteInt64, &Parcel::ReadInt64, std::numeric_limits<int64_t>::min(),
           "\0\0\0\0\0\0\0\x80"s),
    ItemOf("uint64", &Parcel::WriteUint64, &Parcel::ReadUint64, uint64_t{0x0102030405060708},
           "\x08\x07\x06\x05\x04\x03\x02\x01"s),
    ItemOf("empty string", &Parcel::WriteString, &Parcel::ReadString, ""s, "\0\0\0\0\0\0\0\0"s),
    ItemOf("3 bytes", &Parcel::WriteString, &Parcel::ReadString, "abc"s, "\3\0\0\0abc\0"s),
    ItemOf("4 bytes", &Parcel::WriteString, &Parcel::ReadString, "abcd"s, "\4\0\0\0abcd\0\0\0\0"s),
    ItemOf("NUL inside", &Parcel::WriteString, &Parcel::ReadString, "a\0b"s, "\3\0\0\0a\0b\0"s),
    ItemOf("empty string16", &Parcel::WriteString16, &Parcel::ReadString16, u""s, "\0\0\0\0\0\0\0\0"s),
    ItemOf("1 unit", &Parcel::WriteString16, &Parcel::ReadString16, u"\uff0c"s, "\1\0\0\0\x0c\xff\0\0"s),
    ItemOf("2 units", &Parcel::WriteString16, &Parcel::ReadString16, u"ab"s, "\2\0\0\0a\0b\0\0\0\0\0"s),
    ItemOf("float", &Parcel::WriteFloat, &Parcel::ReadFloat, -1.5F, "\0\0\xc0\xbf"s),
    ItemOf("double", &Parcel::WriteDouble, &Parcel::ReadDouble, -2.0, "\0\0\0\0\0\0\0\xc0"s),
    BufferOf("empty buffer", {}, "\0\0\0\0"s),
    BufferOf("buffer of 3", {0, 0xff, 3}, "\3\0\0\0\0\xff\3\0"s),
    BufferOf("buffer of 4", {1, 2, 3, 0}, "\4\0\0\0\1\2\3\0"s),
    {"no record", "\0\0\0\0"s, [](Parcel& p) { return p.WriteParcelable(nullptr); },
     [](Parcel& p) { return p.ReadParcelable<Pair>() == nullptr; }},
    {"record", "\1\0\0\0\7\0\0\0\xfe\xff\xff\xff\xff\xff\xff\xff"s,
     [](Parcel& p) {
         const Pair pair;
         return p.WriteParcelable(&pair);
     },
     [](Parcel& p) {
         const auto pair = p.ReadParcelable<Pair>();
         return pair != nullptr && pair->first == 7 && pair->second == -2;
     }},
};

TEST(ParcelLayout, EachItemHasItsBytesAndReadsBack)
{
    for (const Item& item : ITEMS) {
        SCOPED_TRACE(item.name);
        Parcel parcel;
        ASSERT_TRUE(parcel.WriteInt32(-1));  // not first, to see that nothing aligns
        ASSERT_TRUE(item.write(parcel));
        EXPECT_EQ(Bytes(parcel), "\xff\xff\xff\xff"s + item.bytes);
        EXPECT_EQ(parcel.ReadInt32(), -1);
        EXPECT_TRUE(item.readsBack(parcel));
        EXPECT_EQ(parcel.GetReadableBytes(), 0u);
    }
}

TEST(ParcelLimit, EachWriteFitsExactlyOrAddsNothing)
{
    for (const Item& item : ITEMS) {
        SCOPED_TRACE(item.name);
        for (const size_t filler : {size_t{4}, size_t{2000}}) {  // within the first buffer, and where it has to grow
            for (const bool fits : {true, false}) {
                Parcel parcel;
                while (parcel.GetDataSize() < filler) {
                    ASSERT_TRUE(parcel.WriteInt32(0));
                }
                parcel.SetCapacityLimit(filler + item.bytes.size() - (fits ? 0 : 1));
                EXPECT_EQ(item.write(parcel), fits);
                if (std::string(item.name) != "record") {  // a record keeps what was written before the failure
                    EXPECT_EQ(parcel.GetDataSize(), filler + (fits ? item.bytes.size() : 0));
                }
                parcel.SetCapacityLimit(Parcel::MAX_DATA_BYTES);
                EXPECT_TRUE(parcel.WriteInt32(1)) << "a raised limit counts at once";
            }
        }
    }
}

TEST(ParcelLimit, LargestParcelIsWholeAndNoByteMore)
{
    Parcel parcel;
    const std::string text(Parcel::MAX_DATA_BYTES - 8, 'x');
    EXPECT_FALSE(parcel.WriteString(text + "yyyy"));
    EXPECT_TRUE(parcel.WriteString(text));
    EXPECT_EQ(parcel.GetDataSize(), Parcel::MAX_DATA_BYTES);
    EXPECT_FALSE(parcel.WriteInt32(0));
    EXPECT_EQ(parcel.ReadString(), text);
}

#ifndef TAVO_SANITIZED  // The sanitizers reserve more address space than any limit.
TEST(ParcelLimit, LargeParcelWithoutMemoryKeepsItsContent)
{
    constexpr size_t ROOM_BYTES = size_t{24} << 20;
    const std::string piece(size_t{1} << 20, 'x');
    size_t pagesInUse = 0;
    ASSERT_TRUE(std::ifstream("/proc/self/statm") >> pagesInUse);
    const rlimit limited{pagesInUse * 4096 + ROOM_BYTES, RLIM_INFINITY};
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &limited), 0);
    if (void* const beyond = ::mmap(nullptr, 2 * ROOM_BYTES, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        beyond != MAP_FAILED) {
        GTEST_SKIP() << "this emulator does not limit memory";
    }
    Parcel parcel;
    size_t pieces = 0;
    while (parcel.WriteString(piece)) {
        ++pieces;
    }
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(::setrlimit(RLIMIT_AS, &unlimited), 0);
    EXPECT_GE(pieces, 4U) << "a large parcel";
    EXPECT_LT(pieces * piece.size(), ROOM_BYTES);
    for (; pieces > 0; --pieces) {
        EXPECT_EQ(parcel.ReadString(), piece);
    }
}
#endif

TEST(ParcelLimit, TextsAndBuffersBeyondTheLengthFieldAreRefusedUnread)
{
    const size_t units = size_t{std::numeric_limits<int32_t>::max()} + 1;
    Parcel parcel;  // the bytes are not there: only their lengths may be looked at
    EXPECT_FALSE(parcel.WriteString({"", units}));
    EXPECT_FALSE(parcel.WriteString({"", units - 1}));
    EXPECT_FALSE(parcel.WriteString16({u"", units}));
    EXPECT_FALSE(parcel.WriteString16({u"", units - 1}));
    EXPECT_FALSE(parcel.WriteBuffer("", units));
    EXPECT_FALSE(parcel.WriteBuffer("", units - 1));
    EXPECT_EQ(parcel.GetDataSize(), 0u);
}

// Texts and buffers with a wrong length read as nothing, and the cursor stays where it was.
TEST(ParcelHostile, BadTextsAndBuffersAreRefusedInPlace)
{
    const struct {
        const char* name;
        std::string bytes;
        bool isString;    // whether it is good as a String
        bool isString16;  // and as a String16
        bool isBuffer;    // and as a Buffer
    } rows[] = {
        {"nothing", "", false, false, false},
        {"part of a length", "\1\0\0"s, false, false, false},
        {"length only", "\0\0\0\0"s, false, false, true},
        {"length -1", "\xff\xff\xff\xff\0\0\0\0\0\0\0\0"s, false, false, false},
        {"length INT_MIN", "\0\0\0\x80\0\0\0\0\0\0\0\0"s, false, false, false},
        {"length INT_MAX", "\xff\xff\xff\x7f\0\0\0\0\0\0\0\0"s, false, false, false},
        {"length 2^30 - 1, whose bytes are 2^31", "\xff\xff\xff\x3f\0\0\0\0\0\0\0\0"s, false, false, false},
        {"bytes cut off", "\4\0\0\0abc"s, false, false, false},
        {"fill of 3 bytes cut off", "\3\0\0\0abc"s, false, false, false},
        {"no room for the NUL", "\4\0\0\0abcd"s, false, false, true},
        {"no NUL", "\3\0\0\0abcdefgh"s, false, false, true},
        {"NUL is the low byte only", "\3\0\0\0abc\0ef\0h"s, true, false, true},
        {"fill cut off", "\4\0\0\0abcd\0\0\0"s, false, false, true},
        {"odd end of a String16", "\2\0\0\0ab\0\0\0\0\0"s, true, false, true},
        {"all three", "\1\0\0\0a\0\0\0"s, true, true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Parcel parcel;
        ASSERT_TRUE(parcel.SetData(row.bytes.data(), row.bytes.size()));
        std::string text = "kept";
        EXPECT_EQ(parcel.ReadString(text), row.isString);
        EXPECT_EQ(parcel.GetReadPosition() == 0, !row.isString);
        EXPECT_EQ(text == "kept", !row.isString);
        ASSERT_TRUE(parcel.SetReadPosition(0));
        std::u16string text16 = u"kept";
        EXPECT_EQ(parcel.ReadString16(text16), row.isString16);
        EXPECT_EQ(parcel.GetReadPosition() == 0, !row.isString16);
        EXPECT_EQ(text16 == u"kept", !row.isString16);
        ASSERT_TRUE(parcel.SetReadPosition(0));
        std::vector<uint8_t> buffer(9);
        EXPECT_EQ(parcel.ReadBuffer(buffer), row.isBuffer);
        EXPECT_EQ(parcel.GetReadPosition() == 0, !row.isBuffer);
        EXPECT_EQ(buffer.size() == 9, !row.isBuffer);
    }
}

TEST(ParcelHostile, ShortScalarsAndPlacesBesideASlotAreRefused)
{
    Parcel parcel;
    ASSERT_TRUE(parcel.SetData("\1\2\3\4\5\6\7", 7));
    int64_t wide = 9;
    EXPECT_FALSE(parcel.ReadInt64(wide));
    EXPECT_EQ(wide, 9);
    EXPECT_EQ(parcel.ReadUint64(), 0u);
    EXPECT_EQ(parcel.ReadDouble(), 0.0);
    EXPECT_EQ(parcel.ReadInt32(), 0x04030201);
    EXPECT_EQ(parcel.ReadInt32(), 0);
    EXPECT_FALSE(parcel.ReadBool());
    for (const size_t wrong : {size_t{2}, size_t{8}, size_t{12}, std::numeric_limits<size_t>::max() - 3}) {
        EXPECT_FALSE(parcel.SetReadPosition(wrong));
    }
    EXPECT_EQ(parcel.GetReadPosition(), 4u);
}

}  // namespace
}  // namespace TAVO
