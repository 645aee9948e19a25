// SPDX-License-Identifier: Apache-2.0
// Does what was written read back, and does no read, whatever it meets, lead out of the data?
#include <functional>

#include "input.h"

namespace {

using Fuzz::Require;
using namespace TAVO;

// A read that fails stays where it is; one that succeeds moves on, by whole slots, within the data.
void RequireCursor(const Parcel& parcel, size_t before, bool isRead)
{
    const size_t now = parcel.GetReadPosition();
    Require(now <= parcel.GetDataSize() && parcel.GetReadableBytes() == parcel.GetDataSize() - now,
            "the cursor stays in the data");
    Require(isRead ? now > before && (now - before) % Parcel::SLOT == 0 : now == before,
            "reads move by whole items or not at all");
}

template <typename Value>
bool ReadOne(Parcel& parcel, bool (Parcel::*read)(Value&), Value& value)
{
    const size_t before = parcel.GetReadPosition();
    const bool isRead = (parcel.*read)(value);
    RequireCursor(parcel, before, isRead);
    return isRead;
}

template <typename Value>
void ReadAny(Parcel& parcel, bool (Parcel::*read)(Value&))
{
    Value value{};
    ReadOne(parcel, read, value);
}

void ReadAnything(FuzzedDataProvider& input, MessageParcel& parcel)
{
    const size_t before = parcel.GetReadPosition();
    switch (input.ConsumeIntegralInRange(0, 8)) {
        case 0:
            return ReadAny(parcel, &Parcel::ReadBool);
        case 1:
            return ReadAny(parcel, &Parcel::ReadInt32);
        case 2:
            return ReadAny(parcel, &Parcel::ReadUint64);
        case 3:
            return ReadAny(parcel, &Parcel::ReadString);
        case 4:
            return ReadAny(parcel, &Parcel::ReadString16);
        case 5:
            return ReadAny(parcel, &Parcel::ReadBuffer);
        case 6:
            return ReadAny(parcel, &Parcel::ReadDouble);
        case 7:
            return RequireCursor(parcel, before, parcel.ReadRemoteObject() != nullptr);
        default: {
            const size_t to = input.ConsumeIntegralInRange<size_t>(0, 2 * parcel.GetDataSize());
            const bool isMoved = parcel.SetReadPosition(to);
            Require(isMoved == (to <= parcel.GetDataSize() && to % Parcel::SLOT == 0),
                    "moves are to slots of the data");
            Require(parcel.GetReadPosition() == (isMoved ? to : before), "moves go where they should");
        }
    }
}

using Checks = std::vector<std::function<void()>>;

// Writes one value; the check reads it again.
template <typename Value, typename Argument>
void WriteOne(Checks& checks, Parcel& parcel, bool (Parcel::*write)(Argument), bool (Parcel::*read)(Value&),
              Value value)
{
    const size_t before = parcel.GetDataSize();
    if (!(parcel.*write)(value)) {
        Require(parcel.GetDataSize() == before, "a write that fails adds nothing");
        return;
    }
    Require(parcel.GetDataSize() <= parcel.GetCapacityLimit(), "writes keep the limit");
    checks.push_back([&parcel, value, read] {
        Value back{};
        Require(ReadOne(parcel, read, back) && back == value, "what was written reads back");
    });
}

void WriteObject(Checks& checks, MessageParcel& parcel)
{
    const sptr<IRemoteObject> object = MakeRef<IPCObjectStub>();
    if (parcel.WriteRemoteObject(object)) {
        checks.push_back([&parcel, object] { Require(parcel.ReadRemoteObject() == object, "references read back"); });
    }
}

void WriteBuffer(FuzzedDataProvider& input, Checks& checks, MessageParcel& parcel)
{
    const std::string text = Fuzz::TakeText(input);
    const std::vector<uint8_t> value(text.begin(), text.end());
    if (parcel.WriteBuffer(value.data(), value.size())) {
        checks.push_back([&parcel, value] { Require(parcel.ReadBuffer() == value, "buffers read back"); });
    }
}

void WriteAnything(FuzzedDataProvider& input, Checks& checks, MessageParcel& parcel)
{
    switch (input.ConsumeIntegralInRange(0, 6)) {
        case 0:
            return WriteOne(checks, parcel, &Parcel::WriteBool, &Parcel::ReadBool, input.ConsumeBool());
        case 1:
            return WriteOne(checks, parcel, &Parcel::WriteInt32, &Parcel::ReadInt32, input.ConsumeIntegral<int32_t>());
        case 2:
            return WriteOne(checks, parcel, &Parcel::WriteUint64, &Parcel::ReadUint64,
                            input.ConsumeIntegral<uint64_t>());
        case 3:
            return WriteOne(checks, parcel, &Parcel::WriteString, &Parcel::ReadString, Fuzz::TakeText(input));
        case 4:
            return WriteOne(checks, parcel, &Parcel::WriteString16, &Parcel::ReadString16, Fuzz::TakeText16(input));
        case 5:
            return WriteBuffer(input, checks, parcel);
        default:
            return WriteObject(checks, parcel);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    MessageParcel parcel;
    if (input.ConsumeBool()) {
        parcel.SetCapacityLimit(input.ConsumeIntegralInRange<size_t>(0, 2000));
    }
    Checks checks;
    for (int i = input.ConsumeIntegralInRange(0, 40); i > 0; --i) {
        WriteAnything(input, checks, parcel);
    }
    for (const auto& check : checks) {
        check();
    }
    Require(parcel.GetReadableBytes() == 0, "nothing but what was written");
    Fuzz::Damage(input, parcel);
    while (input.remaining_bytes() > 0) {
        ReadAnything(input, parcel);
    }
    return 0;
}
