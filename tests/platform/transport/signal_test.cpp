// SPDX-License-Identifier: Apache-2.0
// A program that is interrupted a thousand times a second loses no call, and none is run twice. Platform threads take no
// signal but those of their own faults, and run as the process does.
#include <sched.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>

#include "platform/transport/peer_fixture.h"

namespace TransportTest {
namespace {

using TestSupport::Clock;

std::atomic<int> g_signals{0};

// SIGALRM goes to the main thread, since all others of this process block it; its handler restarts no system call.
class Signals : public PeerFixture {
protected:
    Signals()
    {
        struct sigaction action {};
        action.sa_handler = [](int) { ++g_signals; };
        ::sigaction(SIGALRM, &action, nullptr);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        ::setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
    }
    void TearDown() override
    {
        const itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
    }
};

TEST_F(Signals, InterruptedCallsRunExactlyOnce)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(5);
    int32_t calls = 0;
    for (; g_signals <= 100 && Clock::now() < end; ++calls) {
        ASSERT_EQ(Call(object_, TestCode::NOTE).Int(calls).Send(), TAVO::IPC_OK);
    }
    EXPECT_EQ(NotesThere(), Counting(0, calls));
    EXPECT_GT(g_signals, 100);
}

// Waits for an answer, for room in the socket, and for the rest of a message are all interrupted.
TEST_F(Signals, InterruptedMessagesAndWaitsAreComplete)
{
    const std::string large(4 << 20, 'l');
    for (int round = 0; round < 20; ++round) {
        Call echo(object_, TestCode::ECHO);
        ASSERT_EQ(echo.Text(large).Send(), TAVO::IPC_OK);
        ASSERT_EQ(echo.reply.ReadString(), large);
    }
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(Call(object_, TestCode::WAIT).Send(2), TAVO::IPC_TIMED_OUT);
    EXPECT_GE(Clock::now() - start, std::chrono::seconds(2));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    EXPECT_GT(g_signals, 100);
}

// The signals that each thread of a process other than its main one blocks, as bits.
std::vector<uint64_t> BlockedSignals(pid_t pid)
{
    std::vector<uint64_t> masks;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream status(thread.path() / "status");
        for (std::string word; thread.path().filename() != std::to_string(pid) && status >> word;) {
            if (word == "SigBlk:" && status >> word) {
                masks.push_back(std::stoull(word, nullptr, 16));
            }
        }
    }
    return masks;
}

using PlatformThreads = PeerFixture;

TEST_F(PlatformThreads, BlockAllSignalsButThoseOfTheirOwnFaults)
{
    constexpr int OWN[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS};
    const int foreign[] = {SIGHUP, SIGINT, SIGTERM, SIGALRM, SIGUSR1, SIGCHLD, SIGPIPE, SIGRTMAX};
    const auto isRight = [&](uint64_t mask) {
        const auto blocks = [mask](int signal) { return (mask >> (signal - 1) & 1) != 0; };
        return std::none_of(std::begin(OWN), std::end(OWN), blocks) &&
               std::all_of(std::begin(foreign), std::end(foreign), blocks);
    };
    EXPECT_TRUE(TestSupport::WaitFor([&] {  // The C library blocks all signals while a thread starts.
        const std::vector<uint64_t> masks = BlockedSignals(peer_.Pid());
        return masks.size() > 1 && std::all_of(masks.begin(), masks.end(), isRight);
    }));
}

// A property that a thread inherits from the one that starts it: how to change the calling thread's, and to look at one.
struct Inherited {
    const char* name;
    void (*change)();
    int (*look)(pid_t thread);
};

void PrintTo(const Inherited& row, std::ostream* out)
{
    *out << row.name;
}

const Inherited INHERITED[] = {
    {"policy",
     [] {
         const sched_param none{};
         ::sched_setscheduler(0, SCHED_IDLE, &none);
     },
     [](pid_t thread) { return ::sched_getscheduler(thread); }},
    {"nice_value", [] { ::setpriority(PRIO_PROCESS, 0, 7); },
     [](pid_t thread) { return ::getpriority(PRIO_PROCESS, static_cast<id_t>(thread)); }},
    {"processors",
     [] {
         cpu_set_t one;
         CPU_ZERO(&one);
         CPU_SET(::sched_getcpu(), &one);
         ::sched_setaffinity(0, sizeof(one), &one);
     },
     [](pid_t thread) {
         cpu_set_t all;
         ::sched_getaffinity(thread, sizeof(all), &all);
         return CPU_COUNT(&all);
     }},
};

class FirstUse : public ::testing::TestWithParam<Inherited> {};

// Returns whether all platform threads come to have the property as the process has it, and there are some.
bool IsAdopted(const Inherited& property)
{
    std::thread([&property] {
        property.change();
        KeepIn(ConnectToHub(), "ours", TAVO::MakeRef<TestObject>());
    }).join();
    return TestSupport::WaitFor([&property] {  // A thread adopts it when it first runs.
        int same = 0;
        int all = 0;
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            const pid_t id = std::stoi(thread.path().filename());
            same += property.look(id) == property.look(::getpid());
            ++all;
        }
        return all > 1 && same == all;
    });
}

TEST_P(FirstUse, PlatformThreadsInheritFromTheProcessNotFromTheCallingThread)
{
    if (::geteuid() != 0 && std::string_view(GetParam().name) != "processors") {
        GTEST_SKIP() << "only root may raise a priority again";
    }
    const TestSupport::PrivateRuntimeDir dir;
    const TestSupport::Child hub = TransportTest::StartPeer("hub");
    TestSupport::Child host =
        TestSupport::Child::Fork([](TestSupport::LinePipe&) { return IsAdopted(GetParam()) ? 0 : 1; });
    EXPECT_EQ(host.WaitForExit(), "exit 0");
}

INSTANTIATE_TEST_SUITE_P(Thread, FirstUse, ::testing::ValuesIn(INHERITED));

}  // namespace
}  // namespace TransportTest
