// SPDX-License-Identifier: Apache-2.0
// The table finds an object by its serial and does not keep it alive: sessions whose peers hold it do. A serial is
// never used again, so a late message cannot reach another object.
#include "transport/exported_objects.h"

#include <utility>

namespace TAVO::Transport {

uint64_t ExportedObjects::Add(const sptr<IPCObjectStub>& object)
{
    ObjectGate& gate = ObjectGate::Of(*object);
    MutexLock lock(mutex_);
    if (gate.Serial() == 0) {
        // Inserted before the serial is set: if there is no memory, the object has none yet and the next message tries
        // again.
        objects_.emplace(lastSerial_ + 1, object);
        gate.SetSerial(++lastSerial_);
    }
    return gate.Serial();
}

sptr<IPCObjectStub> ExportedObjects::Find(uint64_t serial)
{
    MutexLock lock(mutex_);
    const auto found = objects_.find(serial);
    // Null as well for an object that is being destroyed on another thread.
    return found != objects_.end() ? found->second.promote() : nullptr;
}

void ExportedObjects::Remove(const ObjectGate& gate) noexcept
{
    MutexLock lock(mutex_);
    objects_.erase(gate.Serial());
}

sptr<IPCObjectStub> ExportedObjects::Root()
{
    MutexLock lock(mutex_);
    return root_;
}

void ExportedObjects::SetRoot(const sptr<IPCObjectStub>& root)
{
    // The old root is released after the lock: its destructor may call this table.
    sptr<IPCObjectStub> replaced = root;
    MutexLock lock(mutex_);
    std::swap(root_, replaced);
    lock.Unlock();
}

}  // namespace TAVO::Transport
