// SPDX-License-Identifier: Apache-2.0
// A process-wide object that comes into being at its first use and is never destroyed.
#ifndef TAVO_DELAYED_REF_SINGLETON_H
#define TAVO_DELAYED_REF_SINGLETON_H

#include <atomic>
#include <mutex>

#include "tavo/ipc_threads.h"

namespace TAVO {

template <typename T>
class DelayedRefSingleton {
public:
    // Any thread; the first call makes the object (throws what `new T` throws, and may be tried again then).
    static T& GetInstance()
    {
        T* instance = instance_.load(std::memory_order_acquire);
        if (instance == nullptr) {
            std::unique_lock<std::mutex> lock(mutex_, std::defer_lock);
            if (!IpcThreads::IsForkedChild()) {  // There a thread of the parent may hold it for ever.
                lock.lock();
            }
            instance = instance_.load(std::memory_order_relaxed);
            if (instance == nullptr) {
                instance = new T();
                instance_.store(instance, std::memory_order_release);
            }
        }
        return *instance;
    }

    // Whether the object exists already; makes nothing.
    static bool HasInstance() { return instance_.load(std::memory_order_acquire) != nullptr; }

private:
    static std::atomic<T*> instance_;
    static std::mutex mutex_;
};

template <typename T>
std::atomic<T*> DelayedRefSingleton<T>::instance_{nullptr};
template <typename T>
std::mutex DelayedRefSingleton<T>::mutex_;

}  // namespace TAVO

#endif
