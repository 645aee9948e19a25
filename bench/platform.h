// SPDX-License-Identifier: Apache-2.0
// A manager of its own for one benchmark, in a runtime directory of its own.
#ifndef VELTRA_BENCH_PLATFORM_H
#define VELTRA_BENCH_PLATFORM_H

namespace Bench {

// Who answers: the real service, or the one of service.cpp.
enum class Service { REAL, BENCH };

// Starts the manager on a processor, where the services that it starts then run too, and moves this process to its own.
// Ends the program with a message when that fails. One a program; it goes with the program, also when that gives up.
class Platform {
public:
    Platform(int managerProcessor, int ownProcessor, Service service = Service::REAL);
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;
};

// Makes the runtime directory and names it to this process and those that it forks from now on: those that use the
// library on their own are forked before the platform is made.
void MakeRuntimeDir();

// The first two processors, in place of one: the scheduler chooses.
constexpr int EITHER_PROCESSOR = -1;

// Keeps the calling process on one processor, or on EITHER_PROCESSOR.
void Pin(int processor);

}  // namespace Bench

#endif
