// SPDX-License-Identifier: Apache-2.0
// A request is made again only if all of it was recorded and the facade sends it as the game's did. What is left out is
// counted by its reason.
#include "replay_plan.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "output.h"
#include "recording.h"

namespace VeltraTool {

namespace {

constexpr size_t MAX_GAMES = 64;  // each is a process
constexpr char CUT[] = "recorded without all of their arguments (cut)";
constexpr char NO_OPERATION[] = "operations that the library does not offer";
constexpr char NOT_SENT[] = "about a subscription that the library would not ask the service about";

const CallOperation* OperationOf(const std::string& recorded)
{
    // The facade's names for the two requests that carry other ones.
    const std::string name = recorded == "RegisterCallBack"     ? "RegisterGameCallback"
                             : recorded == "UnRegisterCallBack" ? "UnRegisterGameCallback"
                                                                : recorded;
    const std::vector<CallOperation>& operations = CallOperations();
    const auto found = std::find_if(operations.begin(), operations.end(),
                                    [&name](const CallOperation& each) { return name == each.name; });
    return found == operations.end() ? nullptr : &*found;
}

bool HasAny(const std::string& text, const char* letters)
{
    return text.find_first_of(letters) != std::string::npos;
}

// A list of texts or of objects as an argument; empty: it cannot be written as one.
std::optional<std::string> ListArgument(const Json::Value& list)
{
    std::string text;
    for (const Json::Value& item : list) {
        if (item.isObject()) {
            return JsonText(list);
        }
        if (!item.isString() || item.asString().empty() || HasAny(item.asString(), ",")) {
            return std::nullopt;
        }
        text += (text.empty() ? "" : ",") + item.asString();
    }
    return text;
}

std::optional<std::string> PairsArgument(const Json::Value& pairs)
{
    std::string text;
    for (const std::string& key : pairs.getMemberNames()) {
        if (!pairs[key].isString() || HasAny(key, ",=") || HasAny(pairs[key].asString(), ",")) {
            return std::nullopt;
        }
        text += (text.empty() ? "" : ",") + key + "=" + pairs[key].asString();
    }
    return text;
}

std::optional<std::string> Argument(const Json::Value& value)
{
    if (value.isArray()) {
        return ListArgument(value);
    }
    if (value.isObject()) {
        return PairsArgument(value);
    }
    if (value.isInt64()) {
        return std::to_string(value.asInt64());
    }
    return value.isString() ? std::optional(value.asString()) : std::nullopt;
}

// The numbers alone: the service ignores the parameters of a query.
std::optional<std::string> QueryTypes(const Json::Value& details)
{
    std::string text;
    for (const Json::Value& detail : details.isArray() ? details : Json::Value(Json::arrayValue)) {
        if (!detail.isObject() || !detail["queryType"].isInt()) {
            return std::nullopt;
        }
        text += (text.empty() ? "" : ",") + std::to_string(detail["queryType"].asInt());
    }
    return details.isArray() ? std::optional(text) : std::nullopt;
}

// Empty: not all of them are known.
std::optional<std::vector<std::string>> ArgumentsOf(const CallOperation& operation, const Json::Value& record)
{
    Json::Value arguments = record["args"];
    for (const char* const whole : {"info", "bundle"}) {  // records of the facade, whose fields the parameters are
        if (arguments.isMember(whole) && arguments[whole].isObject()) {
            arguments = Json::Value(arguments[whole]);
        }
    }
    std::vector<std::string> words;
    for (const std::string& name : operation.parameters) {
        const std::string key = name == "queryTypes" ? "details" : name;
        if (name == "key") {  // the facade's own; the service does not know it
            words.emplace_back("key=1");
            continue;
        }
        // A "Count" beside a list: the recording has only its first items.
        if (!arguments.isMember(key) || arguments.isMember(key + "Count")) {
            return std::nullopt;
        }
        const auto text = name == "queryTypes" ? QueryTypes(arguments[key]) : Argument(arguments[key]);
        if (!text) {
            return std::nullopt;
        }
        words.push_back(name + "=" + *text);
    }
    return words;
}

// The facade asks the service for game events once, and ends them only if it has them.
void LeaveOutUnsent(std::vector<ReplayRequest>& requests)
{
    bool isRegistered = false;
    std::vector<ReplayRequest> sent;
    for (ReplayRequest& request : requests) {
        const bool begins = request.name == "RegisterCallBack";
        const bool ends = request.name == "UnRegisterCallBack";
        if ((begins && isRegistered) || (ends && !isRegistered)) {
            continue;
        }
        isRegistered = begins ? request.code == 0 : isRegistered && !ends;
        sent.push_back(std::move(request));
    }
    requests = std::move(sent);
}

void Add(const Json::Value& record, const RecordingReader& reader, ReplayPlan& plan)
{
    ReplayRequest request;
    request.name = record["op"].asString();
    request.code = record["code"].asInt();
    request.operation = OperationOf(request.name);
    // A record has the time of its end; requests are made again at their beginning.
    request.seconds = (static_cast<double>(MicrosecondsOf(record)) - record["us"].asDouble()) / 1e6;
    if (request.operation == nullptr) {
        ++plan.skipped[NO_OPERATION];
        return;
    }
    // A request with other arguments might have another result, which would be reported as a difference.
    auto arguments = IsCut(record) ? std::nullopt : ArgumentsOf(*request.operation, record);
    if (!arguments) {
        ++plan.skipped[CUT];
        return;
    }
    request.arguments = std::move(*arguments);
    plan.games[ProcessOf(record)].push_back(std::move(request));
    if (plan.games.size() > MAX_GAMES) {
        reader.Fail("is of one process too many: at most 64 are replayed");
    }
}

}  // namespace

ReplayPlan PlanReplay(const std::string& file)
{
    ReplayPlan plan;
    RecordingReader reader(file);
    while (const std::optional<Json::Value> record = reader.Next()) {
        if (TextOf((*record)["type"]) == "call") {
            Add(*record, reader, plan);
        }
    }
    double first = std::numeric_limits<double>::max();
    for (auto& [process, requests] : plan.games) {
        std::stable_sort(requests.begin(), requests.end(),
                         [](const auto& left, const auto& right) { return left.seconds < right.seconds; });
        first = std::min(first, requests.front().seconds);
        const size_t before = requests.size();
        LeaveOutUnsent(requests);
        if (requests.size() < before) {
            plan.skipped[NOT_SENT] += before - requests.size();
        }
    }
    for (auto& [process, requests] : plan.games) {
        for (ReplayRequest& request : requests) {
            request.seconds -= first;
        }
    }
    return plan;
}

}  // namespace VeltraTool
