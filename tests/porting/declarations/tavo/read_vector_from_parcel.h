// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_READ_VECTOR_FROM_PARCEL_H
#define PORTING_READ_VECTOR_FROM_PARCEL_H

#include <vector>

#include "tavo/parcel.h"

namespace TAVO {

template <typename T>
PLATFORM_NAME("ReadVectorFromParcel")
bool ReadVectorFromParcel(Parcel& parcel, std::vector<T>& out);

}  // namespace TAVO

#endif
