// SPDX-License-Identifier: Apache-2.0
// The ticker's thread calls Tick; it returns when it has to be called again. Events come first: the device is read when
// an interval is over, a subscriber has waited long enough or a simulation has changed, and is compared with the state
// that was announced last. GPU batches follow, each for its own subscription. Each push is queued in the delivery pool,
// which sends it, so a slow client never delays a tick. Times and counts are stored with Advance, which does nothing
// when the subscription was replaced meanwhile.
#include "push/pusher.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "base/service_log.h"
#include "push/callback_proxies.h"
#include "push/push_notes.h"

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
    // A copy: subscriptions may come and go during the tick.
    const std::vector<Subscription> subscriptions = subscriptions_.All(Subject::EVENTS);
    std::vector<std::string> texts = simulation_.TakeTexts(now);
    if (subscriptions.empty()) {
        isListening_ = false;
        return NEVER;
    }
    if (!isListening_) {
        texts.clear();  // what happened before anybody listened
    }
    // Each change of the simulation has a number: a value that a tool sets is announced at once, not at the next look.
    const uint64_t number = simulation_.Number();
    const bool isSimulatedAnew = number != simulated_;
    simulated_ = number;
    const bool isDue = std::any_of(subscriptions.begin(), subscriptions.end(),
                                   [now](const Subscription& subscription) { return now >= subscription.due; });
    bool hasChanged = false;
    if (isDue || isSimulatedAnew || now >= readAgain_ || !texts.empty()) {
        state_ = device_.Event();
        hasChanged = isListening_ && !IsSameState(announced_, state_);
        readAgain_ = now + periods_().look;
    }
    if (hasChanged || !isListening_) {
        announced_ = state_;  // and not at every reading: a slow drift adds up until it is news
    }
    isListening_ = true;
    double next = std::min(readAgain_, simulation_.NextText(now));
    for (Subscription subscription : subscriptions) {
        if (hasChanged || !texts.empty() || now >= subscription.due) {
            subscription.due = now + periods_().repeat;
            // Before the push, so that a client which subscribes anew in its callback keeps its own time.
            subscriptions_.Advance(Subject::EVENTS, subscription);
            PushEvents(subscription, texts);
        }
        next = std::min(next, subscription.due);
    }
    return next;
}

double Pusher::TickGpu(double now)
{
    double next = NEVER;
    const std::shared_ptr<const Playing> playing = simulation_.Current();
    const std::shared_ptr<const Scenario> before =
        std::exchange(scenario_, playing == nullptr ? nullptr : playing->scenario);
    for (Subscription subscription : subscriptions_.All(Subject::GPU_COUNTERS)) {
        FollowScenario(subscription, scenario_ != before, now);
        if (now >= subscription.due) {
            std::vector<GpuPerfInfo> batch =
                gpu_.Batch(now, {subscription.sent, subscription.process, subscription.earlier});
            subscription.sent += batch.size();
            // A tick that was late keeps the rhythm; batches that were missed are not sent in a burst.
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

// The scenario decides the interval while it plays, and counts its samples anew.
void Pusher::FollowScenario(Subscription& subscription, bool isOther, double now)
{
    const double interval = gpu_.Interval(subscription.milliseconds);
    if (isOther || interval != subscription.interval) {
        // The new interval began with the last batch as well.
        subscription.due = std::max(subscription.due + interval - subscription.interval, now);
        subscription.interval = interval;
        subscription.earlier = subscription.sent;
        subscriptions_.Advance(Subject::GPU_COUNTERS, subscription);
    }
}

// Each text in an event of its own. Without a text, one event with the state.
void Pusher::PushEvents(const Subscription& subscription, const std::vector<std::string>& texts)
{
    const auto push = [this, &subscription, &texts](const std::string& text) {
        GameCallbackEventInfo info = state_;
        info.eventText = text;
        const auto deliver = [&desk = desk_, object = subscription.object, process = subscription.process,
                              info](uint32_t replaced) mutable {
            info.extraValue = static_cast<int32_t>(replaced);
            return desk.Push(
                PushKind::GAME_EVENT, process, replaced,
                [&](PushSpoil spoil) { return GameEventCallbackProxy(object, spoil).OnGameCallbackEvent(info); },
                [&info](Note& note) { Describe(info, note); });
        };
        // Replaces a state that still waits for the same object, which the client learns from extraValue, but no text.
        pool_.PushLatest(subscription.client, subscription.object, deliver, texts.empty());
    };
    if (texts.empty()) {
        push(STATE_EVENT);
    }
    std::for_each(texts.begin(), texts.end(), push);
}

void Pusher::PushBatch(const Subscription& subscription, std::vector<GpuPerfInfo> batch)
{
    const auto samples = std::make_shared<std::vector<GpuPerfInfo>>(std::move(batch));  // a delivery is copyable
    const auto deliver = [&desk = desk_, object = subscription.object, process = subscription.process,
                          samples](uint32_t replaced) {
        return desk.Push(
            PushKind::GPU, process, replaced,
            [&](PushSpoil spoil) { return GpuCounterCallbackProxy(object, spoil).OnGpuData(*samples); },
            [&samples](Note& note) { Describe(*samples, note); });
    };
    pool_.PushLatest(subscription.client, subscription.object, deliver);
}

}  // namespace TAVO::Veltra
