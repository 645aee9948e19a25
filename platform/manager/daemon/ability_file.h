// SPDX-License-Identifier: Apache-2.0
// Ability files: which services there are, and how each is started.
#ifndef TAVO_MANAGER_ABILITY_FILE_H
#define TAVO_MANAGER_ABILITY_FILE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace TAVO::Manager {

// {"id": 66006, "program": "../bin/server", "arguments": ["--quiet"], "environment": {"A": "b"}, "external": false}
// Only the first two are required, and only the first in a file that overrides another or whose ability is external:
// without a program it cannot be loaded, only registered.
struct AbilityFile {
    int32_t id = 0;
    std::string path;     // of the last file that described the ability, for log lines
    std::string fault;    // not empty: that file is not valid, so the service is not started
    std::string program;  // absolute; in the file it may be relative to the file's folder; empty: never started
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;  // added to the manager's own
    bool external = false;  // a process that the manager did not start may register the id as well
};
using AbilityFiles = std::map<int32_t, AbilityFile>;

struct AbilityFolder {
    std::string error;                // not empty: the folder cannot be read
    size_t fileCount = 0;             // *.json
    std::vector<std::string> faults;  // one line for each file that is not valid; it names the file and the key
};

// Reads every *.json of `folder` into `files`. A file for an id that an earlier folder has described replaces the keys
// that it contains. A file that is not valid (an unknown key is a fault, and so is an id that another file of the
// folder describes) disables its ability and no other; when it cannot be parsed, its name "<id>.json" identifies the
// ability.
AbilityFolder ReadAbilityFolder(const std::string& folder, AbilityFiles& files);

}  // namespace TAVO::Manager

#endif
