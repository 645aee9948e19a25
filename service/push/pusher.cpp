// SPDX-License-Identifier: Apache-2.0
#include "push/pusher.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "base/service_log.h"
#include "push/callback_proxies.h"

namespace TAVO::Veltra {

namespace {

constexpr double NEVER = std::numeric_limits<double>::infinity();

// Whether no level and no value has changed by more than its step.
bool IsSameState(const GameCallbackEventInfo& left, const GameCallbackEventInfo& right)
{
    const std::vector<DeviceField>& fields = DeviceFields();
    return std::all_of(fields.begin(), fields.end(), [&left, &right](const DeviceField& field) {
        return field.inEvent == nullptr ||
               std::abs(int64_t{left.*field.inEvent} - right.*field.inEvent) <= field.eventStep;
    });
}

}  // namespace

double Pusher::Tick(double now)
{
    try {
        const double nextEvent = TickEvents(now);
        return std::min(nextEvent, TickGpu(now));
    } catch (const std::exception& error) {
        VELTRA_SERVICE_LOGI("nothing pushed: %s", error.what());
        return now + periods_().look;
    }
}

double Pusher::TickEvents(double now)
{
    const std::vector<Subscription> subscriptions = subscriptions_.All(Subject::EVENTS);
    if (subscriptions.empty()) {
        isListening_ = false;
        return NEVER;
    }
    const std::vector<std::string> texts = TextsSince(now);
    const bool isDue = std::any_of(subscriptions.begin(), subscriptions.end(),
                                   [now](const Subscription& subscription) { return now >= subscription.due; });
    bool hasChanged = false;
    if (isDue || now >= readAgain_ || !texts.empty()) {
        state_ = device_.Event();
        hasChanged = isListening_ && !IsSameState(announced_, state_);
        readAgain_ = now + periods_().look;
    }
    if (hasChanged || !isListening_) {
        announced_ = state_;  // and not at every reading: a slow drift adds up until it is news
    }
    isListening_ = true;
    double next = scenario_ != nullptr ? std::min(readAgain_, scenario_->NextEvent(now)) : readAgain_;
    for (Subscription subscription : subscriptions) {
        if (hasChanged || !texts.empty() || now >= subscription.due) {
            subscription.due = now + periods_().repeat;
            subscriptions_.Advance(Subject::EVENTS, subscription);
            PushEvents(subscription, texts);
        }
        next = std::min(next, subscription.due);
    }
    return next;
}

// What the scenario let happen since the last tick; nothing that came before anybody listened.
std::vector<std::string> Pusher::TextsSince(double now)
{
    const double before = std::exchange(lastTick_, now);
    std::vector<std::string> texts;
    if (isListening_ && scenario_ != nullptr) {
        for (const Scenario::Event& event : scenario_->EventsIn(before, now)) {
            texts.push_back(event.text);
        }
    }
    return texts;
}

double Pusher::TickGpu(double now)
{
    double next = NEVER;
    for (Subscription subscription : subscriptions_.All(Subject::GPU_COUNTERS)) {
        if (now >= subscription.due) {
            std::vector<GpuPerfInfo> batch = gpu_()->Batch(now, {subscription.sent, subscription.process});
            subscription.sent += batch.size();
            subscription.due = std::max(subscription.due + subscription.interval, now);
            subscriptions_.Advance(Subject::GPU_COUNTERS, subscription);
            if (!batch.empty()) {
                PushBatch(subscription, std::move(batch));
            }
        }
        next = std::min(next, subscription.due);
    }
    return next;
}

// Each text in an event of its own; an event without news tells the state.
void Pusher::PushEvents(const Subscription& subscription, const std::vector<std::string>& texts)
{
    const auto push = [this, &subscription](const std::string& text) {
        GameCallbackEventInfo info = state_;
        info.eventText = text;
        const auto deliver = [object = subscription.object, info](uint32_t replaced) mutable {
            info.extraValue = static_cast<int32_t>(replaced);
            return GameEventCallbackProxy(object).OnGameCallbackEvent(info);
        };
        pool_.PushLatest(subscription.client, subscription.object, deliver);
    };
    if (texts.empty()) {
        push(STATE_EVENT);
    }
    std::for_each(texts.begin(), texts.end(), push);
}

void Pusher::PushBatch(const Subscription& subscription, std::vector<GpuPerfInfo> batch)
{
    const auto samples = std::make_shared<std::vector<GpuPerfInfo>>(std::move(batch));  // a delivery is copyable
    pool_.PushLatest(subscription.client, subscription.object, [object = subscription.object, samples](uint32_t) {
        return GpuCounterCallbackProxy(object).OnGpuData(*samples);
    });
}

}  // namespace TAVO::Veltra
