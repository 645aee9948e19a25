// SPDX-License-Identifier: Apache-2.0
// What a game implements to receive what the service sends by itself.
#ifndef VELTRA_CALLBACKS_H
#define VELTRA_CALLBACKS_H

#include <cstdint>
#include <string>
#include <vector>

#include "veltra_export.h"
#include "veltra_records.h"

namespace TAVO::Veltra {

// Rules for all four. The library owns the object from the call that was given it. It destroys it when it is replaced,
// when its subscription ends or when that call fails; where the service still holds the way to it, or a delivery is
// running, as soon as that is over, on a platform thread perhaps. The operation runs on a platform thread, with all
// signals blocked and under a lock of the library: calls of one object never overlap, and the object is not destroyed
// while it runs. So it must not register, unregister, start or stop the same kind of subscription, and neither must a
// destructor: for game events that would never return. It should be quick, since the next delivery waits for it. Other
// operations of the library may be called. Arguments live until it returns. An exception counts as a failure, goes no
// further and leaves a warning in the log.

class VELTRA_EXPORT GameEventCallbackBase {
public:
    virtual ~GameEventCallbackBase() = default;
    // One game event. Every registered callback gets each event, by ascending key, one after the other; a non-zero
    // result is only logged.
    virtual int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) = 0;
};

// Receives GPU counters: StartGetGpuPerfInfo.
class VELTRA_EXPORT GpuCounterCallBackBase {
public:
    virtual ~GpuCounterCallBackBase() = default;
    // One batch of samples, oldest first, at most 524288. It may be changed or moved from. The result goes back to the
    // service.
    virtual int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) = 0;
};

// Receives priorities: GetAppPrioritys.
class VELTRA_EXPORT GetAppPrioritysCallbackBase {
public:
    virtual ~GetAppPrioritysCallbackBase() = default;
    // The answer to one GetAppPrioritys, at most 100 texts. It may be changed or moved from. The result goes back to
    // the service.
    virtual int32_t OnGetAppPrioritys(std::vector<std::string>& list) = 0;
};

// Receives resource information: QueryAppResourceInfos.
class VELTRA_EXPORT QueryAppResourceInfoCallbackBase {
public:
    virtual ~QueryAppResourceInfoCallbackBase() = default;
    // The answer to one QueryAppResourceInfos, at most 524288 records. The result goes back to the service.
    virtual int32_t OnQueryAppResourceInfos(const AppResourceInfos& infos) = 0;
};

}  // namespace TAVO::Veltra

#endif
