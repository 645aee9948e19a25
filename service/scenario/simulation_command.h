// SPDX-License-Identifier: Apache-2.0
// Commands that change the simulation of a running service, and its description.
#ifndef VELTRA_SERVICE_SIMULATION_COMMAND_H
#define VELTRA_SERVICE_SIMULATION_COMMAND_H

#include <json/value.h>

#include <string>

#include "scenario/simulation.h"

namespace TAVO::Veltra {

// Performs a command as docs/control.md describes it, and returns it as records show it: without its scenario. Throws
// ConfigError, which names the place of the mistake; nothing has changed then.
Json::Value PerformCommand(const std::string& command, Simulation& simulation);

// {"active": false}, or what is simulated.
Json::Value DescribeSimulation(const Simulation& simulation);

}  // namespace TAVO::Veltra

#endif
