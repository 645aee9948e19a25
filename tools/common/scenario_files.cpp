// SPDX-License-Identifier: Apache-2.0
// Finds scenario files beside the program, as the service finds its configuration there, and reads them with the bounds
// of the service.
#include "scenario_files.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "exit_code.h"
#include "scenario/scenario.h"

namespace VeltraTool {

namespace fs = std::filesystem;

std::string ProgramFolder()
{
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path().string();
}

std::vector<ScenarioFile> InstalledScenarios()
{
    const fs::path folder = (fs::path(ProgramFolder()) / VELTRA_SHARE_WAY / "veltra/scenarios").lexically_normal();
    std::vector<ScenarioFile> files;
    std::error_code error;
    // The form without exceptions: no such folder means that no scenario is installed.
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        if (entry.path().extension() == ".json") {
            files.push_back({entry.path().stem().string(), entry.path().string()});
        }
    }
    std::sort(files.begin(), files.end(), [](const auto& left, const auto& right) { return left.name < right.name; });
    return files;
}

ScenarioFile FindScenario(const std::string& given)
{
    std::error_code error;
    // A file in the current folder comes before an installed scenario with its name.
    if (given.find('/') != std::string::npos || fs::path(given).has_extension() || fs::exists(given, error)) {
        return {fs::path(given).stem().string(), given};
    }
    std::string known;
    for (const ScenarioFile& file : InstalledScenarios()) {
        if (file.name == given) {
            return file;
        }
        known += (known.empty() ? "" : ", ") + file.name;
    }
    throw ToolError(EXIT_USAGE, "there is no scenario '" + given + "'",
                    known.empty() ? "give the path of a file" : "give the path of a file, or one of: " + known);
}

std::string ReadScenario(const ScenarioFile& file)
{
    try {
        return TAVO::Veltra::ConfigNode::ReadText(file.path);
    } catch (const TAVO::Veltra::ConfigError& error) {
        throw ToolError(EXIT_NO, error.what());
    }
}

std::vector<std::string> DeviceKeys()
{
    std::vector<std::string> keys;
    for (const TAVO::Veltra::DeviceField& field : TAVO::Veltra::DeviceFields()) {
        keys.emplace_back(field.key);
    }
    return keys;
}

std::vector<std::string> FaultKinds()
{
    return {"die", "hang", "lateReply", "refuse", "shortReply", "badText", "wrongToken", "shortCallback", "flood"};
}

}  // namespace VeltraTool
