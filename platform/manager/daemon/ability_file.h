// SPDX-License-Identifier: Apache-2.0
// Ability files: which services there are, and how each is started.
#ifndef TAVO_MANAGER_ABILITY_FILE_H
#define TAVO_MANAGER_ABILITY_FILE_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace TAVO::Manager {

// {"id": 66006, "program": "../bin/server", "arguments": ["--quiet"], "environment": {"A": "b"}, "external": false}
// Only the first two are needed.
struct AbilityFile {
    int32_t id = 0;
    std::string path;     // of the file itself, for log lines
    std::string program;  // absolute; in the file it may be relative to the file's folder
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;  // added to the manager's own
    bool external = false;  // a process that the manager did not start may register the id as well
};
using AbilityFiles = std::map<int32_t, AbilityFile>;

// Reads every *.json of `folder` into `files`. False, with one line that names the file and what is wrong with it, when
// one does not hold an ability; an unknown key is such a fault, and so is an id that `files` has already.
bool ReadAbilityFolder(const std::string& folder, AbilityFiles& files, std::string& error);

}  // namespace TAVO::Manager

#endif
