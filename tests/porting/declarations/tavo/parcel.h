// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_PARCEL_H
#define PORTING_PARCEL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

namespace TAVO {

template <typename T>
class PLATFORM_NAME("sptr") sptr {
public:
    sptr();
    PLATFORM_NAME("sptr(nullptr)") sptr(std::nullptr_t);
    PLATFORM_NAME("sptr(T*)") sptr(T* object);
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    PLATFORM_NAME("sptr(sptr<U>)")
    sptr(const sptr<U>& other);
    PLATFORM_NAME("sptr::operator->") T* operator->() const;
    PLATFORM_NAME("sptr::operator*") T& operator*() const;
};

template <typename T>
PLATFORM_NAME("sptr == nullptr")
bool operator==(const sptr<T>& left, std::nullptr_t);
template <typename T>
PLATFORM_NAME("sptr != nullptr")
bool operator!=(const sptr<T>& left, std::nullptr_t);

template <typename T>
class PLATFORM_NAME("wptr") wptr {
};

class Parcel;

class PLATFORM_NAME("Parcelable") Parcelable {
public:
    virtual ~Parcelable();
    PLATFORM_NAME("Parcelable::Marshalling") virtual bool Marshalling(Parcel& parcel) const;
};

class PLATFORM_NAME("Parcel") Parcel {
public:
    PLATFORM_NAME("Parcel::WriteInt32") bool WriteInt32(int32_t value);
    PLATFORM_NAME("Parcel::WriteUint32") bool WriteUint32(uint32_t value);
    PLATFORM_NAME("Parcel::WriteInt64") bool WriteInt64(int64_t value);
    PLATFORM_NAME("Parcel::WriteUint64") bool WriteUint64(uint64_t value);
    PLATFORM_NAME("Parcel::WriteString") bool WriteString(const std::string& value);
    PLATFORM_NAME("Parcel::WriteParcelable") bool WriteParcelable(const Parcelable* record);
    PLATFORM_NAME("Parcel::ReadBool()") bool ReadBool();
    PLATFORM_NAME("Parcel::ReadInt32()") int32_t ReadInt32();
    PLATFORM_NAME("Parcel::ReadInt32(value)") bool ReadInt32(int32_t& value);
    PLATFORM_NAME("Parcel::ReadUint32(value)") bool ReadUint32(uint32_t& value);
    PLATFORM_NAME("Parcel::ReadInt64(value)") bool ReadInt64(int64_t& value);
    PLATFORM_NAME("Parcel::ReadUint64(value)") bool ReadUint64(uint64_t& value);
    PLATFORM_NAME("Parcel::ReadString()") std::string ReadString();
    PLATFORM_NAME("Parcel::ReadString(value)") bool ReadString(std::string& value);
};

}  // namespace TAVO

#endif
