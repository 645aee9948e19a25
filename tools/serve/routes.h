// SPDX-License-Identifier: Apache-2.0
// What the server answers, by path.
#ifndef VELTRA_SERVE_ROUTES_H
#define VELTRA_SERVE_ROUTES_H

#include <httplib.h>

#include "edge.h"
#include "service_feed.h"

namespace VeltraServe {

// Metrics, and the live page unless it is left out. The caller keeps all of them alive while the server runs.
void AddRoutes(httplib::Server& server, const Edge& edge, ServiceFeed& feed, bool isMetricsOnly);
// The live page alone, without the edge that requests pass first.
void AddLiveRoutes(httplib::Server& server, const Edge& edge, ServiceFeed& feed);

}  // namespace VeltraServe

#endif
