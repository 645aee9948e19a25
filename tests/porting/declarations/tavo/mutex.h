// SPDX-License-Identifier: Apache-2.0
#ifndef PORTING_MUTEX_H
#define PORTING_MUTEX_H

#include <mutex>

#define TAVO_GUARDED_BY(lock)
#define TAVO_REQUIRES(...)
#define TAVO_NO_THREAD_ANALYSIS

namespace TAVO {

class PLATFORM_NAME("Mutex") Mutex : public std::mutex {};

class PLATFORM_NAME("MutexLock") MutexLock {
public:
    PLATFORM_NAME("MutexLock(mutex)") explicit MutexLock(Mutex& mutex);
    ~MutexLock();
};

}  // namespace TAVO

#endif
