// SPDX-License-Identifier: Apache-2.0
// Writes down what a parcel holds, item by item, and compares.
#ifndef VELTRA_TESTS_SUPPORT_PARCEL_ITEMS_H
#define VELTRA_TESTS_SUPPORT_PARCEL_ITEMS_H

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "tavo/message_parcel.h"

namespace TAVO::Veltra {

// Int32 (Bool, Uint32), Int64 (Uint64), String or a remote object.
using Item = std::variant<int32_t, int64_t, std::string, sptr<IRemoteObject>>;
using Items = std::vector<Item>;

Items operator+(Items left, const Items& right);
Items Times(size_t count, const Items& items);

// Reads the parcel to its end: fails the test at the first item that differs and when anything is left over.
void ExpectItems(Parcel& parcel, const Items& items);
void WriteItems(Parcel& parcel, const Items& items);
// The bytes of a parcel that holds them.
std::string Bytes(const Parcel& parcel);
std::string Bytes(const Items& items);

}  // namespace TAVO::Veltra

#endif
