// SPDX-License-Identifier: Apache-2.0
// How the service reports what it does to a process that watches it.
#ifndef VELTRA_CONTROL_IVELTRA_WATCHER_H
#define VELTRA_CONTROL_IVELTRA_WATCHER_H

#include <cstdint>
#include <string>

#include <tavo/iremote_broker.h>

namespace TAVO::Veltra {

class IVeltraWatcher : public IRemoteBroker {
public:
    TAVO_DECLARE_DESCRIPTOR(u"TAVO.Veltra.IVeltraWatcher")

    // One-way: String lines, Uint64 dropped. `lines`: records as JSON Lines, each with '\n' behind it, at most
    // MAX_WATCH_BATCH_BYTES together; may be empty. `dropped`: how many records this watcher has lost since the batch
    // before. The result stays in the sender's process: 0, or the status of the request.
    virtual int32_t OnRecords(const std::string& lines, uint64_t dropped) = 0;
};

}  // namespace TAVO::Veltra

#endif
