// SPDX-License-Identifier: Apache-2.0
// A thread reads the state of the service once a second; the screen takes copies of it under mutex_, which is never
// held while the service is asked. Nothing is started here: the tool shows what runs.
#include "top_source.h"

#include <signal.h>

#include <thread>

namespace VeltraTool {

namespace {

constexpr std::chrono::seconds INTERVAL{1};

}  // namespace

void TopSource::Open()
{
    state_.SetReport(look_.Describe(), TopState::Clock::now());
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

void TopSource::Look()
{
    Json::Value report;
    std::string trouble;
    try {
        report = look_.Describe();
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
