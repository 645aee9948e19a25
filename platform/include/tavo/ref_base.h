// SPDX-License-Identifier: Apache-2.0
// Intrusive reference counting: RefBase, the strong pointer sptr and the weak pointer wptr.
#ifndef TAVO_REF_BASE_H
#define TAVO_REF_BASE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "tavo/export.h"

namespace TAVO {

// What weak pointers share: it outlives the object and knows whether the object can still be reached.
class WeakAnchor;

// Base of every counted object, always a virtual base. An object starts with no strong reference. When the last sptr
// releases it, OnLastStrongRef is called, which deletes the object. Any thread may count.
class TAVO_EXPORT RefBase {
public:
    RefBase() noexcept = default;
    // A copy is an object of its own: it starts uncounted, whatever references the original has.
    RefBase(const RefBase&) noexcept {}
    RefBase& operator=(const RefBase&) noexcept { return *this; }
    virtual ~RefBase()
    {
        if (anchor_.load(std::memory_order_relaxed) != nullptr) {
            DropAnchor();
        }
    }

    void IncStrongRef() const noexcept { strong_.fetch_add(1, std::memory_order_relaxed); }
    void DecStrongRef() const noexcept
    {
        if (strong_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            LastStrongRefGone();
        }
    }
    // Adds a strong reference unless the count is zero; for weak pointers.
    bool TryIncStrongRef() const noexcept;
    // A snapshot, for tests and diagnostics.
    int32_t GetStrongCount() const noexcept { return strong_.load(std::memory_order_relaxed); }

    // The anchor that weak pointers share, made at its first use, with a count added for the caller.
    WeakAnchor* AcquireAnchor() const;

protected:
    // The last strong reference was released and no weak pointer can be promoted any more. Runs on the thread that
    // released it. An override may hand the object to another thread, which then deletes it.
    virtual void OnLastStrongRef() const noexcept { delete this; }

private:
    void LastStrongRefGone() const noexcept;
    void DropAnchor() const noexcept;

    mutable std::atomic<int32_t> strong_{0};
    mutable std::atomic<WeakAnchor*> anchor_{nullptr};  // null until the first weak pointer
};

// Strong pointer. Null tests and assignments of one sptr by several threads are no data race (the pointer is atomic);
// anything else through a shared sptr, copying it included, needs the owner's lock.
template <typename T>
class sptr {
public:
    sptr() noexcept = default;
    sptr(std::nullptr_t) noexcept {}
    sptr(T* object) noexcept : pointer_(Counted(object)) {}
    sptr(const sptr& other) noexcept : pointer_(Counted(other.Get())) {}
    sptr(sptr&& other) noexcept : pointer_(other.Detach()) {}
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sptr(const sptr<U>& other) noexcept : pointer_(Counted(other.Get()))
    {
    }
    template <typename U, typename = std::enable_if_t<std::is_convertible<U*, T*>::value>>
    sptr(sptr<U>&& other) noexcept : pointer_(other.Detach())
    {
    }
    // Takes over the reference of `other` for `object`, another part of the same counted object or null.
    template <typename U>
    sptr(sptr<U>&& other, T* object) noexcept : pointer_(object)
    {
        if (object != nullptr) {
            other.Detach();
        }
    }
    ~sptr() { Drop(pointer_.load(std::memory_order_relaxed)); }

    sptr& operator=(const sptr& other) noexcept
    {
        Drop(pointer_.exchange(Counted(other.Get()), std::memory_order_acq_rel));
        return *this;
    }
    sptr& operator=(sptr&& other) noexcept
    {
        if (this != &other) {
            Drop(pointer_.exchange(other.Detach(), std::memory_order_acq_rel));
        }
        return *this;
    }
    sptr& operator=(T* object) noexcept
    {
        Drop(pointer_.exchange(Counted(object), std::memory_order_acq_rel));
        return *this;
    }
    sptr& operator=(std::nullptr_t) noexcept
    {
        Drop(pointer_.exchange(nullptr, std::memory_order_acq_rel));
        return *this;
    }

