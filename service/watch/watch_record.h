// SPDX-License-Identifier: Apache-2.0
// One event in the service that watchers receive, and its form as a line of JSON.
#ifndef VELTRA_SERVICE_WATCH_RECORD_H
#define VELTRA_SERVICE_WATCH_RECORD_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "watch/note.h"

namespace TAVO::Veltra {

struct WatchRecord {
    using Clock = std::chrono::steady_clock;

    enum class Kind : uint8_t { CALL, PUSH, DEVICE, GAME, SIMULATION };
    static constexpr size_t KINDS = 5;
    static constexpr size_t MAX_LINE_BYTES = size_t{16} << 10;

    Kind kind = Kind::CALL;
    bool isOneWay = false;     // CALL
    pid_t process = 0;         // whom it is about; DEVICE, SIMULATION: 0
    const char* name = "";     // CALL: the operation; PUSH: what; GAME: the event
    int32_t code = 0;          // CALL: the result; PUSH: the status
    int64_t microseconds = 0;  // since the epoch, when it was over
    Clock::duration duration{0};
    Note values;  // CALL: arguments; PUSH: data; DEVICE: values; SIMULATION: the command
    Note reply;   // CALL; may be empty

    // ASCII, with '\n' at the end. One that would be longer than MAX_LINE_BYTES has no values and no reply.
    std::string Line() const;
};

}  // namespace TAVO::Veltra

#endif
