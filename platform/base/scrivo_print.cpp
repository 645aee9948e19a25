// SPDX-License-Identifier: Apache-2.0
// A log call compares its level with one atomic number and mostly ends there. Otherwise it formats the line on its own
// stack, shows it to the test hook, folds repeated warnings, and writes it to the process's sink. The sink is chosen by
// the first call, of any thread and perhaps before main; a race is decided by one exchange. errno is kept, since
// callers log between a failure and their look at it. What cannot be written is counted and lost.
#include "tavo/scrivo_print.h"

#include <stdlib.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>

#include "base/scrivo_folder.h"
#include "base/scrivo_format.h"
#include "base/scrivo_sink.h"
#include "tavo/mutex.h"

namespace TAVO {

namespace {

// Constant-initialised and trivially destructible, all of it: a log call works in static initialisation, at exit and,
// since nothing but the test hook has a lock, in a forked child.
constexpr int NOT_SET_UP = INT_MIN;
constexpr int EVERYTHING = INT_MIN + 1;

std::atomic<int> g_threshold{NOT_SET_UP};  // lowest level that anybody wants
std::atomic<ScrivoSink> g_sink{ScrivoSink{SinkKind::UNKNOWN, 0, 0}};
static_assert(std::atomic<ScrivoSink>::is_always_lock_free);
std::atomic<bool> g_isDaemon{false};
std::atomic<uint64_t> g_dropped{0};
ScrivoFolder g_folder;

struct Hook {
    ScrivoHook function;
    void* context;
};
Mutex g_hookMutex;
Hook g_hook TAVO_GUARDED_BY(g_hookMutex){nullptr, nullptr};
std::atomic<bool> g_hasHook{false};
std::atomic<int> g_hookCalls{0};  // that run now
std::atomic<bool> g_isReported{false};

class ErrnoKeeper {
public:
    ErrnoKeeper() noexcept : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    const int saved_;
};

// The process's sink, chosen by the first caller. Two first callers both choose, and one choice stays.
ScrivoSink Sink() noexcept
{
    ScrivoSink sink = g_sink.load(std::memory_order_acquire);
    if (sink.kind != SinkKind::UNKNOWN) {
        return sink;
    }
    const char* const settings = secure_getenv("TAVO_LOG");
    errno = 0;
    const ScrivoSink opened = OpenScrivoSink(settings, g_isDaemon.load());
    if (!g_sink.compare_exchange_strong(sink, opened, std::memory_order_acq_rel, std::memory_order_acquire)) {
        CloseScrivoSink(opened);
        return sink;
    }
    if (!g_isReported.exchange(true)) {
        ReportScrivoSettings(settings, opened);
    }
    return opened;
}

// A threshold that a hook has lowered meanwhile stays.
void SetUp() noexcept
{
    int expected = NOT_SET_UP;
    g_threshold.compare_exchange_strong(expected, Sink().level, std::memory_order_relaxed);
}

// Holds the hook while it is called: SetScrivoHook waits for that.
class HookCall {
public:
    HookCall()
    {
        if (g_hasHook.load(std::memory_order_acquire)) {
            MutexLock lock(g_hookMutex);
            hook_ = g_hook;
            g_hookCalls += hook_.function != nullptr ? 1 : 0;
        }
    }
    ~HookCall()
    {
        if (hook_.function != nullptr && --g_hookCalls == 0) {
            g_hookCalls.notify_all();
        }
    }
    HookCall(const HookCall&) = delete;
    HookCall& operator=(const HookCall&) = delete;

    void Run(const ScrivoRecord& record) const
    {
        if (hook_.function != nullptr) {
            hook_.function(record, hook_.context);
        }
    }

private:
    Hook hook_{nullptr, nullptr};
};

int WriteTo(const ScrivoSink& sink, const ScrivoLine& line) noexcept
{
    const int written =
        sink.kind == SinkKind::JOURNAL ? SendScrivoLine(sink.fd, JOURNAL_SOCKET, line) : WriteScrivoLine(sink.fd, line);
    if (written < 0) {
        g_dropped.fetch_add(1, std::memory_order_relaxed);
    }
    return written;
}

void WriteSummary(const ScrivoSink& sink, const ScrivoFolder::Summary& summary) noexcept
{
    WriteTo(sink, {summary.level, summary.domain, summary.tag, summary.text});
}

// Folds repeated warnings and errors only: at the lower levels each line is written.
int Write(const ScrivoLine& line) noexcept
{
    const ScrivoSink sink = Sink();
    if (sink.kind == SinkKind::NOWHERE || line.level < sink.level) {
        return 0;
    }
    if (line.level >= SCRIVO_WARN) {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        ScrivoFolder::Summary summary;
        const ScrivoFolder::Result folded = g_folder.Fold(line, std::chrono::nanoseconds(now).count(), summary);
        if (folded.hasSummary) {
            WriteSummary(sink, summary);
        }
        if (folded.isFolded) {
            return 0;
        }
    }
    return WriteTo(sink, line);
}

// What is still counted when the process exits.
struct FinalSummaries {
    constexpr FinalSummaries() noexcept = default;
    ~FinalSummaries()
    {
        for (ScrivoFolder::Summary summary; g_folder.TakeAny(summary);) {
            WriteSummary(Sink(), summary);
        }
    }
} g_finalSummaries;

}  // namespace

bool ScrivoIsLoggable(int level)
{
    if (level < g_threshold.load(std::memory_order_relaxed)) {
        return false;
    }
    if (g_threshold.load(std::memory_order_relaxed) == NOT_SET_UP) {
        const ErrnoKeeper keeper;
        SetUp();
    }
    return level >= g_threshold.load(std::memory_order_relaxed);
}

int ScrivoPrint(int type, int level, uint32_t domain, const char* tag, const char* format, ...)
{
    if (!ScrivoIsLoggable(level)) {
        return 0;
    }
    const ErrnoKeeper keeper;
    TextBuffer text;
    va_list arguments;
    va_start(arguments, format);
    FormatLog(text, format, arguments);
    va_end(arguments);

    HookCall().Run({type, level, domain, tag, format, text.Text()});
    return Write({level, domain, tag == nullptr ? "" : tag, text.Text()});
}

void ScrivoActAsDaemon()
{
    const ErrnoKeeper keeper;
    g_isDaemon.store(true);
    // Static initialisers may have logged; their sink is replaced.
    CloseScrivoSink(g_sink.exchange(ScrivoSink{SinkKind::UNKNOWN, 0, 0}));
    g_threshold.store(NOT_SET_UP);
    SetUp();
}

uint64_t ScrivoDroppedLines()
{
    return g_dropped.load(std::memory_order_relaxed);
}

void SetScrivoHook(ScrivoHook hook, void* context)
{
    SetUp();
    {
        MutexLock lock(g_hookMutex);
        g_hook = {hook, context};
        g_hasHook.store(hook != nullptr, std::memory_order_release);
        g_threshold.store(hook != nullptr ? EVERYTHING : Sink().level, std::memory_order_relaxed);
    }
    for (int calls = g_hookCalls; calls != 0; calls = g_hookCalls) {
        g_hookCalls.wait(calls);
    }
}

}  // namespace TAVO
