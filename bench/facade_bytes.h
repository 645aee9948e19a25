// SPDX-License-Identifier: Apache-2.0
// What the operations measured put on the wire: the raw rows move the same bytes.
#ifndef VELTRA_BENCH_FACADE_BYTES_H
#define VELTRA_BENCH_FACADE_BYTES_H

#include <cstddef>

namespace Bench {

constexpr size_t HEADER_BYTES = 32;
constexpr size_t TOKEN_BYTES = 80;

// Length, the bytes, a zero, filled up to four.
constexpr size_t TextBytes(size_t length)
{
    return 4 + (length / 4 + 1) * 4;
}

// CallAuth
constexpr size_t CALL_AUTH_TEXT_BYTES = 64;
constexpr size_t CALL_AUTH_REQUEST_BYTES = HEADER_BYTES + TOKEN_BYTES + TextBytes(CALL_AUTH_TEXT_BYTES);
constexpr size_t CALL_AUTH_REPLY_BYTES = HEADER_BYTES + 4;

// ReportGameEvent: two numbers and six texts
constexpr size_t EVENT_TEXT_BYTES = 24;
constexpr size_t EVENT_BYTES = HEADER_BYTES + TOKEN_BYTES + 4 + 8 + 6 * TextBytes(EVENT_TEXT_BYTES);

}  // namespace Bench

#endif
