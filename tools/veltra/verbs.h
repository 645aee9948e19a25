// SPDX-License-Identifier: Apache-2.0
// The verbs of the tool. Each adds itself to the command line; when it is chosen it runs and sets Tool::exitCode, or
// throws ToolError.
#ifndef VELTRA_TOOLS_VERBS_H
#define VELTRA_TOOLS_VERBS_H

#include <CLI/App.hpp>

#include "exit_code.h"
#include "output.h"

namespace VeltraTool {

// One more verb below `app`, with the options of the tool behind it too.
CLI::App* AddVerb(CLI::App& app, const std::string& name, const std::string& what);

void AddStatus(CLI::App& app, Tool& tool);
void AddGet(CLI::App& app, Tool& tool);
void AddWatch(CLI::App& app, Tool& tool);
void AddMonitor(CLI::App& app, Tool& tool);
void AddRecord(CLI::App& app, Tool& tool);
void AddReplay(CLI::App& app, Tool& tool);
void AddReport(CLI::App& app, Tool& tool);
void AddTop(CLI::App& app, Tool& tool);
void AddTrace(CLI::App& app, Tool& tool);
void AddScenario(CLI::App& app, Tool& tool);
void AddExplain(CLI::App& app, Tool& tool);
void AddCall(CLI::App& app, Tool& tool);
void AddDoctor(CLI::App& app, Tool& tool);
void AddSimulate(CLI::App& app, Tool& tool);
void AddServe(CLI::App& app, Tool& tool);
void AddCompletion(CLI::App& app, Tool& tool);

}  // namespace VeltraTool

#endif
