// SPDX-License-Identifier: Apache-2.0
// A system call or an allocation that fails once in a game fails only the calls in flight, wherever it is.
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>

#include "system/system_fixture.h"

namespace SystemTest {
namespace {

class FailingCalls : public SystemFixture {
protected:
    // A game whose threads each see their `nth` of these calls fail.
    Child StartGame(const std::string& call, const std::string& error, int nth) const
    {
        const std::string failure = call + ":error=" + error + ":when=" + std::to_string(nth);
        return Child::Start({TRACER, "-f", "-o", PathOf("trace"), "-e", "trace=" + call, "-e", "inject=" + failure,
                             TestSupport::ProgramPath("system_test_client")});
    }

    // Whether one of the calls of the game that has ended was made to fail.
    bool HasFailed() const
    {
        std::stringstream trace;
        trace << std::ifstream(PathOf("trace")).rdbuf();
        return trace.str().find("INJECTED") != std::string::npos;
    }

    static constexpr char TRACER[] = "/usr/bin/strace";
};

TEST_F(FailingCalls, FailedSystemCallFailsOnlyCallsInFlight)
{
    if (StartGame("getpid", "ENOSYS", 1).Ask("auth traced").empty()) {
        GTEST_SKIP() << "no process can be traced here";
    }
    WriteRealAbility("laptop");
    StartManager();
    ASSERT_TRUE(IsServedAgain());
    constexpr int CALLS = 8;
    constexpr int THREADS = 3;  // of the game that make such calls: the caller, control and a worker
    const struct {
        const char* call;
        const char* error;
    } rows[] = {{"epoll_create1", "EMFILE"}, {"eventfd2", "EMFILE"}, {"epoll_ctl", "ENOMEM"},
                {"clone3", "EAGAIN"},        {"socket", "EMFILE"},   {"connect", "ECONNREFUSED"},
                {"getsockopt", "ENOBUFS"}};
    for (const auto& row : rows) {
        for (int nth = 1; nth <= 6; ++nth) {
            SCOPED_TRACE(row.call + std::string(", number ") + std::to_string(nth));
            Child game = StartGame(row.call, row.error, nth);
            int failed = 0;
            std::string last;
            const Clock::time_point start = Clock::now();
            for (int i = 0; i < CALLS; ++i) {
                last = game.Ask("auth still there");
                failed += last != "0";
            }
            EXPECT_LE(failed, THREADS);
            EXPECT_EQ(last, "0");
            EXPECT_LT(Clock::now() - start, SOON);
            game.Pipe().Send("_exit");
            game.WaitForExit();
            EXPECT_TRUE(HasFailed() || nth > 1) << "the row shows nothing";
        }
    }
}

TEST_F(FailingCalls, FailedAllocationFailsOnlyCallsInFlight)
{
    constexpr int FEWEST = 100;  // allocations of a first contact and the operations after it
    WriteRealAbility("laptop");
    StartManager();
    ASSERT_TRUE(IsServedAgain());
    std::string outcome;
    int nth = 0;
    do {
        ++nth;
        const Clock::time_point start = Clock::now();
        Child game = Child::Start({TestSupport::ProgramPath("system_memory_client"), std::to_string(nth)});
        outcome = game.WaitForExit();
        EXPECT_TRUE(outcome == "exit 0" || outcome == "exit 2") << nth << ": " << outcome;
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(2)) << nth << ": no call to the manager was to time out";
    } while (outcome != "exit 2" && !HasFailure());
    EXPECT_GT(nth, FEWEST);
}

// The game loses the list and nothing else, and gets the next one when there is memory again.
TEST_F(FailingCalls, ListWithoutMemoryIsLostAlone)
{
    constexpr rlim_t ROOM_BYTES = rlim_t{40} << 20;  // for threads, and less than the list takes
    WriteScenario(R"({"gpu": {"count": 524288, "total": 524288, "intervalSeconds": 5,
                              "counters": {"gpuLoadPercent": 70}}})");
    StartManager();
    Child game = Child::Start(
        {"/bin/sh", "-c", "TAVO_LOG=warn,stderr exec \"$0\" 2>&1", TestSupport::ProgramPath("system_test_client")});
    const auto says = [&game](const std::string& end) {
        std::optional<std::string> line = game.Pipe().Receive();
        while (line && !line->ends_with(end)) {
            line = game.Pipe().Receive();
        }
        return line.has_value();
    };
    game.Pipe().Send("auth first");
    ASSERT_TRUE(says("0"));
    size_t pages = 0;
    ASSERT_TRUE(std::ifstream("/proc/" + std::to_string(game.Pid()) + "/statm") >> pages);
    rlimit limit{pages * static_cast<size_t>(::sysconf(_SC_PAGESIZE)) + ROOM_BYTES, RLIM_INFINITY};
    ASSERT_EQ(::prlimit(game.Pid(), RLIMIT_AS, &limit, nullptr), 0);
    game.Pipe().Send("take-samples");
    EXPECT_TRUE(says("out of memory: a lane was closed"));
    game.Pipe().Send("auth still there");
    EXPECT_TRUE(says("0"));
    limit.rlim_cur = RLIM_INFINITY;
    ASSERT_EQ(::prlimit(game.Pid(), RLIMIT_AS, &limit, nullptr), 0);
    game.Pipe().Send("take-samples");
    EXPECT_TRUE(says("samples 524288"));
}

}  // namespace
}  // namespace SystemTest
