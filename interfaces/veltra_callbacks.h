// SPDX-License-Identifier: Apache-2.0
// Base classes that a game implements to receive events, samples and answers of the service.
#ifndef VELTRA_CALLBACKS_H
#define VELTRA_CALLBACKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "veltra_export.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// Rules for all four.
// - Ownership: the library owns the object from the call that received it. It destroys the object when it is replaced,
//   when its subscription ends, or when that call fails. If the service still holds a reference to it, or a delivery is
//   running, the object is destroyed when that ends, perhaps on a platform thread.
// - Thread: the operation runs on a platform thread that blocks all signals except those of a fault (SIGSEGV, SIGBUS,
//   SIGFPE, SIGILL, SIGTRAP, SIGSYS), and under a lock of the library. Calls of one object never overlap, and the object
//   is not destroyed while one runs. The next delivery waits for it, so it should return quickly.
// - It must not register, unregister, start or stop the same kind of subscription, and neither must the destructor: for
//   game events that would never return. It may call other operations of the library.
// - Arguments are valid until it returns. An exception counts as a failure; it is caught and logged as a warning.

class VELTRA_EXPORT GameEventCallbackBase {
public:
    virtual ~GameEventCallbackBase() = default;
    // Receives one game event. Each event is passed to every registered callback, one after the other, by ascending
    // key. A result other than 0 is only logged.
    virtual int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) = 0;
};

// Receives GPU counters: StartGetGpuPerfInfo.
class VELTRA_EXPORT GpuCounterCallBackBase {
public:
    virtual ~GpuCounterCallBackBase() = default;
    // Receives one batch of samples, oldest first, at most 524288. It may be changed or moved from. The result is
    // returned to the service.
    virtual int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) = 0;
};

// Receives priorities: GetAppPrioritys.
class VELTRA_EXPORT GetAppPrioritysCallbackBase {
public:
    virtual ~GetAppPrioritysCallbackBase() = default;
    // Receives the answer to one GetAppPrioritys, at most 100 texts. It may be changed or moved from. The result is
    // returned to the service.
    virtual int32_t OnGetAppPrioritys(std::vector<std::string>& list) = 0;
};

// Receives resource information: QueryAppResourceInfos.
class VELTRA_EXPORT QueryAppResourceInfoCallbackBase {
public:
    virtual ~QueryAppResourceInfoCallbackBase() = default;
    // Receives the answer to one QueryAppResourceInfos, at most 524288 records. The result is returned to the service.
    virtual int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) = 0;
};

}  // namespace TAVO::Veltra

#endif
