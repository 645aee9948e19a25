// SPDX-License-Identifier: Apache-2.0
// Memory that two processes share: one creates it, the other opens it by the number of its descriptor.
#ifndef TAVO_WIRE_SHARED_MEMORY_H
#define TAVO_WIRE_SHARED_MEMORY_H

#include <cstddef>
#include <cstdint>

#include "os/fd.h"

namespace TAVO::Transport {

// All of it allocated, sealed against a change of its size, close-on-exec. Not open if memory or descriptors are short.
UniqueFd CreateSharedMemory(size_t bytes);
// Opens what process `pid` created as descriptor `fd`. Never waits. Not open unless it is sealed memory of this size.
UniqueFd OpenSharedMemory(int pid, uint64_t fd, size_t bytes);

// A mapping of it. Stays valid when the descriptor is closed.
class SharedMapping {
public:
    SharedMapping(int fd, size_t bytes);
    ~SharedMapping();
    SharedMapping(const SharedMapping&) = delete;
    SharedMapping& operator=(const SharedMapping&) = delete;

    void* Get() const noexcept { return memory_; }  // null: it could not be mapped

private:
    const size_t bytes_;
    void* memory_;
};

}  // namespace TAVO::Transport

#endif
