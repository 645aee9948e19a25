// SPDX-License-Identifier: Apache-2.0
// Where warnings go: of programs started from here, and of the manager and the services that it starts.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <tavo/scrivo_print.h>

#include "doctor.h"

namespace VeltraTool {

namespace fs = std::filesystem;

namespace {

constexpr char SETTING[] = "TAVO_LOG";

// The value of the variable in the environment of a process; empty without it, or when it cannot be read.
std::string VariableOf(pid_t process)
{
    // The environment at the start of the process. The manager reads TAVO_LOG then, too.
    std::ifstream file("/proc/" + std::to_string(process) + "/environ");
    std::string variable;
    while (std::getline(file, variable, '\0')) {
        if (variable.rfind(std::string(SETTING) + "=", 0) == 0) {
            return variable.substr(sizeof(SETTING));
        }
    }
    return "";
}

// The file that the setting names; empty: none.
std::string FileIn(std::string setting)
{
    std::string file;
    while (!setting.empty()) {
        const size_t comma = std::min(setting.find(','), setting.size());
        const std::string word = setting.substr(0, comma);
        file = word.find('/') != std::string::npos ? word : file;
        setting.erase(0, comma + 1);
    }
    return file;
}

bool IsWritable(const std::string& file)
{
    std::error_code error;
    const fs::path path = fs::absolute(file, error);
    return ::access(path.c_str(), W_OK) == 0 ||
           (!fs::exists(path, error) && ::access(path.parent_path().c_str(), W_OK) == 0);
}

// What is wrong with a setting; `whose` is the process that has it.
std::optional<Finding> MistakeIn(const std::string& setting, const std::string& whose)
{
    if (const std::string_view word = TAVO::ScrivoUnknownWord(setting); !word.empty()) {
        return Finding{
            Health::WARNING,
            whose + ": " + SETTING + " has the word \"" + std::string(word) + "\", which is not understood and ignored",
            "use debug, info, warn, error, off, stderr, or a path with a slash"};
    }
    if (const std::string file = FileIn(setting); !file.empty() && !IsWritable(file)) {
        return Finding{Health::WARNING, whose + ": nothing is logged, since " + file + " cannot be written",
                       "name a file in " + std::string(SETTING) + " that this user may write"};
    }
    return std::nullopt;
}

}  // namespace

Finding CheckLog(Patient& patient)
{
    const char* const own = std::getenv(SETTING);
    if (const std::optional<Finding> mistake = MistakeIn(own == nullptr ? "" : own, "this shell")) {
        return *mistake;
    }
    const pid_t manager = patient.directory.manager;
    if (manager <= 0) {
        return {Health::OK, "the setting of this shell is understood", ""};
    }
    const std::string setting = VariableOf(manager);
    if (const std::optional<Finding> mistake = MistakeIn(setting, "the manager")) {
        return *mistake;
    }
    std::error_code error;
    // Only for processes of the same user, which the manager is.
    const fs::path output = fs::read_symlink("/proc/" + std::to_string(manager) + "/fd/2", error);
    const std::string file = FileIn(setting);
    if (file.empty() && output == "/dev/null") {
        return {Health::WARNING, "the warnings of the manager and its services go to /dev/null",
                "start tavo_manager with TAVO_LOG=warn,/path/of/a/file, or let its stderr lead somewhere"};
    }
    return {Health::OK, "the manager and its services log to " + (file.empty() ? output.string() : file), ""};
}

}  // namespace VeltraTool
