// SPDX-License-Identifier: Apache-2.0
// Logs on command, so that a test sees the sinks of a whole process: from before main until after it.
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

int LogEveryLevel()
{
    const char* const texts[] = {"debug", "info", "warn", "error", "fatal"};
    for (int level = TAVO::SCRIVO_DEBUG; level <= TAVO::SCRIVO_FATAL; ++level) {
        Log(level, texts[level - TAVO::SCRIVO_DEBUG]);
    }
    return 0;
}

// 0 if every line was either written or counted, and errno never changed.
int Flood()
{
    int lost = 0;
    for (int i = 0; i < 2000; ++i) {
        errno = ERANGE;
        lost += Log(TAVO::SCRIVO_INFO, std::string(150, 'x').c_str()) < 0 ? 1 : 0;
        if (errno != ERANGE) {
            return 1;
        }
    }
    return lost > 0 && TAVO::ScrivoDroppedLines() == static_cast<uint64_t>(lost) ? 0 : 1;
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

int LogFromThreads()
{
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            const std::string text(static_cast<size_t>(number) * 700 + 1, static_cast<char>('a' + number));
            for (int i = 0; i < 250; ++i) {
                Log(TAVO::SCRIVO_INFO, text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 0;
}

}  // namespace

int main(int, char** argv)
{
    const std::string action = argv[1];
    const int result = action == "levels"   ? LogEveryLevel()
                       : action == "daemon" ? LogAsDaemon()
                       : action == "repeat" ? Repeat()
                       : action == "flood"  ? Flood()
                                            : LogFromThreads();
    std::printf("%llu lost\n", static_cast<unsigned long long>(TAVO::ScrivoDroppedLines()));
    return result;
}
