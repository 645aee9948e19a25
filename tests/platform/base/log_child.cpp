// SPDX-License-Identifier: Apache-2.0
// Logs on command, so that a test sees the sinks of a whole process: from before main until after it.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>

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

int LogEveryLevel()
{
    const char* const texts[] = {"debug", "info", "warn", "error", "fatal"};
    for (int level = TAVO::SCRIVO_DEBUG; level <= TAVO::SCRIVO_FATAL; ++level) {
        Log(level, texts[level - TAVO::SCRIVO_DEBUG]);
    }
    return 0;
}

// 0 if every line of two threads was either written or counted, and errno never changed.
int FloodFromThreads()
{
    std::atomic<int> lost{0};
    std::atomic<bool> isChanged{false};
    const auto flood = [&lost, &isChanged] {
        for (int i = 0; i < 1000; ++i) {
            errno = ERANGE;
            lost += Log(TAVO::SCRIVO_INFO, std::string(150, 'x').c_str()) < 0 ? 1 : 0;
            isChanged = isChanged || errno != ERANGE;
        }
    };
    std::thread other(flood);
    flood();
    other.join();
    const auto counted = static_cast<uint64_t>(lost.load());
    return !isChanged && lost > 0 && TAVO::ScrivoDroppedLines() == counted ? 0 : 1;
}

// As a library does that fails in each frame of a game.
int Repeat()
{
    for (int i = 0; i < 1000; ++i) {
        Log(TAVO::SCRIVO_WARN, "one");
        Log(TAVO::SCRIVO_ERROR, "two");
    }
    return 0;
}

int LogAsDaemon()
{
    TAVO::ScrivoActAsDaemon();
    return LogEveryLevel();
}

}  // namespace

int main(int, char** argv)
{
    const std::string action = argv[1];
    const int result = action == "levels"   ? LogEveryLevel()
                       : action == "daemon" ? LogAsDaemon()
                       : action == "repeat" ? Repeat()
                                            : FloodFromThreads();
    std::printf("%llu lost\n", static_cast<unsigned long long>(TAVO::ScrivoDroppedLines()));
    return result;
}
