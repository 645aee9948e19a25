// SPDX-License-Identifier: Apache-2.0
// What the list reader costs for the longest list, beside a reader written by hand into a new vector.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "row.h"
#include "tavo/message_parcel.h"
#include "tavo/read_vector_from_parcel.h"
#include "veltra_records.h"

namespace {

using TAVO::Veltra::GpuPerfInfo;

constexpr int ROUNDS = 15;

template <typename T>
void Take(const uint8_t*& from, T& field)
{
    std::memcpy(&field, from, sizeof(field));
    from += sizeof(field);
}

// Flag, count, then marker and sixteen fields an element; no more checks than the total length.
size_t ReadByHand(const TAVO::Parcel& parcel)
{
    const uint8_t* from = parcel.GetData();
    int32_t flag = 0;
    int32_t count = 0;
    Take(from, flag);
    Take(from, count);
    std::vector<GpuPerfInfo> list;
    for (int32_t i = 0; i < count; ++i) {
        int32_t marker = 0;
        Take(from, marker);
        GpuPerfInfo& info = list.emplace_back();
        Take(from, info.long1);
        Take(from, info.long2);
        Take(from, info.int1);
        Take(from, info.uint1);
        Take(from, info.uint2);
        Take(from, info.ulong1);
        Take(from, info.ulong2);
        Take(from, info.ulong3);
        Take(from, info.uint3);
        Take(from, info.uint4);
        Take(from, info.uint5);
        Take(from, info.uint6);
        Take(from, info.uint7);
        Take(from, info.uint8);
        Take(from, info.uint9);
        Take(from, info.uint10);
    }
    return list.size();
}

size_t ReadByLibrary(TAVO::Parcel& parcel)
{
    std::vector<GpuPerfInfo> list;
    parcel.SetReadPosition(0);
    return TAVO::ReadVectorFromParcel(parcel, list) ? list.size() : 0;
}

template <typename Reader>
double Milliseconds(Reader reader)
{
    const double start = Bench::Now();
    if (reader() != static_cast<size_t>(TAVO::MAX_LIST_ELEMENTS)) {
        std::fprintf(stderr, "bench: the list was not read\n");
        std::exit(1);
    }
    return (Bench::Now() - start) * 1e3;
}

}  // namespace

int main()
{
    std::vector<GpuPerfInfo> list(TAVO::MAX_LIST_ELEMENTS);
    for (size_t i = 0; i < list.size(); ++i) {
        list[i].long1 = static_cast<int64_t>(i);
        list[i].uint10 = static_cast<uint32_t>(i);
    }
    TAVO::MessageParcel parcel;
    if (!TAVO::WriteVectorToParcel(parcel, list)) {
        return 1;
    }
    std::vector<GpuPerfInfo>().swap(list);
    Bench::MeasureAndPrint(
        {"gpu_decode", "ms", 0.9}, ROUNDS, [&] { return Milliseconds([&] { return ReadByLibrary(parcel); }); },
        [&] { return Milliseconds([&] { return ReadByHand(parcel); }); });
    return 0;
}
