// SPDX-License-Identifier: Apache-2.0
// The service's own result codes, beside 0 and those that the client library knows.
#ifndef SERVICE_RESULT_H
#define SERVICE_RESULT_H

#include <cstdint>

namespace TAVO::Veltra {

// The request is short, or a count, a text or a record in it is beyond its bounds. Nothing was done.
constexpr int32_t SERVICE_BAD_REQUEST = 1010310101;
// This service does not offer the operation. Nothing was kept: no callback object, no query.
constexpr int32_t SERVICE_NOT_SUPPORTED = 1010310102;
// The machine reports no value of its state.
constexpr int32_t SERVICE_NO_SENSOR = 1010310103;
// The caller is not of the user that runs the service.
constexpr int32_t SERVICE_DENIED = 1010310104;
// No descriptor, memory or thread was left for what the request needs, too many answers wait for the caller, or the
// caller has ended. Nothing was done.
constexpr int32_t SERVICE_NO_RESOURCES = 1010310105;
// There is no subscription to end.
constexpr int32_t SERVICE_NOT_SUBSCRIBED = 1010310106;
// The machine has no GPU whose counters can be read. Nothing was kept.
constexpr int32_t SERVICE_NO_GPU_COUNTERS = 1010310107;

}  // namespace TAVO::Veltra

#endif
