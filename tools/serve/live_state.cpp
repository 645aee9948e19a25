// SPDX-License-Identifier: Apache-2.0
// What the page receives: once, what can be simulated, and then states. The text of a state is made once for all
// streams, under mutex_. The document is that of the service with less in it: no buckets of durations, and a limited
// number of games, since a page must stay usable when a thousand processes report.
#include "live_state.h"

#include "output.h"
#include "scenario/scenario.h"
#include "scenario_files.h"

namespace VeltraServe {

using VeltraTool::MemberOf;

namespace {

// They are for /metrics only.
void DropBuckets(Json::Value& calls)
{
    if (!calls.isObject()) {
        return;
    }
    for (Json::Value& call : calls) {
        if (call.isObject()) {
            call.removeMember("buckets");
        }
    }
}

}  // namespace

std::string LiveSetup(bool isReadOnly)
{
    Json::Value setup;
    setup["isReadOnly"] = isReadOnly;
    setup["version"] = VELTRA_VERSION;
    for (const TAVO::Veltra::DeviceField& field : TAVO::Veltra::DeviceFields()) {
        Json::Value item;
        item["key"] = field.key;
        item["unit"] = field.unit;
        item["least"] = Json::Int64{field.least};
        item["most"] = Json::Int64{field.most};
        setup["fields"].append(std::move(item));
    }
    setup["scenarios"] = Json::arrayValue;
    for (const VeltraTool::ScenarioFile& file : VeltraTool::InstalledScenarios()) {
        setup["scenarios"].append(file.name);
    }
    for (const std::string& kind : VeltraTool::FaultKinds()) {
        setup["faults"].append(kind);
    }
    return VeltraTool::JsonText(setup);
}

std::string LiveState::TextOf(const SharedLook& look)
{
    const std::lock_guard lock(mutex_);
    // All streams wake up for the same look; the first of them writes the text.
    if (look->number != number_) {
        text_ = Write(*look);
        number_ = look->number;
    }
    return text_;
}

std::string LiveState::Write(const Look& look)
{
    Json::Value state;
    if (look.trouble.empty()) {
        state = look.report;
        DropBuckets(state["calls"]);
        if (const Json::Value& games = MemberOf(state, "games"); games.isArray() && games.size() > MAX_GAMES) {
            state["gamesCount"] = games.size();
            state["games"].resize(MAX_GAMES);
        }
    } else {
        state["trouble"] = look.trouble;
    }
    state["t"] = std::chrono::duration<double>(look.wallTime.time_since_epoch()).count();
    return VeltraTool::JsonText(state);
}

}  // namespace VeltraServe
