// SPDX-License-Identifier: Apache-2.0
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
    ++version_;
    if (trouble.empty()) {
        state_.SetReport(report, TopState::Clock::now());
    } else {
        state_.SetTrouble(trouble);
    }
}

}  // namespace VeltraTool
