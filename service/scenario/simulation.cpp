// SPDX-License-Identifier: Apache-2.0
// A change copies what is simulated, alters the copy and publishes it, so that readers hold a whole state for as long
// as they need it and no lock while they use it. Requests that a fault keeps waiting wake up with every change and look
// again: switching the simulation off releases them.
#include "scenario/simulation.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace TAVO::Veltra {

namespace {

constexpr double NEVER = std::numeric_limits<double>::infinity();

}  // namespace

double Playing::WhenIs(double at) const
{
    return isPaused || at == NEVER ? NEVER : since + (at - time) / pace;
}

void Playing::SetTime(double newTime, double now)
{
    time = newTime;
    since = now;
}

RunningFault Playing::RequestFault(ServerCode code, double now) const
{
    // Faults of commands come before those of the scenario: a person at a tool expects to see what was just asked for.
    if (const Fault* fault = faults.ForRequest(code, now)) {
        return {fault, fault->until};
    }
    const Fault* fault = scenario != nullptr ? scenario->Faults().ForRequest(code, TimeAt(now)) : nullptr;
    return {fault, fault != nullptr ? WhenIs(fault->until) : 0};
}

const Fault* Playing::PushFault(double now) const
{
    const Fault* fault = faults.ForPush(now);
    return fault == nullptr && scenario != nullptr ? scenario->Faults().ForPush(TimeAt(now)) : fault;
}

double Playing::DeathTime() const
{
    const double ofScenario = scenario == nullptr ? NEVER : WhenIs(scenario->Faults().DeathTime(time));
    return std::min(faults.DeathTime(0), ofScenario);
}

std::shared_ptr<const Playing> Simulation::Current() const
{
    if (!IsActive()) {  // no lock without a simulation
        return nullptr;
    }
    MutexLock lock(mutex_);
    return playing_;
}

void Simulation::Change(const std::function<void(Playing&, double)>& change)
{
    {
        MutexLock lock(mutex_);
        const double now = clock_.Now();
        // Copy, change, publish: readers keep the object that they have.
        auto next = playing_ == nullptr ? std::make_shared<Playing>() : std::make_shared<Playing>(*playing_);
        const std::shared_ptr<const Scenario> before = next->scenario;
        const double timeBefore = next->TimeAt(now);
        next->faults.Prune(now);
        // May throw for a mistake in a command; nothing is published then.
        change(*next, now);
        if (next->scenario != before) {
            takenUpTo_ = -1;  // so that events at time 0 are sent too
        } else if (next->TimeAt(now) != timeBefore) {
            // After a jump in time: events that were skipped are not sent, but those of this very time are.
            takenUpTo_ = std::nextafter(next->TimeAt(now), -1);
        }
        next->number = number_.load(std::memory_order_relaxed) + 1;
        next->begun = next->begun == 0 ? next->number : next->begun;
        number_.store(next->number, std::memory_order_relaxed);
        // Null, so that requests take the short way again.
        playing_ = next->IsIdle(now) ? nullptr : std::move(next);
        isActive_.store(playing_ != nullptr, std::memory_order_relaxed);
    }
    // Without the mutex: no wake-up is lost, since the state was changed under it.
    news_.notify_all();
    if (changed_) {
        changed_();
    }
}

void Simulation::Start(std::shared_ptr<const Scenario> scenario)
{
    Change([&scenario](Playing& playing, double) {
        playing.name = scenario->Name();
        playing.scenario = std::move(scenario);
        playing.hidesMachine = true;
    });
}

bool Simulation::AddText(const std::string& text)
{
    {
        MutexLock lock(mutex_);
        // The ticker takes them at once; only a tool that sends without a pause reaches this limit.
        if (texts_.size() >= MAX_TEXTS) {
            return false;
        }
        texts_.push_back(text);
        number_.fetch_add(1, std::memory_order_relaxed);
    }
    if (changed_) {
        changed_();
    }
    return true;
}

std::vector<std::string> Simulation::TakeTexts(double now)
{
    MutexLock lock(mutex_);
    std::vector<std::string> texts = std::exchange(texts_, {});
    if (playing_ != nullptr && playing_->scenario != nullptr) {
        const double time = playing_->TimeAt(now);
        for (const Scenario::Event& event : playing_->scenario->EventsIn(takenUpTo_, time)) {
            texts.push_back(event.text);
        }
        takenUpTo_ = time;
    }
    return texts;
}

double Simulation::NextText(double now) const
{
    const std::shared_ptr<const Playing> playing = Current();
    return playing == nullptr || playing->scenario == nullptr
               ? NEVER
               : playing->WhenIs(playing->scenario->NextEvent(playing->TimeAt(now)));
}

int32_t Simulation::DisturbRequest(ServerCode code)
{
    const double latest = clock_.Now() + mostHeld_;
    for (;;) {
        const std::shared_ptr<const Playing> playing = Current();
        const double now = clock_.Now();
        const auto [fault, until] = playing == nullptr ? RunningFault() : playing->RequestFault(code, now);
        if (fault == nullptr) {
            return 0;
        }
        if (fault->kind == Fault::Kind::DIE) {
            FaultPlan::Die();
        }
        if (fault->kind != Fault::Kind::HANG || now >= latest) {
            return fault->kind == Fault::Kind::REFUSE ? fault->code : 0;
        }
        // The request occupies a worker of the platform meanwhile, as a service that hangs would.
        Wait(playing->number, std::min(until, latest));
    }
}

void Simulation::DisturbReply(ServerCode code, MessageParcel& reply)
{
    const std::shared_ptr<const Playing> playing = Current();
    const Fault* fault = playing == nullptr ? nullptr : playing->RequestFault(code, clock_.Now()).fault;
    if (fault == nullptr) {
        return;
    }
    if (fault->kind == Fault::Kind::LATE) {
        const double due = clock_.Now() + std::min(fault->seconds, mostHeld_);
        // Until "off"; other changes leave the reply as late as it is. After "off" a new simulation may have begun
        // before this thread runs again.
        for (auto now = playing; now != nullptr && now->begun == playing->begun && clock_.Now() < due;
             now = Current()) {
            Wait(now->number, due);
        }
    }
    fault->Spoil(reply);
}

void Simulation::Wait(uint64_t number, double until)
{
    MutexLock lock(mutex_);
    lock.WaitUntil(news_, clock_.At(until), [this, number]() TAVO_REQUIRES(mutex_) {
        return playing_ == nullptr || playing_->number != number;
    });
}

}  // namespace TAVO::Veltra
