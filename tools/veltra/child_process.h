// SPDX-License-Identifier: Apache-2.0
// A process that the tool starts for itself, and that does not outlive it.
#ifndef VELTRA_TOOLS_CHILD_PROCESS_H
#define VELTRA_TOOLS_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace VeltraTool {

using Environment = std::vector<std::pair<std::string, std::string>>;

// Ended with SIGTERM, after 3 s with SIGKILL, when the object goes. The kernel ends it with SIGTERM when the tool ends
// in another way.
class ChildProcess {
public:
    // `environment` is added to the tool's own. Standard output and error go to the file `output`. Not started: Pid is
    // 0, and errno says why.
    ChildProcess(const std::vector<std::string>& command, const Environment& environment, const std::string& output);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return pid_; }
    // The exit status, 128 and the signal's number for one that was killed; empty: it has not ended in time.
    std::optional<int> Wait(std::chrono::milliseconds limit);

private:
    pid_t pid_ = 0;
    std::optional<int> status_;
};

}  // namespace VeltraTool

#endif
