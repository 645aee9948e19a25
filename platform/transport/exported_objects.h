// SPDX-License-Identifier: Apache-2.0
// The objects of this process that have a name on the wire.
#ifndef TAVO_TRANSPORT_EXPORTED_OBJECTS_H
#define TAVO_TRANSPORT_EXPORTED_OBJECTS_H

#include <cstdint>
#include <unordered_map>

#include "tavo/ipc_object_stub.h"
#include "tavo/mutex.h"
#include "transport/object_gate.h"

namespace TAVO::Transport {

// Holds no references but the root's. Any thread.
class ExportedObjects {
public:
    // The object's serial, assigned at its first export and never used again.
    uint64_t Add(const sptr<IPCObjectStub>& object);
    sptr<IPCObjectStub> Find(uint64_t serial);
    // The object with that gate is being destroyed.
    void Remove(const ObjectGate& gate) noexcept;

    // The manager process's root object; null elsewhere.
    sptr<IPCObjectStub> Root();
    void SetRoot(const sptr<IPCObjectStub>& root);

private:
    Mutex mutex_;  // nothing is called or released under it
    uint64_t lastSerial_ TAVO_GUARDED_BY(mutex_) = 0;
    std::unordered_map<uint64_t, wptr<IPCObjectStub>> objects_ TAVO_GUARDED_BY(mutex_);  // by serial
    sptr<IPCObjectStub> root_ TAVO_GUARDED_BY(mutex_);
};

}  // namespace TAVO::Transport

#endif
