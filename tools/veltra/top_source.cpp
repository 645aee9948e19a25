// SPDX-License-Identifier: Apache-2.0
// The service counts calls only while a process watches them. So each service, also a restarted one, is watched before
// its state is read, with a filter that lets no call through: the counters are enough. Nothing is started here.
#include "top_source.h"

#include <signal.h>
#include <unistd.h>

#include <thread>

#include "control/control_stubs.h"
#include "exit_code.h"
#include "reach.h"

namespace VeltraTool {

using namespace TAVO;
using namespace TAVO::Veltra;

namespace {

constexpr std::chrono::seconds INTERVAL{1};

class NoRecords : public VeltraWatcherStub {
public:
    int32_t OnRecords(const std::string&, uint64_t) override { return 0; }
};

std::string TroubleText(const ToolError& error)
{
    const char* const start = error.Code() == EXIT_UNREACHABLE ? "The service has ended, or cannot be reached: "
                              : error.Code() == EXIT_TIMED_OUT ? "The service does not answer: "
                                                               : "The service cannot be read: ";
    return start + std::string(error.what());
}

}  // namespace

void TopSource::Open()
{
    Watch();
    state_.SetReport(Describe(), TopState::Clock::now());
}

void TopSource::Run()
{
    // Detached, with a reference of its own: a call to a service that hangs takes 8 s, and q must not wait for it.
    std::thread([self = shared_from_this()] {
        sigset_t signals;
        sigfillset(&signals);
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // they are for main, which they wake
        for (;;) {
            std::this_thread::sleep_for(INTERVAL);
            self->Look();
        }
    }).detach();
}

TopState TopSource::State()
{
    const std::lock_guard lock(mutex_);
    return state_;
}

uint64_t TopSource::Version()
{
    const std::lock_guard lock(mutex_);
    return version_;
}

void TopSource::Watch()
{
    Json::Value filter;
    filter["pushes"] = filter["device"] = false;
    filter["pid"].append(::getpid());  // which makes no calls
    std::string answer;
    const int32_t result = control_->Watch(JsonText(filter), MakeRef<NoRecords>(), answer);
    RequireAnswer(result, answer);
}

Json::Value TopSource::Describe()
{
    std::string answer;
    const int32_t result = control_->Describe(answer);
    return RequireAnswer(result, answer);
}

// Of the service that was asked before, or of the one that came after it.
Json::Value TopSource::DescribeAnew()
{
    if (control_ != nullptr) {
        try {
            return Describe();
        } catch (const ToolError& error) {
            control_ = nullptr;
            // A service that hangs is still the same one; only a dead one is looked for again.
            if (error.Code() != EXIT_UNREACHABLE) {
                throw;
            }
        }
    }
    try {
        control_ = ReachControl(false);
        Watch();
        return Describe();
    } catch (...) {
        control_ = nullptr;
        throw;
    }
}

void TopSource::Look()
{
    Json::Value report;
    std::string trouble;
    try {
        report = DescribeAnew();
    } catch (const ToolError& error) {
        trouble = TroubleText(error);
    }
    const std::lock_guard lock(mutex_);
    // Also after a failure: the screen shows the trouble then.
    ++version_;
    if (trouble.empty()) {
        state_.SetReport(report, TopState::Clock::now());
    } else {
        state_.SetTrouble(trouble);
    }
}

}  // namespace VeltraTool
