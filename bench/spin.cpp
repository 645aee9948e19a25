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
constexpr int FRAMES = 60;   // a round at the rate of frames
constexpr int ROUNDS = 21;
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
    Game(int serviceProcessor, int ownProcessor) : platform_(serviceProcessor, ownProcessor)
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
        double next = Bench::Now();
        for (int i = 0; i < FRAMES; ++i) {
            SleepUntil(next += FRAME_SECONDS);
            Call();
        }
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
    Games(int serviceProcessor, int ownProcessor)
        : serviceProcessor_(serviceProcessor),
          ownProcessor_(ownProcessor),
          helpers_(2, [this](int helper, char command) { return Work(helper, command); })
    {
    }
    double Run(bool mayPoll, char command) { return helpers_.Run(mayPoll ? 0 : 1, command); }

private:
    double Work(int helper, char command)
    {
        if (!game_) {
            if (helper == 1) {
                ::setenv("TAVO_SPIN", "off", 1);
            }
            game_.emplace(serviceProcessor_, ownProcessor_);
        }
        return command == 't' ? game_->PacedProcessorTime() : Flat(CALLS, [this] { game_->Call(); });
    }

    const int serviceProcessor_;
    const int ownProcessor_;
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

// The raw call comes half a frame after the facade's, so that both meet the same state of the machine: how long a
// processor takes to wake up changes within seconds.
void MeasurePaced(const Bench::Row& row, int serviceProcessor)
{
    Bench::RawPeer raw(serviceProcessor,
                       {Bench::CALL_AUTH_REQUEST_BYTES, std::vector<uint8_t>(Bench::CALL_AUTH_REPLY_BYTES)});
    Game game(serviceProcessor, 0);
    std::vector<double> values;
    std::vector<double> raws;
    double next = Bench::Now();
    for (int round = -1; round < ROUNDS; ++round) {  // The first one is not counted: the lane gets its page.
        double inGame = 0;
        double inRaw = 0;
        for (int i = 0; i < FRAMES; ++i) {
            SleepUntil(next += FRAME_SECONDS);
            inGame += Flat(1, [&] { game.Call(); });
            SleepUntil(next + FRAME_SECONDS / 2);
            inRaw += Flat(1, [&] { raw.Call(); });
        }
        if (round >= 0) {
            values.push_back(inGame / FRAMES);
            raws.push_back(inRaw / FRAMES);
        }
    }
    Bench::Print(row, values, raws);
}

void MeasureCpu()
{
    Games games(Bench::EITHER_PROCESSOR, Bench::EITHER_PROCESSOR);
    Bench::MeasureAndPrint(
        {"spin_cpu", "us", 1.25}, ROUNDS, [&] { return games.Run(true, 't'); }, [&] { return games.Run(false, 't'); });
}

void MeasureBusy()
{
    // On processors of their own: where the kernel puts the two threads beside busy loops is left to chance otherwise,
    // for seconds, and a call takes four times as long with the threads apart.
    Games games(1, 0);
    const BusyLoops loops;
    Bench::MeasureAndPrint(
        {"facade_call_busy", "us", 1.1}, ROUNDS, [&] { return games.Run(true, 'b'); },
        [&] { return games.Run(false, 'b'); });
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string row = argc > 1 ? argv[1] : "";
    if (row == "spin_cpu") {
        MeasureCpu();
    } else if (row == "facade_call_busy") {
        MeasureBusy();
    } else if (row == "facade_call_paced") {
        MeasurePaced({row, "us", 0.9}, 1);
    } else if (row == "facade_call_paced_one_cpu") {
        MeasurePaced({row, "us", 1.5}, 0);
    } else {
        Bench::GiveUp("unknown row");
    }
    return 0;
}
