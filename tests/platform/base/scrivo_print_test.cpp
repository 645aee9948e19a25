// SPDX-License-Identifier: Apache-2.0
// How a log call formats its text, and what a hook receives.
#include "tavo/scrivo_print.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>

namespace TAVO {
namespace {

// Captures the records while it lives; the last one is kept.
class Capture {
public:
    Capture()
    {
        SetScrivoHook(
            [](const ScrivoRecord& record, void* context) {
                auto* self = static_cast<Capture*>(context);
                self->last = record;
                self->text = record.text;
                ++self->count;
            },
            this);
    }
    ~Capture() { SetScrivoHook(nullptr, nullptr); }

    template <typename... Arguments>
    std::string operator()(const char* format, Arguments... arguments)
    {
        ScrivoPrint(3, SCRIVO_INFO, 0xD00470A, "Test", format, arguments...);
        return text;
    }

    ScrivoRecord last{};
    std::string text;
    int count = 0;
};

TEST(ScrivoFormat, PublicValuesPrintAndPrivateOnesDoNot)
{
    Capture log;
    EXPECT_EQ(log("[%{public}s(%{public}s:%{public}d)]reply:%{public}d", "", "CallAuth", 12, -3),
              "[(CallAuth:12)]reply:-3");
    EXPECT_EQ(log("%s %d %{private}s %{private}d %{secret}d %{public}d", "a", 1, "key", 2, 3, 4),
              "a 1 <private> <private> <private> 4");
    EXPECT_EQ(
        log("%{private}lld %{private}f %{private}*d %{private}.*s|%{public}s", 1LL << 40, 1.5, 8, 9, 1, "x", "end"),
        "<private> <private> <private> <private>|end")
        << "private arguments are consumed by their types";
}

TEST(ScrivoFormat, ConversionsAreThoseOfPrintf)
{
    Capture log;
    EXPECT_EQ(log("%{public}-6d|%06.2f|%+i|%#x|%'d", 42, 3.14159, 7, 255U, 5), "42    |003.14|+7|0xff|5");
    EXPECT_EQ(log("%*d|%-*d|%*d|%.*f|%.3s|%.*s", 4, 1, 4, 2, -4, 3, 1, 2.55, "abcdef", -1, "whole"),
              "   1|2   |3   |2.5|abc|whole");
    EXPECT_EQ(log("%hhd %hd %ld %lld %zu %zd %td %jd", 300, 65537, -1L, INT64_MIN, SIZE_MAX, ssize_t{-1}, ptrdiff_t{-2},
                  INTMAX_MAX),
              "44 1 -1 -9223372036854775808 18446744073709551615 -1 -2 9223372036854775807");
    EXPECT_EQ(log("%c%lc|%s|%ls|%Lf|%p", 'A', static_cast<wint_t>(L'B'), "s", L"wide", 0.5L, nullptr),
              "AB|s|wide|0.500000|(nil)");
    EXPECT_EQ(log("100%% %s", static_cast<const char*>(nullptr)), "100% (null)");
    errno = ENOENT;
    EXPECT_EQ(log("%m"), "No such file or directory");
}

TEST(ScrivoFormat, UnknownConversionsArePrintedUnchanged)
{
    Capture log;
    int stored = 77;
    EXPECT_EQ(log("a%n%d", &stored, 5), "a5");
    EXPECT_EQ(stored, 77) << "%n stores nothing";
    for (const char* format : {"a %", "%{public", "%{public}", "%1$s %s", "%y %s", "%-", "%5.", "%ll"}) {
        EXPECT_EQ(log(format, 1), format);
    }
    EXPECT_EQ(log("%d %k %d", 1, 2), "1 %k %d");
    EXPECT_EQ(log(nullptr), "(null)");
}

TEST(ScrivoFormat, LongTextsAreWholeUpToTheirLimitAndLeaveErrnoAlone)
{
    Capture log;
    const std::string text(60'000, 'x');
    errno = EDOM;
    EXPECT_EQ(log("%s%s", text.c_str(), "end"), text + "end");
    EXPECT_EQ(log("%s%s", text.c_str(), text.c_str()), std::string(65'536, 'x'));
    EXPECT_EQ(log("%*d|", 2'000'000'000, 1).size(), 65'536u);
    EXPECT_EQ(log("%999999999999d|", 1).size(), 65'536u);
    EXPECT_EQ(errno, EDOM);
}

TEST(ScrivoHookTest, ReceivesEveryLevelAndTheUnchangedCall)
{
    {
        Capture log;
        for (int level = SCRIVO_DEBUG - 1; level <= SCRIVO_FATAL; ++level) {
            EXPECT_TRUE(ScrivoIsLoggable(level));
            ScrivoPrint(3, level, 0xD00470A, "Tag", "line\n%{private}d", level);
            EXPECT_EQ(log.last.type, 3);
            EXPECT_EQ(log.last.level, level);
            EXPECT_EQ(log.last.domain, 0xD00470AU);
            EXPECT_STREQ(log.last.tag, "Tag");
            EXPECT_STREQ(log.last.format, "line\n%{private}d");
            EXPECT_EQ(log.text, "line\n<private>");
        }
        EXPECT_EQ(log.count, 6);
    }
    EXPECT_FALSE(ScrivoIsLoggable(SCRIVO_DEBUG)) << "the hook is gone";
    EXPECT_EQ(ScrivoPrint(3, SCRIVO_DEBUG, 1, "Tag", "unseen"), 0);
}

TEST(ScrivoHookTest, MayEndWhenItsRemovalHasReturned)
{
    struct Visit {
        std::atomic<bool> hasBegun{false};
        std::atomic<bool> mayEnd{false};
        std::atomic<bool> hasEnded{false};
    } visit;
    SetScrivoHook(
        [](const ScrivoRecord&, void* context) {
            auto* const self = static_cast<Visit*>(context);
            self->hasBegun = true;
            self->hasBegun.notify_all();
            self->mayEnd.wait(false);
            self->hasEnded = true;
        },
        &visit);
    std::thread logger([] { ScrivoPrint(3, SCRIVO_DEBUG, 1, "Tag", "line"); });
    visit.hasBegun.wait(false);
    std::thread remover([&visit] {
        SetScrivoHook(nullptr, nullptr);
        EXPECT_TRUE(visit.hasEnded);
    });
    while (ScrivoIsLoggable(SCRIVO_DEBUG)) {  // until the hook is removed, but not its call
        std::this_thread::yield();
    }
    visit.mayEnd = true;
    visit.mayEnd.notify_all();
    logger.join();
    remover.join();
}

}  // namespace
}  // namespace TAVO
