// SPDX-License-Identifier: Apache-2.0
// Explains in words how the service computes the device state: every sensor, why it counts or not, and the level.
#ifndef VELTRA_SERVICE_EXPLAIN_H
#define VELTRA_SERVICE_EXPLAIN_H

#include <string>

#include "service_config.h"

namespace TAVO::Veltra {

// Takes two seconds for this machine ("/"): some values are known from the second reading on.
std::string ExplainMachine(const std::string& rootDir, const ServiceConfig& config);

}  // namespace TAVO::Veltra

#endif
