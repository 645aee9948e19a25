// SPDX-License-Identifier: Apache-2.0
// Says in words what the service makes of a machine: every sensor, whether it counts and why, and how the level results.
#ifndef VELTRA_SERVICE_EXPLAIN_H
#define VELTRA_SERVICE_EXPLAIN_H

#include <string>

#include "service_config.h"

namespace TAVO::Veltra {

// Takes two seconds for this machine ("/"): some values are known from the second reading on.
std::string ExplainMachine(const std::string& rootDir, const ServiceConfig& config);

}  // namespace TAVO::Veltra

#endif
