// SPDX-License-Identifier: Apache-2.0
// The process that `doctor` runs in a private runtime directory.
#ifndef VELTRA_TOOLS_RESTART_PROBE_H
#define VELTRA_TOOLS_RESTART_PROBE_H

#include "verbs.h"

namespace VeltraTool {

constexpr char PROBE_VERB[] = "doctor-probe";

// The hidden verb: kills the service of its runtime directory, and prints what happened as JSON. Refuses where
// the service runs already: it kills only one that was started for its own call.
void AddRestartProbe(CLI::App& app, Tool& tool);

}  // namespace VeltraTool

#endif
