// SPDX-License-Identifier: Apache-2.0
// The numbers on which the service and its tools agree: ability id, request codes and limits.
#ifndef VELTRA_CONTROL_CODES_H
#define VELTRA_CONTROL_CODES_H

#include <cstddef>
#include <cstdint>

namespace TAVO::Veltra {

// The system-ability id under which the manager knows the control side of a running service. It cannot be loaded: load
// the service itself, which registers this id shortly after its own.
constexpr int32_t VELTRA_CONTROL_SA_ID = 66007;

// Requests of IVeltraControl.
enum class ControlCode : uint32_t {
    DESCRIBE = 1,
    EXPLAIN = 2,
    WATCH = 3,
    UNWATCH = 4,
    SIMULATE = 5,
};

// Requests of IVeltraWatcher.
enum class WatcherCode : uint32_t {
    RECORDS = 1,  // one-way
};

// Longest texts, in bytes. The receiver refuses longer ones.
constexpr size_t MAX_CONTROL_FILTER_BYTES = size_t{16} << 10;
constexpr size_t MAX_CONTROL_COMMAND_BYTES = size_t{1} << 20;  // with a scenario in it, as long as a scenario's file
constexpr size_t MAX_CONTROL_ANSWER_BYTES = size_t{4} << 20;
// Of one batch of records: with its frame it has to fit a one-way request.
constexpr size_t MAX_WATCH_BATCH_BYTES = size_t{60} << 10;

}  // namespace TAVO::Veltra

#endif
