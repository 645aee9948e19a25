// SPDX-License-Identifier: Apache-2.0
// Reports in words what the service makes of a machine: every sensor, why it counts or not, how the level results.
#ifndef VELTRA_SERVICE_EXPLAIN_H
#define VELTRA_SERVICE_EXPLAIN_H

#include <string>

#include "service_config.h"

namespace TAVO::Veltra {

// Takes two seconds for this machine ("/"): some values are known from the second reading on.
std::string ExplainMachine(const std::string& rootDir, const ServiceConfig& config);

}  // namespace TAVO::Veltra

#endif
