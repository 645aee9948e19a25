// SPDX-License-Identifier: Apache-2.0
// Logs on command, so that a test sees the sinks of a whole process: from before main until after it.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tavo/scrivo_print.h"

namespace {

int Log(int level, const char* text)
{
    return TAVO::ScrivoPrint(3, level, 0xD00470A, "Child", "%{public}s", text);
}

struct FromStartToEnd {
    FromStartToEnd() { Log(TAVO::SCRIVO_WARN, "before main"); }
    ~FromStartToEnd() { Log(TAVO::SCRIVO_WARN, "after main"); }
} g_fromStartToEnd;

void LogEveryLevel()
{
    const char* const texts[] = {"debug", "info", "warn", "error", "fatal"};
    for (int level = TAVO::SCRIVO_DEBUG; level <= TAVO::SCRIVO_FATAL; ++level) {
        Log(level, texts[level - TAVO::SCRIVO_DEBUG]);
    }
}

// Exit status 0 if every line was either written or counted, and errno never changed.
int Flood()
{
    int lost = 0;
    for (int i = 0; i < 2000; ++i) {
        errno = ERANGE;
        lost += Log(TAVO::SCRIVO_ERROR, std::string(150, 'x').c_str()) < 0 ? 1 : 0;
        if (errno != ERANGE) {
            return 1;
        }
    }
    return lost > 0 && TAVO::ScrivoDroppedLines() == static_cast<uint64_t>(lost) ? 0 : 1;
}

void LogFromThreads()
{
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            const std::string text(static_cast<size_t>(number) * 700 + 1, static_cast<char>('a' + number));
            for (int i = 0; i < 250; ++i) {
                Log(TAVO::SCRIVO_ERROR, text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

int LogFromFork()
{
    const pid_t child = fork();
    if (child == 0) {
        Log(TAVO::SCRIVO_ERROR, "forked child");
        _exit(0);
    }
    int status = -1;
    return waitpid(child, &status, 0) == child ? status : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string action = argc > 1 ? argv[1] : "";
    int result = 0;
    if (action == "levels") {
        LogEveryLevel();
    } else if (action == "flood") {
        result = Flood();
    } else if (action == "threads") {
        LogFromThreads();
    } else if (action == "fork") {
        result = LogFromFork();
    } else {
        return 2;
    }
    std::printf("%llu lost\n", static_cast<unsigned long long>(TAVO::ScrivoDroppedLines()));
    return result;
}
