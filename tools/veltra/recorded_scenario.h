// SPDX-License-Identifier: Apache-2.0
#ifndef VELTRA_TOOLS_RECORDED_SCENARIO_H
#define VELTRA_TOOLS_RECORDED_SCENARIO_H

#include <string>

namespace VeltraTool {

// Makes a scenario of a recording: the values of the device as curves, pushed events with their texts. What does not
// fit into a scenario is reported on standard error. ToolError.
void WriteRecordedScenario(const std::string& recording, const std::string& output);

}  // namespace VeltraTool

#endif
