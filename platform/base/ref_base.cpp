// SPDX-License-Identifier: Apache-2.0
// An object has a strong count of its own; only one that a weak pointer was made from has an anchor, which both keep
// alive. When the strong count reaches zero the object first leaves the anchor, under the anchor's lock, and only then
// is deleted: a promotion holds the same lock while it raises the count, so it sees either a live object or none. A
// count of zero is never raised again. Two threads that make the anchor at once both allocate; one exchange wins.
#include "tavo/ref_base.h"

#include "base/forked_child.h"
#include "tavo/mutex.h"

namespace TAVO {

// Counted by its weak pointers and once by the object while that exists. The lock decides between a promotion and the
// end of the object: the promoting thread holds it while the object is looked at, and the object leaves before it goes.
class WeakAnchor {
public:
    explicit WeakAnchor(const RefBase* object) noexcept : object_(object) {}

    void Inc() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
    void Dec() noexcept
    {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete this;
        }
    }

    // Deliberate: in a forked child nothing can be promoted any more. A promotion by a thread of the parent may have
    // been under way, so the lock may never open there; without promotions the end of an object needs no lock either.
    bool Promote() noexcept
    {
        if (InForkedChild()) {
            return false;
        }
        MutexLock lock(mutex_);
        return object_ != nullptr && object_->TryIncStrongRef();
    }
    void Detach() noexcept
    {
        if (InForkedChild()) {
            return;
        }
        MutexLock lock(mutex_);
        object_ = nullptr;
    }

private:
    std::atomic<int32_t> count_{1};
    Mutex mutex_;
    const RefBase* object_ TAVO_GUARDED_BY(mutex_);  // null once the last strong reference or the object is gone
};

bool RefBase::TryIncStrongRef() const noexcept
{
    int32_t count = strong_.load(std::memory_order_relaxed);
    // Never from 0: the thread that reached 0 is about to delete the object.
    while (count > 0) {
        if (strong_.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel, std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

WeakAnchor* RefBase::AcquireAnchor() const
{
    WeakAnchor* anchor = anchor_.load(std::memory_order_acquire);
    if (anchor == nullptr) {
        WatchForks();
        auto* made = new WeakAnchor(this);
        if (anchor_.compare_exchange_strong(anchor, made, std::memory_order_acq_rel, std::memory_order_acquire)) {
            anchor = made;
        } else {
            // Another thread was faster; `anchor` is its anchor now.
            made->Dec();
        }
    }
    // For the weak pointer that is being made; the anchor's first count is the object's own.
    anchor->Inc();
    return anchor;
}

void RefBase::LastStrongRefGone() const noexcept
{
    if (WeakAnchor* anchor = anchor_.load(std::memory_order_acquire); anchor != nullptr) {
        anchor->Detach();
    }
    OnLastStrongRef();
}

void RefBase::DropAnchor() const noexcept
{
    WeakAnchor* anchor = anchor_.load(std::memory_order_acquire);
    anchor->Detach();  // for an object that never had a strong reference
    anchor->Dec();
}

void IncAnchorRef(WeakAnchor* anchor) noexcept
{
    if (anchor != nullptr) {
        anchor->Inc();
    }
}

void DecAnchorRef(WeakAnchor* anchor) noexcept
{
    if (anchor != nullptr) {
        anchor->Dec();
    }
}

bool PromoteAnchor(WeakAnchor* anchor) noexcept
{
    return anchor != nullptr && anchor->Promote();
}

}  // namespace TAVO
