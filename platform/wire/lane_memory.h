// SPDX-License-Identifier: Apache-2.0
// The shared memory of a lane: the end that receives its requests creates it, the other end opens it.
#ifndef TAVO_WIRE_LANE_MEMORY_H
#define TAVO_WIRE_LANE_MEMORY_H

#include <atomic>
#include <cstdint>
#include <new>

#include "os/fd.h"
#include "wire/shared_memory.h"
#include "wire/wire.h"

namespace TAVO::Transport {

// `Layout` has the members `owner` and `lane`: the number of a descriptor may belong to another file by the time the
// other end opens it, so it compares these two.
template <typename Layout>
class LaneMemory {
public:
    // Creates it for a lane to the process `self`. Not open if there is no memory or descriptor, or `most` of this kind
    // were created by this process and are there.
    LaneMemory(const Instance& self, uint64_t lane, int most)
        : isCreator_(true),
          fd_(++created_ <= most ? CreateSharedMemory(sizeof(Layout)) : UniqueFd()),
          mapping_(fd_.Get(), sizeof(Layout))
    {
        if (IsOpen()) {
            auto* const layout = new (mapping_.Get()) Layout;
            layout->owner = self;
            layout->lane = lane;
        }
    }
    // Opens what process `pid` has created as `fd`. Not open if that is not what `owner` creates for `lane`, or not
    // reachable.
    LaneMemory(int pid, uint64_t fd, const Instance& owner, uint64_t lane)
        : isCreator_(false), fd_(OpenSharedMemory(pid, fd, sizeof(Layout))), mapping_(fd_.Get(), sizeof(Layout))
    {
        CloseFd();
        isOthers_ = IsOpen() && (Get().owner != owner || Get().lane != lane);
    }
    ~LaneMemory()
    {
        if (isCreator_) {
            --created_;
        }
    }
    LaneMemory(const LaneMemory&) = delete;
    LaneMemory& operator=(const LaneMemory&) = delete;

    bool IsOpen() const noexcept { return mapping_.Get() != nullptr && !isOthers_; }
    // Only while it is open. The other end may change any of it at any time.
    Layout& Get() const noexcept { return *static_cast<Layout*>(mapping_.Get()); }

    // The creator's, until the other end has it.
    int Fd() const noexcept { return fd_.Get(); }
    void CloseFd() noexcept { fd_.Reset(); }

private:
    static inline std::atomic<int> created_{0};

    const bool isCreator_;
    bool isOthers_ = false;
    UniqueFd fd_;
    const SharedMapping mapping_;
};

}  // namespace TAVO::Transport

#endif
