// SPDX-License-Identifier: Apache-2.0
// Interfaces over remote objects: the common base, and the registry that makes a proxy for a remote object.
#ifndef TAVO_IREMOTE_BROKER_H
#define TAVO_IREMOTE_BROKER_H

#include <atomic>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "tavo/export.h"
#include "tavo/iremote_object.h"
#include "tavo/mutex.h"
#include "tavo/ref_base.h"

// Names an interface, inside its class: the token of its requests and the key of its proxy in the registry.
// Never destroyed: platform threads may still read it while the process exits.
#define TAVO_DECLARE_DESCRIPTOR(text)                                             \
    static const std::u16string& GetDescriptor()                                  \
    {                                                                             \
        static const std::u16string* const descriptor = new std::u16string(text); \
        return *descriptor;                                                       \
    }

namespace TAVO {

// Base of every remote interface. The destructor takes the first slots, AsObject the next.
class TAVO_EXPORT IRemoteBroker : public virtual RefBase {
public:
    ~IRemoteBroker() override;
    // The object behind the interface: the stub itself, or what a proxy sends to (null for a proxy of nothing).
    virtual sptr<IRemoteObject> AsObject() = 0;
};

// Makes the proxy of class T for a remote object; null if out of memory.
template <typename T>
struct BrokerCreator {
    sptr<IRemoteBroker> operator()(const sptr<IRemoteObject>& object) const
    {
        return sptr<IRemoteBroker>(new (std::nothrow) T(object));
    }
};

// Whether IRemoteBroker is a base of T that needs no search, neither virtual nor one of several.
template <typename T, typename = void>
struct IsPlainBroker : std::false_type {
};
template <typename T>
struct IsPlainBroker<T, decltype(void(static_cast<T*>(std::declval<IRemoteBroker*>())))> : std::true_type {
};

// Equality of two descriptors by memory, which costs a fraction of the character traits' comparison.
inline bool IsSameDescriptor(const std::u16string& left, const std::u16string& right) noexcept
{
    return left.size() == right.size() && std::memcmp(left.data(), right.data(), left.size() * sizeof(char16_t)) == 0;
}

// The process's registry: descriptor to proxy creator. Any thread.
class TAVO_EXPORT BrokerRegistration {
public:
    using Creator = sptr<IRemoteBroker> (*)(const sptr<IRemoteObject>& object);

    static BrokerRegistration& Get();

    // The first creator of a descriptor stays; false for another one. `owner` identifies the entry for Unregister.
    bool Register(const std::u16string& descriptor, Creator creator, const void* owner);
    // Removes the entry if `owner` made it.
    void Unregister(const std::u16string& descriptor, const void* owner);
    // A proxy for `object` by the creator of its descriptor; null if out of memory or a creator. A missing creator is
    // logged once for each descriptor: the proxy class has no BrokerDelegator, or its library is not loaded.
    sptr<IRemoteBroker> NewInstance(const std::u16string& descriptor, const sptr<IRemoteObject>& object);

private:
    BrokerRegistration() = default;

    struct Entry {
        std::u16string descriptor;
        Creator creator;
        const void* owner;
    };
    std::vector<Entry>::iterator Find(const std::u16string& descriptor) TAVO_REQUIRES(mutex_);
    void ReportMissing(const std::u16string& descriptor) TAVO_EXCLUDES(mutex_);

    Mutex mutex_;
    std::vector<Entry> entries_ TAVO_GUARDED_BY(mutex_);            // a handful: looked through on every interface cast
    std::vector<std::u16string> reported_ TAVO_GUARDED_BY(mutex_);  // descriptors without a creator, once requested
};

// Registers proxy class T for its descriptor while it lives; one static member of each proxy class.
template <typename T>
class BrokerDelegator {
public:
    BrokerDelegator()
    {
        const auto creator = [](const sptr<IRemoteObject>& object) { return BrokerCreator<T>()(object); };
        if (BrokerRegistration::Get().Register(T::GetDescriptor(), creator, this)) {
            descriptor_ = T::GetDescriptor();
        }
    }
    ~BrokerDelegator()
    {
        if (!descriptor_.empty()) {
            BrokerRegistration::Get().Unregister(descriptor_, this);
        }
    }
    BrokerDelegator(const BrokerDelegator&) = delete;
    BrokerDelegator& operator=(const BrokerDelegator&) = delete;

private:
    std::u16string descriptor_;  // empty when another class had the descriptor first
};

// `broker` as a T, null if it is none. All objects of one class give the same answer, so the dynamic_cast is made once
// for each class.
template <typename T>
T* NarrowBroker(IRemoteBroker* broker) noexcept
{
    if constexpr (IsPlainBroker<T>::value) {
        static std::atomic<const std::type_info*> known{nullptr};
        if (broker == nullptr) {
            return nullptr;
        }
        const std::type_info* const type = &typeid(*broker);
        if (known.load(std::memory_order_relaxed) == type) {
            return static_cast<T*>(broker);
        }
        T* const narrowed = dynamic_cast<T*>(broker);
        if (narrowed != nullptr && narrowed == static_cast<T*>(broker)) {
            known.store(type, std::memory_order_relaxed);
        }
        return narrowed;
    } else {
        return dynamic_cast<T*>(broker);
    }
}

// `object` as interface T: the local object when it is a T, a new proxy when the object is remote and serves T's
// descriptor, null otherwise.
template <typename T>
sptr<T> iface_cast(const sptr<IRemoteObject>& object)
{
    if (object == nullptr) {
        return nullptr;
    }
    const auto cast = [](sptr<IRemoteBroker> broker) {
        T* const wanted = NarrowBroker<T>(broker.Get());
        return sptr<T>(std::move(broker), wanted);
    };
    if (sptr<IRemoteBroker> local = object->AsInterface(); local != nullptr) {
        return cast(std::move(local));
    }
    if (!IsSameDescriptor(object->Descriptor(), T::GetDescriptor())) {
        return nullptr;
    }
    return cast(BrokerRegistration::Get().NewInstance(T::GetDescriptor(), object));
}

}  // namespace TAVO

#endif
