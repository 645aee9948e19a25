// SPDX-License-Identifier: Apache-2.0
// A look is one query for the state of the service. One thread looks when a reader asks for something newer than the
// latest look, and not again within the interval: a thousand readers cost the service as much as one. While a look
// blocks, which takes as long as a call may, readers use the previous one. mutex_ is never held during a look.
#include "service_feed.h"

#include <pthread.h>

#include <thread>

#include "reach.h"

namespace VeltraServe {

using std::chrono::steady_clock;
using VeltraTool::ToolError;

ServiceFeed& ServiceFeed::Start(bool isStartingService)
{
    auto* const feed = new ServiceFeed(isStartingService);
    std::thread([feed] { feed->Run(); }).detach();
    return *feed;
}

SharedLook ServiceFeed::Fresh()
{
    const steady_clock::time_point now = steady_clock::now();
    uint64_t number = 0;
    {
        const std::lock_guard lock(mutex_);
        if (latest_->number > 0 && latest_->time + INTERVAL > now) {
            return latest_;
        }
        number = latest_->number;
    }
    if (SharedLook look = After(number, now + FRESH_TIME)) {
        return look;
    }
    const auto late = std::make_shared<Look>();
    late->trouble = "The service does not answer";
    return late;
}

SharedLook ServiceFeed::After(uint64_t number, steady_clock::time_point deadline)
{
    std::unique_lock lock(mutex_);
    while (latest_->number <= number) {
        isWanted_ = true;
        changed_.notify_all();
        if (changed_.wait_until(lock, deadline) == std::cv_status::timeout && latest_->number <= number) {
            return nullptr;
        }
    }
    return latest_;
}

void ServiceFeed::Run()
{
    pthread_setname_np(pthread_self(), "serve-feed");
    for (uint64_t number = 1;; ++number) {
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isWanted_; });
            // Before the look: who asks during it gets the next one, since this one may be older than the question.
            isWanted_ = false;
        }
        auto look = std::make_shared<Look>(LookNow());
        // The clock is read after the look: the interval begins then, so a slow service is not asked without a pause.
        look->number = number;
        look->time = steady_clock::now();
        look->wallTime = std::chrono::system_clock::now();
        const steady_clock::time_point next = look->time + INTERVAL;
        {
            const std::lock_guard lock(mutex_);
            latest_ = std::move(look);
        }
        changed_.notify_all();
        std::this_thread::sleep_until(next);
    }
}

Look ServiceFeed::LookNow()
{
    Look look;
    try {
        look.report = look_.Describe();
    } catch (const ToolError& error) {
        look.trouble = TroubleText(error);
    }
    try {
        if (const auto ability = VeltraTool::DescribeAbility(VeltraTool::ReachManager(), VeltraTool::SERVICE_ABILITY)) {
            look.starts = ability->starts;
        }
    } catch (const ToolError&) {  // no manager: it is the trouble that the look reports already
    }
    return look;
}

}  // namespace VeltraServe
