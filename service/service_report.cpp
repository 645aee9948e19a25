// SPDX-License-Identifier: Apache-2.0
// Builds the report part by part: the process, the device, what is simulated, games, subscriptions, counts of calls and
// pushes. It runs on the platform worker that serves the control request. Each part takes its own lock for the time of
// its copy, so the parts may describe slightly different moments. A process that ended meanwhile has no program name,
// and a device without values has no key.
#include "service_report.h"

#include <json/reader.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>

#include "scenario/simulation_command.h"

namespace TAVO::Veltra {

namespace {

using Wall = std::chrono::system_clock;

std::string UtcText(Wall::time_point time)
{
    const std::time_t seconds = Wall::to_time_t(time);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

Json::Value DescribeProcess(const ServiceView& view)
{
    // The service's clock may run faster than real time.
    const double uptime = view.clock.Now() / view.clock.Speed();
    Json::Value process;
    process["pid"] = getpid();
    process["version"] = VELTRA_VERSION;
    process["startedAt"] = UtcText(view.clock.StartedAt());
    process["uptimeSeconds"] = uptime;
    process["root"] = view.setup.rootDir;
    process["simulationAllowed"] = view.setup.allowsSimulation;
    return process;
}

void AddDevice(const ServiceView& view, Json::Value& report)
{
    const DeviceInfoResult info = view.device.Describe({});
    Json::Value document;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (info.retCode == 0 &&
        // The service's own text, so no check of its depth is needed.
        reader->parse(info.result.data(), info.result.data() + info.result.size(), &document, nullptr)) {
        report["device"] = document;
    }
}

// The process by its own name, which may be anything; empty when it has ended.
std::string ProgramOf(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

Json::Value DescribeGames(GameTable& games)
{
    Json::Value list(Json::arrayValue);
    for (const GameTable::Known& game : games.All()) {
        Json::Value item;
        item["pid"] = game.process;
        item["state"] = game.state.state;
        if (const std::string program = ProgramOf(game.process); !program.empty()) {
            item["program"] = program;
        }
        if (!game.state.bundleName.empty()) {
            item["bundle"] = game.state.bundleName;
        }
        list.append(item);
    }
    return list;
}

Json::Value DescribeSubscriptions(const ServiceView& view)
{
    Json::Value list(Json::arrayValue);
    const auto add = [&list](const Subscription& subscription, const char* subject, double seconds) {
        Json::Value item;
        item["pid"] = subscription.process;
        item["subject"] = subject;
        item["intervalSeconds"] = seconds;
        list.append(item);
    };
    for (const Subscription& subscription : view.subscriptions.All(Subject::EVENTS)) {
        add(subscription, "events", view.config().repeatSeconds);
    }
    for (const Subscription& subscription : view.subscriptions.All(Subject::GPU_COUNTERS)) {
        add(subscription, "gpu", subscription.interval);
    }
    return list;
}

}  // namespace

Json::Value DescribeService(const ServiceView& view)
{
    Json::Value report;
    report["service"] = DescribeProcess(view);
    AddDevice(view, report);
    report["simulation"] = DescribeSimulation(view.simulation);
    report["games"] = DescribeGames(view.games);
    report["subscriptions"] = DescribeSubscriptions(view);
    report["calls"] = view.calls.Describe();
    report["pushes"] = view.watchers.DescribePushes();
    report["watchers"] = Json::UInt64{view.watchers.Count()};
    return report;
}

}  // namespace TAVO::Veltra
