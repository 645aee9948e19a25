// SPDX-License-Identifier: Apache-2.0
// Each operation runs on a platform worker and answers with one JSON document, which carries the number of its schema;
// a refusal is a document with an "error" and a code. Text of a command or a filter comes from another process: a
// mistake in it throws ConfigError before anything has changed. A simulation command is published first and recorded
// for watchers afterwards, so a record exists only for what took effect.
#include "veltra_control.h"

#include <json/value.h>

#include <utility>

#include <tavo/calling_peer.h>

#include "base/config_node.h"
#include "base/json_text.h"
#include "explain.h"
#include "scenario/simulation_command.h"
#include "service_report.h"
#include "service_result.h"

namespace TAVO::Veltra {

namespace {

constexpr int SCHEMA = 1;

std::string Document(Json::Value content)
{
    content["schema"] = SCHEMA;
    return JsonText(content);
}

int32_t Refuse(int32_t code, const std::string& why, std::string& answer)
{
    Json::Value content;
    content["error"] = why;
    answer = Document(std::move(content));
    return code;
}

}  // namespace

int32_t VeltraControl::Describe(std::string& answer)
{
    answer = Document(DescribeService(view_));
    return 0;
}

int32_t VeltraControl::Explain(std::string& answer)
{
    const Json::Value simulation = DescribeSimulation(view_.simulation);
    const std::string notice = simulation["active"].asBool()
                                   ? "simulated on top of what follows: " + JsonText(simulation) + "\n"
                                   : std::string();
    Json::Value content;
    // Two seconds. The control ability serves one request at a time, so other tools wait.
    content["text"] = notice + ExplainMachine(view_.setup.rootDir, view_.config());
    answer = Document(std::move(content));
    return 0;
}

int32_t VeltraControl::Watch(const std::string& filter, const sptr<IVeltraWatcher>& watcher, std::string& answer)
{
    WatchFilter wanted;
    try {
        wanted = WatchFilter::Parse(filter);
    } catch (const ConfigError& error) {
        return Refuse(SERVICE_BAD_REQUEST, error.what(), answer);
    }
    if (watcher == nullptr || !view_.watchers.AddWatcher(GetCallingPeer().session, std::move(wanted), watcher)) {
        return Refuse(SERVICE_NO_RESOURCES,
                      "no thread is left, or " + std::to_string(Watchers::MAX_WATCHERS) +
                          " processes watch already; end one of them first",
                      answer);
    }
    answer = Document(Json::Value(Json::objectValue));
    return 0;
}

int32_t VeltraControl::Unwatch()
{
    return view_.watchers.RemoveWatcher(GetCallingPeer().session) ? 0 : SERVICE_NOT_SUBSCRIBED;
}

int32_t VeltraControl::Simulate(const std::string& command, std::string& answer)
{
    if (!view_.setup.allowsSimulation) {
        return Refuse(SERVICE_NOT_SUPPORTED,
                      "this service allows no simulation; start it without --no-simulation to change that", answer);
    }
    try {
        WatchRecord record;
        record.kind = WatchRecord::Kind::SIMULATION;
        // A command that ends the process does not return from here.
        record.values.Document("command", JsonText(PerformCommand(command, view_.simulation)));
        if (view_.watchers.Wants(record.kind)) {
            view_.watchers.Add(std::move(record));
        }
    } catch (const ConfigError& error) {
        return Refuse(SERVICE_BAD_REQUEST, error.what(), answer);
    }
    Json::Value content;
    content["simulation"] = DescribeSimulation(view_.simulation);
    answer = Document(std::move(content));
    return 0;
}

}  // namespace TAVO::Veltra
