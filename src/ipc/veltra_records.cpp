// SPDX-License-Identifier: Apache-2.0
// The encodings of the records that travel in lists: field after field, without tags, so order and types are the whole
// contract between library and service. Reading stops at the first field that is missing.
#include "veltra_records.h"

#include <memory>
#include <new>

namespace TAVO::Veltra {
namespace {

template <typename Record>
Record* NewFrom(Parcel& parcel)
try {
    std::unique_ptr<Record> record(new (std::nothrow) Record());
    return record != nullptr && record->ReadFields(parcel) ? record.release() : nullptr;
} catch (...) {  // no memory for a text
    return nullptr;
}

}  // namespace

AppResourceInfo::AppResourceInfo() = default;

bool AppResourceInfo::Marshalling(Parcel& parcel) const
{
    return parcel.WriteString(text1) && parcel.WriteInt32(int1) && parcel.WriteInt32(int2) &&
           parcel.WriteString(text2) && parcel.WriteString(text3) && parcel.WriteInt64(long1) &&
           parcel.WriteInt32(int3) && parcel.WriteString(text4);
}

bool AppResourceInfo::ReadFields(Parcel& parcel)
{
    return parcel.ReadString(text1) && parcel.ReadInt32(int1) && parcel.ReadInt32(int2) && parcel.ReadString(text2) &&
           parcel.ReadString(text3) && parcel.ReadInt64(long1) && parcel.ReadInt32(int3) && parcel.ReadString(text4);
}

AppResourceInfo* AppResourceInfo::Unmarshalling(Parcel& parcel)
{
    return NewFrom<AppResourceInfo>(parcel);
}

GpuPerfInfo::GpuPerfInfo() = default;

bool GpuPerfInfo::Marshalling(Parcel& parcel) const
{
    return parcel.WriteInt64(long1) && parcel.WriteInt64(long2) && parcel.WriteInt32(int1) &&
           parcel.WriteUint32(uint1) && parcel.WriteUint32(uint2) && parcel.WriteUint64(ulong1) &&
           parcel.WriteUint64(ulong2) && parcel.WriteUint64(ulong3) && parcel.WriteUint32(uint3) &&
           parcel.WriteUint32(uint4) && parcel.WriteUint32(uint5) && parcel.WriteUint32(uint6) &&
           parcel.WriteUint32(uint7) && parcel.WriteUint32(uint8) && parcel.WriteUint32(uint9) &&
           parcel.WriteUint32(uint10);
}

// Lists of samples do not use this: the list reader copies samples of fixed size, up to 524,288 of them.
GpuPerfInfo* GpuPerfInfo::Unmarshalling(Parcel& parcel)
{
    return NewFrom<GpuPerfInfo>(parcel);
}

}  // namespace TAVO::Veltra
