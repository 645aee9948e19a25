// SPDX-License-Identifier: Apache-2.0
#include "veltra_control.h"

#include <json/value.h>

#include <utility>

#include "base/json_text.h"
#include "base/service_result.h"
#include "explain.h"
#include "scenario/simulation_command.h"
#include "service_report.h"

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
    Json::Value content;
    content["text"] = ExplainMachine(view_.setup.rootDir, view_.config());
    answer = Document(std::move(content));
    return 0;
}

int32_t VeltraControl::Watch(const std::string&, const sptr<IVeltraWatcher>&, std::string& answer)
{
    return Refuse(SERVICE_NOT_SUPPORTED, "this service cannot be watched", answer);
}

int32_t VeltraControl::Unwatch()
{
    return SERVICE_NOT_SUBSCRIBED;
}

int32_t VeltraControl::Simulate(const std::string& command, std::string& answer)
{
    if (!view_.setup.allowsSimulation) {
        return Refuse(SERVICE_NOT_SUPPORTED,
                      "this service allows no simulation; start it without --no-simulation to change that", answer);
    }
    try {
        PerformCommand(command, view_.simulation);
    } catch (const ConfigError& error) {
        return Refuse(SERVICE_BAD_REQUEST, error.what(), answer);
    }
    Json::Value content;
    content["simulation"] = DescribeSimulation(view_.simulation);
    answer = Document(std::move(content));
    return 0;
}

}  // namespace TAVO::Veltra
