// SPDX-License-Identifier: Apache-2.0
// The state of the service in the text format of Prometheus.
#ifndef VELTRA_SERVE_METRICS_H
#define VELTRA_SERVE_METRICS_H

#include <string>

#include "service_feed.h"

namespace VeltraServe {

// docs/fleet.md lists the metrics. What is not known is absent. All label values are bounded in number and length,
// whatever games and sensors are called.
std::string MetricsText(const Look& look);

}  // namespace VeltraServe

#endif
