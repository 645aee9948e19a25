// SPDX-License-Identifier: Apache-2.0
// What polling costs: the processor time of calls at the rate of frames, and calls beside programs that keep all
// processors busy, each beside the same with TAVO_SPIN=off. And the caller's time for a call at the rate of frames.
#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "facade_bytes.h"
#include "helpers.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"
#include "service_process.h"
#include "veltra_server_client.h"

namespace {

constexpr double FRAME_SECONDS = 1 / 60.0;
constexpr int CALLS = 2000;  // a round without a pause
constexpr int FRAMES = 30;   // a round at the rate of frames
constexpr int ROUNDS = 21;
// Beside busy loops, where the scheduler places the two threads together or apart for a while: many short rounds.
constexpr int BUSY_ROUNDS = 101;
constexpr int PROCESSORS = 2;

void SleepUntil(double seconds)
{
    const timespec time{static_cast<time_t>(seconds),
                        static_cast<long>((seconds - static_cast<double>(static_cast<time_t>(seconds))) * 1e9)};
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

// Microseconds of the caller's time for one call.
template <typename Call>
double Flat(int calls, Call call)
{
    const double start = Bench::Now();
    for (int i = 0; i < calls; ++i) {
        call();
    }
    return (Bench::Now() - start) / calls * 1e6;
}

template <typename Call>
double Paced(Call call)
{
    double inCalls = 0;
    double next = Bench::Now();
    for (int i = 0; i < FRAMES; ++i) {
        next += FRAME_SECONDS;
        SleepUntil(next);
        inCalls += Flat(1, call);
    }
    return inCalls / FRAMES;
}

// Processor time that the threads of a process have taken so far, in microseconds.
double ProcessorTime(pid_t process)
{
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(tasks.c_str()), ::closedir);
    double nanoseconds = 0;
    for (const dirent* task = nullptr; folder != nullptr && (task = ::readdir(folder.get())) != nullptr;) {
        double ofTask = 0;
        if (std::ifstream(tasks + "/" + task->d_name + "/schedstat") >> ofTask) {
            nanoseconds += ofTask;
        }
    }
    return nanoseconds / 1e3;
}

class Game {
public:
    Game() : platform_(Bench::EITHER_PROCESSOR, Bench::EITHER_PROCESSOR)
    {
        if (client_.CallAuth(text_) == TAVO::Veltra::RESULT_NO_SERVICE) {
            Bench::GiveUp("the service cannot be reached");
        }
        service_ = Bench::DescribeService().pid;
    }

    void Call()
    {
        if (client_.CallAuth(text_) == TAVO::Veltra::RESULT_NO_SERVICE) {
            Bench::GiveUp("a call did not reach the service");
        }
    }
    // Of both processes, for a call.
    double PacedProcessorTime()
    {
        const double before = ProcessorTime(::getpid()) + ProcessorTime(service_);
        Paced([this] { Call(); });
        return (ProcessorTime(::getpid()) + ProcessorTime(service_) - before) / FRAMES;
    }

private:
    Bench::Platform platform_;
    TAVO::Veltra::VeltraClient client_;
    const std::string text_ = std::string(Bench::CALL_AUTH_TEXT_BYTES, 'x');
    pid_t service_ = 0;
};

// Two games with a manager and a service each, of which the second does not poll.
class Games {
public:
    Games() : helpers_(2, [this](int helper, char command) { return Work(helper, command); }) {}
    double Run(bool mayPoll, char command) { return helpers_.Run(mayPoll ? 0 : 1, command); }

private:
    double Work(int helper, char command)
    {
        if (!game_) {
            if (helper == 1) {
                ::setenv("TAVO_SPIN", "off", 1);
            }
            game_.emplace();
        }
        return command == 't' ? game_->PacedProcessorTime() : Flat(CALLS, [this] { game_->Call(); });
    }

    std::optional<Game> game_;  // in the helper's process
    Bench::Helpers helpers_;
};

class BusyLoops {
public:
    BusyLoops()
    {
        for (int i = 0; i < PROCESSORS; ++i) {
            const pid_t process = ::fork();
            if (process == 0) {
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                Bench::Pin(i);
                for (;;) {
                    asm volatile("");
                }
            }
            processes_.push_back(process);
        }
    }
    ~BusyLoops()
    {
        for (const pid_t process : processes_) {
            ::kill(process, SIGKILL);
            ::waitpid(process, nullptr, 0);
        }
    }

private:
    std::vector<pid_t> processes_;
};

}  // namespace

int main()
{
    Games games;
    Bench::MeasureAndPrint(
        {"spin_cpu", "us", 1.25}, ROUNDS, [&] { return games.Run(true, 't'); }, [&] { return games.Run(false, 't'); });
    {
        const BusyLoops loops;
        Bench::MeasureAndPrint(
            {"facade_call_busy", "us", 1.1}, BUSY_ROUNDS, [&] { return games.Run(true, 'b'); },
            [&] { return games.Run(false, 'b'); });
    }
    Bench::RawPeer raw(Bench::EITHER_PROCESSOR,
                       {Bench::CALL_AUTH_REQUEST_BYTES, std::vector<uint8_t>(Bench::CALL_AUTH_REPLY_BYTES)});
    Game game;
    Bench::MeasureAndPrint(
        {"facade_call_paced", "us", 0.9}, ROUNDS, [&] { return Paced([&] { game.Call(); }); },
        [&] { return Paced([&] { raw.Call(); }); });
    return 0;
}
