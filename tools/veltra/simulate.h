// SPDX-License-Identifier: Apache-2.0
// The two halves of the verb `simulate`: what needs a running service, and what does not.
#ifndef VELTRA_TOOLS_SIMULATE_H
#define VELTRA_TOOLS_SIMULATE_H

#include "scenario_files.h"
#include "verbs.h"

namespace VeltraTool {

// `simulate check`: offline.
void AddSimulateCheck(CLI::App& simulate, Tool& tool);

// Reports every mistake of `text`, the text of `file`; returns whether there is none.
bool CheckScenario(const ScenarioFile& file, const std::string& text, const Tool& tool);

}  // namespace VeltraTool

#endif
