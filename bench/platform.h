// SPDX-License-Identifier: Apache-2.0
// A manager of its own for one benchmark, in a runtime directory of its own.
#ifndef VELTRA_BENCH_PLATFORM_H
#define VELTRA_BENCH_PLATFORM_H

#include <sys/types.h>

#include <string>

namespace Bench {

// Starts the manager on `processor`, where the services that it starts then run too, and moves this process to its own. Ends the program with
// a message when that fails.
class Platform {
public:
    Platform(int managerProcessor, int ownProcessor);
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

private:
    std::string dir_;
    pid_t manager_ = 0;
};

// Keeps the calling process on one processor.
void Pin(int processor);

}  // namespace Bench

#endif
