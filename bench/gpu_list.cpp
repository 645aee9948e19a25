// SPDX-License-Identifier: Apache-2.0
#include "gpu_list.h"

#include <cstring>

#include "tavo/large_pages.h"
#include "tavo/read_vector_from_parcel.h"

namespace Bench {

using TAVO::Veltra::GpuPerfInfo;

namespace {

template <typename T>
void Take(const uint8_t*& from, T& field)
{
    std::memcpy(&field, from, sizeof(field));
    from += sizeof(field);
}

}  // namespace

bool WriteFullList(TAVO::Parcel& parcel)
{
    std::vector<GpuPerfInfo> list(TAVO::MAX_LIST_ELEMENTS);
    for (size_t i = 0; i < list.size(); ++i) {
        list[i].long1 = static_cast<int64_t>(i);
        list[i].uint10 = static_cast<uint32_t>(i);
    }
    return TAVO::WriteVectorToParcel(parcel, list);
}

std::vector<GpuPerfInfo> ReadListByHand(const uint8_t* from, size_t sizeBytes)
{
    int32_t flag = 0;
    int32_t count = 0;
    if (sizeBytes < sizeof(flag) + sizeof(count)) {
        return {};
    }
    Take(from, flag);
    Take(from, count);
    const size_t elementBytes = sizeof(int32_t) + GpuPerfInfo::FIXED_PARCEL_BYTES;
    if (flag != 1 || count < 0 || count > TAVO::MAX_LIST_ELEMENTS ||
        static_cast<size_t>(count) > (sizeBytes - sizeof(flag) - sizeof(count)) / elementBytes) {
        return {};
    }
    std::vector<GpuPerfInfo> list;
    list.reserve(static_cast<size_t>(count));
    TAVO::UseLargePages(list.data(), list.capacity() * sizeof(GpuPerfInfo));
    for (int32_t i = 0; i < count; ++i) {
        int32_t marker = 0;
        Take(from, marker);
        if (marker == 0) {
            return {};
        }
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
    return list;
}

}  // namespace Bench