    T* Get() const noexcept { return pointer_.load(std::memory_order_relaxed); }
    T* operator->() const noexcept { return Get(); }
    T& operator*() const noexcept { return *Get(); }
    explicit operator bool() const noexcept { return Get() != nullptr; }

private:
    template <typename U>
    friend class sptr;

    static T* Counted(T* object) noexcept
    {
        if (object != nullptr) {
            object->IncStrongRef();
        }
        return object;
    }
    static void Drop(T* object) noexcept
    {
        if (object != nullptr) {
            object->DecStrongRef();
        }
    }
    // Of a pointer that no other thread uses, as every source of a move: no need to pay for an exchange.
    T* Detach() noexcept
    {
        T* const object = pointer_.load(std::memory_order_relaxed);
        pointer_.store(nullptr, std::memory_order_relaxed);
        return object;
    }

    std::atomic<T*> pointer_{nullptr};
};

template <typename T, typename U>
bool operator==(const sptr<T>& left, const sptr<U>& right) noexcept
{
    return left.Get() == right.Get();
}
template <typename T, typename U>
bool operator!=(const sptr<T>& left, const sptr<U>& right) noexcept
{
    return left.Get() != right.Get();
}
template <typename T>
bool operator==(const sptr<T>& left, std::nullptr_t) noexcept
{
    return left.Get() == nullptr;
}
template <typename T>
bool operator!=(const sptr<T>& left, std::nullptr_t) noexcept
{
    return left.Get() != nullptr;
}
template <typename T>
bool operator<(const sptr<T>& left, const sptr<T>& right) noexcept
{
    return left.Get() < right.Get();
}

// Makes a T and its first reference; throws what `new` and the constructor throw.
template <typename T, typename... Arguments>
sptr<T> MakeRef(Arguments&&... arguments)
{
    return sptr<T>(new T(std::forward<Arguments>(arguments)...));
}

// Counts on the anchor, for wptr only.
TAVO_EXPORT void IncAnchorRef(WeakAnchor* anchor) noexcept;
TAVO_EXPORT void DecAnchorRef(WeakAnchor* anchor) noexcept;
// True when a strong reference was added to the anchored object; false once its count has been zero.
TAVO_EXPORT bool PromoteAnchor(WeakAnchor* anchor) noexcept;

// Weak pointer: does not keep the object alive. promote() returns a strong pointer, or null once the last strong
// reference was released: a count of zero never rises again.
template <typename T>
class wptr {
public:
    wptr() noexcept = default;
    wptr(std::nullptr_t) noexcept {}
    wptr(T* object) : object_(object), anchor_(object != nullptr ? object->AcquireAnchor() : nullptr) {}
    wptr(const sptr<T>& strong) : wptr(strong.Get()) {}
    wptr(const wptr& other) noexcept : object_(other.object_), anchor_(other.anchor_) { IncAnchorRef(anchor_); }
    wptr(wptr&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)), anchor_(std::exchange(other.anchor_, nullptr))
    {
    }
    ~wptr() { DecAnchorRef(anchor_); }

    wptr& operator=(wptr other) noexcept
    {
        std::swap(object_, other.object_);
        std::swap(anchor_, other.anchor_);
        return *this;
    }

    sptr<T> promote() const noexcept
    {
        if (!PromoteAnchor(anchor_)) {
            return nullptr;
        }
        sptr<T> strong(object_);
        object_->DecStrongRef();
        return strong;
    }

    // Identity only: whether both were made from the same object, alive or not.
    bool operator==(const wptr& other) const noexcept { return anchor_ == other.anchor_; }
    bool operator!=(const wptr& other) const noexcept { return anchor_ != other.anchor_; }

private:
    T* object_ = nullptr;
    WeakAnchor* anchor_ = nullptr;
};

}  // namespace TAVO

#endif
