// SPDX-License-Identifier: Apache-2.0
// What the fuzz programs share: parcels made of the input, and the end of a run that breaks a promise.
#ifndef VELTRA_FUZZ_INPUT_H
#define VELTRA_FUZZ_INPUT_H

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/parcel_access.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/message_parcel.h"

namespace Fuzz {

constexpr size_t MAX_TEXT = 40;

inline void Require(bool holds, const char* promise)
{
    if (!holds) {
        std::fprintf(stderr, "fuzz: broken promise: %s\n", promise);
        std::abort();
    }
}

inline std::string TakeText(FuzzedDataProvider& input)
{
    return input.ConsumeRandomLengthString(MAX_TEXT);
}

inline std::u16string TakeText16(FuzzedDataProvider& input)
{
    const std::string text = TakeText(input);
    return std::u16string(text.begin(), text.end());
}

// Appends up to `most` items of any kind, as an honest sender writes them; the small numbers serve as counts and flags.
inline void WriteItems(FuzzedDataProvider& input, TAVO::MessageParcel& parcel, int most = 32)
{
    for (int i = 0; i < most && input.remaining_bytes() > 0; ++i) {
        switch (input.ConsumeIntegralInRange(0, 5)) {
            case 0:
                parcel.WriteInt32(input.ConsumeIntegralInRange(-1, 110));
                break;
            case 1:
                parcel.WriteInt32(input.ConsumeIntegral<int32_t>());
                break;
            case 2:
                parcel.WriteInt64(input.ConsumeIntegral<int64_t>());
                break;
            case 3:
                parcel.WriteString(TakeText(input));
                break;
            case 4:
                parcel.WriteRemoteObject(TAVO::MakeRef<TAVO::IPCObjectStub>());
                break;
            default:
                parcel.WriteString16(TakeText16(input));
                break;
        }
    }
}

// Half of the time overwrites a slot, or cuts the data off at any byte, or both. False when nothing changed.
inline bool Damage(FuzzedDataProvider& input, TAVO::MessageParcel& parcel)
{
    const size_t size = parcel.GetDataSize();
    if (size < TAVO::Parcel::SLOT || input.ConsumeBool()) {
        return false;
    }
    std::vector<uint8_t> bytes(parcel.GetData(), parcel.GetData() + size);
    const size_t at = input.ConsumeIntegralInRange<size_t>(0, size / TAVO::Parcel::SLOT - 1) * TAVO::Parcel::SLOT;
    const std::vector<uint8_t> slot = input.ConsumeBytes<uint8_t>(TAVO::Parcel::SLOT);
    std::copy(slot.begin(), slot.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    bytes.resize(input.ConsumeBool() ? input.ConsumeIntegralInRange<size_t>(0, size) : size);
    parcel.SetData(bytes.data(), bytes.size());
    return true;
}

}  // namespace Fuzz

#endif
