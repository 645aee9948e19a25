// SPDX-License-Identifier: Apache-2.0
// Scenario files: those that are installed, found by name, and any other by its path.
#ifndef VELTRA_TOOLS_SCENARIO_FILES_H
#define VELTRA_TOOLS_SCENARIO_FILES_H

#include <string>
#include <vector>

namespace VeltraTool {

struct ScenarioFile {
    std::string name;  // of the file, without its folder and ending
    std::string path;
};

// The installed ones, by name; empty when there are none.
std::vector<ScenarioFile> InstalledScenarios();
// What `given` means: a path if it has a slash or an ending or such a file exists, else an installed name. ToolError.
ScenarioFile FindScenario(const std::string& given);
// The text of the file. ToolError when it cannot be read.
std::string ReadScenario(const ScenarioFile& file);

// The keys of the device state that scenarios may draw and `simulate set` may set, for completion.
std::vector<std::string> DeviceKeys();
// What can be made to go wrong; docs/service.md describes the kinds.
std::vector<std::string> FaultKinds();

// The folder of the program that runs.
std::string ProgramFolder();

}  // namespace VeltraTool

#endif
