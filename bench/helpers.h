// SPDX-License-Identifier: Apache-2.0
// Other processes that a benchmark uses. Forked before their parent first uses the library.
#ifndef VELTRA_BENCH_HELPERS_H
#define VELTRA_BENCH_HELPERS_H

#include <sys/types.h>

#include <functional>
#include <vector>

namespace Bench {

// Processes that run `work` for each command that they get and return its figure.
class Helpers {
public:
    using Work = std::function<double(int helper, char command)>;

    Helpers(int count, const Work& work);
    ~Helpers();
    Helpers(const Helpers&) = delete;
    Helpers& operator=(const Helpers&) = delete;

    // One command to one helper; returns its figure.
    double Run(int helper, char command);
    // The same command to all at once; returns when the last one has finished.
    void RunAll(char command);

private:
    struct Helper {
        pid_t process;
        int socket;
    };

    void Send(const Helper& helper, char command);
    double Receive(const Helper& helper);

    std::vector<Helper> helpers_;
};

// Processes that each run `connect` once and then stay idle.
class Crowd {
public:
    Crowd(int count, const std::function<void()>& connect);
    ~Crowd() { Leave(); }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    // Returns when all of them have connected.
    void Connect();
    // Ends all of them.
    void Leave();

private:
    std::vector<pid_t> processes_;
    int go_ = -1;    // one byte per process that may connect
    int done_ = -1;  // one byte per process that has connected
    int stay_ = -1;  // its end ends all
};

}  // namespace Bench

#endif
