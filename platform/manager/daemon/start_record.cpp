// SPDX-License-Identifier: Apache-2.0
// A process is recorded by its pid and the tick at which it started: together they are not used twice.
#include "manager/daemon/start_record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "os/fd.h"

namespace TAVO::Manager {
namespace {

using Transport::UniqueFd;

std::string RecordName(int32_t systemAbilityId)
{
    return std::to_string(systemAbilityId) + ".started";
}

std::string ReadSmallFile(int dirFd, const std::string& name)
{
    const UniqueFd file(::openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    char buffer[4096];
    const ssize_t size = file.IsOpen() ? ::read(file.Get(), buffer, sizeof(buffer)) : -1;
    return size > 0 ? std::string(buffer, static_cast<size_t>(size)) : std::string();
}

// In clock ticks since the machine started; 0 when there is no such process, or only what is left of it.
unsigned long long StartTick(pid_t pid)
{
    const std::string text = ReadSmallFile(AT_FDCWD, "/proc/" + std::to_string(pid) + "/stat");
    const size_t nameEnd = text.rfind(')');  // The name before it may hold anything.
    if (nameEnd == std::string::npos) {
        return 0;
    }
    // proc(5), stat: field 3 is the state, field 20 the number of threads, field 22 the start time.
    char state = 'X';
    int threads = 0;
    unsigned long long tick = 0;
    const char* const FIELDS_3_TO_22 =
        " %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %d %*s %llu";
    const int found = std::sscanf(text.c_str() + nameEnd + 1, FIELDS_3_TO_22, &state, &threads, &tick);
    // A process lives on without its first thread.
    const bool isAlive = state != 'X' && (state != 'Z' || threads > 1);
    return found == 3 && isAlive ? tick : 0;
}

}  // namespace

bool WriteStartRecord(const Transport::RuntimeDir& dir, int32_t systemAbilityId, pid_t pid)
{
    const std::string name = RecordName(systemAbilityId);
    const std::string text = std::to_string(pid) + " " + std::to_string(StartTick(pid)) + "\n";
    // Deliberate: not truncated. Some file systems write a truncated file to the disk when it is closed, and the
    // clients that wait for the service would wait for that too. The rest of a longer record follows the line that is
    // read.
    const UniqueFd file(::openat(dir.Fd(), name.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    // One write: a manager that is killed here leaves the old record, the new one or an incomplete line, whose tick
    // does not match.
    return file.IsOpen() && ::write(file.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

pid_t RecordedProcess(const Transport::RuntimeDir& dir, int32_t systemAbilityId)
{
    std::istringstream fields(ReadSmallFile(dir.Fd(), RecordName(systemAbilityId)));
    pid_t pid = 0;
    unsigned long long tick = 0;
    return fields >> pid >> tick && pid > 0 && tick > 0 && StartTick(pid) == tick ? pid : 0;
}

}  // namespace TAVO::Manager
