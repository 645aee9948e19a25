// SPDX-License-Identifier: Apache-2.0
// Reads faults from a scenario (times count from its start) or from a command (times count from the moment of the
// command) and finds the one that applies. Parsing runs each key in a Try of its own, so that a check of a scenario
// lists every mistake. The first fault of the list that matches wins. No lock: the plan is part of an object that is
// constant once it is published. "die" is SIGKILL, so that no handler and no destructor runs, as in a real crash.
#include "scenario/fault_plan.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "base/operation_names.h"
#include "service_result.h"

namespace TAVO::Veltra {

namespace {

constexpr double MOST_SECONDS = 1e9;
constexpr double FOR_GOOD = std::numeric_limits<double>::infinity();
constexpr size_t MAX_TEXT_BYTES = 65536;
constexpr double LATE_SECONDS = 10;  // longer than a client waits
constexpr double MOST_LATE_SECONDS = 3600;
constexpr int64_t FLOOD_COUNT = 1000;
constexpr int64_t MOST_FLOOD_COUNT = 1000000;
constexpr char CUT_TEXT[] = "{\"tempLevel\": ";

struct KindName {
    const char* name;
    Fault::Kind kind;
};
constexpr KindName KINDS[] = {
    {"die", Fault::Kind::DIE},
    {"hang", Fault::Kind::HANG},
    {"lateReply", Fault::Kind::LATE},
    {"refuse", Fault::Kind::REFUSE},
    {"shortReply", Fault::Kind::SHORT_REPLY},
    {"badText", Fault::Kind::BAD_TEXT},
    {"wrongToken", Fault::Kind::WRONG_TOKEN},
    {"shortCallback", Fault::Kind::SHORT_CALLBACK},
    {"flood", Fault::Kind::FLOOD},
};

Fault::Kind ParseKind(const ConfigNode& node)
{
    const std::string name = node.Text(MAX_TEXT_BYTES);
    const auto found =
        std::find_if(std::begin(KINDS), std::end(KINDS), [&name](const KindName& row) { return name == row.name; });
    if (found == std::end(KINDS)) {
        node.Fail("there is no \"" + name + "\"");
    }
    return found->kind;
}

// The operation that the fault is restricted to, or a complaint where there can be none.
std::optional<ServerCode> ParseOperation(const ConfigNode& node, const Fault& fault)
{
    std::optional<ServerCode> operation;
    if (node.Has("operation")) {
        const ConfigNode name = node.Member("operation");
        if (fault.IsOfPushes()) {
            name.Fail("this fault spoils what the service pushes, not an operation");
        }
        operation = FindOperation(name.Text(MAX_TEXT_BYTES));
        if (!operation) {
            name.Fail("there is no \"" + name.Text(MAX_TEXT_BYTES) + "\"");
        }
    }
    if (fault.kind == Fault::Kind::BAD_TEXT) {
        if (operation.value_or(ServerCode::GET_DEVICE_INFO) != ServerCode::GET_DEVICE_INFO) {
            node.Member("operation").Fail("only GetDeviceInfo answers with a text to spoil");
        }
        operation = ServerCode::GET_DEVICE_INFO;
    }
    return operation;
}

Fault ParseFault(const ConfigNode& node)
{
    Fault fault;
    node.Try([&] { fault.kind = ParseKind(node.Member("kind")); });
    node.Try([&] { fault.from = node.NumberOr("at", 0, 0, MOST_SECONDS); });
    node.Try(
        [&] { fault.until = node.Has("for") ? fault.from + node.Member("for").Number(0, MOST_SECONDS) : FOR_GOOD; });
    node.Try([&] { fault.operation = ParseOperation(node, fault); });
    node.Try([&] {
        fault.code = static_cast<int32_t>(node.IntegerOr("code", SERVICE_NOT_SUPPORTED, INT32_MIN, INT32_MAX));
        if (fault.code == 0) {
            node.Member("code").Fail("0 is no refusal");
        }
    });
    node.Try([&] { fault.seconds = node.NumberOr("seconds", LATE_SECONDS, 0, MOST_LATE_SECONDS); });
    node.Try([&] { fault.count = static_cast<uint32_t>(node.IntegerOr("count", FLOOD_COUNT, 1, MOST_FLOOD_COUNT)); });
    node.Try([&] { fault.text = node.TextOr("text", CUT_TEXT, MAX_TEXT_BYTES); });
    return fault;
}

}  // namespace

const char* Fault::KindName() const
{
    return std::find_if(std::begin(KINDS), std::end(KINDS), [this](const auto& row) { return row.kind == kind; })->name;
}

void Fault::Spoil(MessageParcel& reply) const
{
    if (kind == Kind::SHORT_REPLY) {
        const std::string written(reinterpret_cast<const char*>(reply.GetData()), reply.GetDataSize());
        // Whole slots, as the transport requires: the data is short for the reader and valid for the platform.
        reply.SetData(written.data(), written.size() / 2 / Parcel::SLOT * Parcel::SLOT);
    } else if (kind == Kind::BAD_TEXT) {
        reply.SetData(nullptr, 0);
        // Success, and then a text that is no document.
        reply.WriteInt32(0);
        reply.WriteString(text);
    }
}

FaultPlan FaultPlan::Parse(const ConfigNode& node)
{
    FaultPlan plan;
    for (const ConfigNode& item : node.Items(MAX_FAULTS)) {
        item.Try([&] {
            item.ExpectKeys({"kind", "at", "for", "operation", "code", "seconds", "count", "text"});
            plan.faults_.push_back(ParseFault(item));
        });
    }
    return plan;
}

void FaultPlan::Add(const ConfigNode& command, double now)
{
    command.ExpectKeys({"do", "kind", "at", "for", "operation", "code", "seconds", "count", "text"});
    Fault fault = ParseFault(command);
    // Checked after the parsing, so that a mistake is reported before the limit.
    // A command counts from the moment of its arrival, the plan from the start of the scenario.
    fault.from += now;
    fault.until += now;
    if (faults_.size() >= MAX_FAULTS) {
        command.Fail("there are " + std::to_string(MAX_FAULTS) + " faults already; switch the simulation off first");
    }
    faults_.push_back(std::move(fault));
}

void FaultPlan::Prune(double now)
{
    std::erase_if(faults_, [now](const Fault& fault) { return fault.until <= now; });
}

bool FaultPlan::IsOver(double now) const
{
    return std::all_of(faults_.begin(), faults_.end(), [now](const Fault& fault) { return fault.until <= now; });
}

const Fault* FaultPlan::ForRequest(ServerCode code, double now) const
{
    const auto found = std::find_if(faults_.begin(), faults_.end(), [&](const Fault& fault) {
        return !fault.IsOfPushes() && now >= fault.from && now < fault.until && fault.operation.value_or(code) == code;
    });
    return found == faults_.end() ? nullptr : &*found;
}

const Fault* FaultPlan::ForPush(double now) const
{
    const auto found = std::find_if(faults_.begin(), faults_.end(), [now](const Fault& fault) {
        return fault.IsOfPushes() && now >= fault.from && now < fault.until;
    });
    return found == faults_.end() ? nullptr : &*found;
}

double FaultPlan::DeathTime(double begin) const
{
    double time = FOR_GOOD;
    for (const Fault& fault : faults_) {
        // By `begin` and not by the present time: the service may notice a short fault only after its end.
        const bool isSkipped = fault.from < begin && fault.until <= begin;
        if (fault.kind == Fault::Kind::DIE && !fault.operation && !isSkipped) {
            time = std::min(time, fault.from);
        }
    }
    return time;
}

void FaultPlan::Die()
{
    std::raise(SIGKILL);
    std::abort();  // not reached: SIGKILL can be neither caught nor blocked
}

}  // namespace TAVO::Veltra
