// SPDX-License-Identifier: Apache-2.0
// Reads ability files strictly: a file that is not understood whole is refused, never half believed.
#include "manager/daemon/ability_file.h"

#include <json/json.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace TAVO::Manager {
namespace {

namespace fs = std::filesystem;

constexpr uintmax_t MAX_FILE_BYTES = 1 << 20;
constexpr int MAX_DEPTH = 16;

// Whatever makes a file unusable; its text is shown to whoever starts the manager.
class Fault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Json::Value Parse(const fs::path& path)
{
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    if (!error && size > MAX_FILE_BYTES) {
        throw Fault("is larger than 1 MiB");
    }
    std::ifstream stream(path);
    if (error || !stream) {
        throw Fault("cannot be read");
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = MAX_DEPTH;
    Json::Value root;
    std::string why;
    if (!Json::parseFromStream(builder, stream, &root, &why)) {
        std::replace(why.begin(), why.end(), '\n', ' ');
        throw Fault("is not valid JSON: " + why);
    }
    return root;
}

// A text that can be handed to a program.
std::string Text(const Json::Value& value, const std::string& what)
{
    if (!value.isString() || value.asString().find('\0') != std::string::npos) {
        throw Fault(what + " must be a text");
    }
    return value.asString();
}

std::vector<std::string> Arguments(const Json::Value& value)
{
    if (!value.isArray()) {
        throw Fault("\"arguments\" must be a list of texts");
    }
    std::vector<std::string> arguments;
    for (const Json::Value& argument : value) {
        arguments.push_back(Text(argument, "each of \"arguments\""));
    }
    return arguments;
}

std::map<std::string, std::string> Environment(const Json::Value& value)
{
    if (!value.isObject()) {
        throw Fault("\"environment\" must be an object of texts");
    }
    std::map<std::string, std::string> environment;
    for (const std::string& name : value.getMemberNames()) {
        if (name.empty() || name.find('=') != std::string::npos || name.find('\0') != std::string::npos) {
            throw Fault("\"environment\" has a name that is empty or holds '='");
        }
        environment[name] = Text(value[name], "\"environment\" " + name);
    }
    return environment;
}

AbilityFile Interpret(const Json::Value& root, const fs::path& folder)
{
    if (!root.isObject()) {
        throw Fault("must hold one JSON object");
    }
    AbilityFile ability;
    for (const std::string& key : root.getMemberNames()) {
        const Json::Value& value = root[key];
        if (key == "id") {
            ability.id = value.isInt() ? value.asInt() : 0;
        } else if (key == "program") {
            ability.program = Text(value, "\"program\"");
        } else if (key == "arguments") {
            ability.arguments = Arguments(value);
        } else if (key == "environment") {
            ability.environment = Environment(value);
        } else if (key == "external" && value.isBool()) {
            ability.external = value.asBool();
        } else {
            throw Fault(key == "external" ? "\"external\" must be true or false" : "unknown key \"" + key + "\"");
        }
    }
    if (ability.id <= 0) {
        throw Fault("\"id\" must be a whole number above 0");
    }
    if (ability.program.empty()) {
        throw Fault("\"program\" is missing");
    }
    ability.program = (folder / ability.program).lexically_normal().string();
    return ability;
}

std::vector<fs::path> JsonFiles(const fs::path& folder)
{
    std::vector<fs::path> paths;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".json") {
            paths.push_back(entry.path());
        }
    }
    std::sort(paths.begin(), paths.end());  // The same fault is reported each time.
    return paths;
}

}  // namespace

bool ReadAbilityFolder(const std::string& folder, AbilityFiles& files, std::string& error)
{
    std::string subject = "ability folder " + folder;
    try {
        const fs::path absolute = fs::absolute(folder);
        for (const fs::path& path : JsonFiles(absolute)) {
            subject = "ability file " + path.string();
            AbilityFile ability = Interpret(Parse(path), absolute);
            ability.path = path.string();
            const int32_t id = ability.id;
            if (!files.emplace(id, std::move(ability)).second) {
                throw Fault("id " + std::to_string(id) + " is described by another file already");
            }
        }
        return true;
    } catch (const fs::filesystem_error& fault) {
        error = subject + ": " + fault.code().message();
    } catch (const std::exception& fault) {
        error = subject + ": " + fault.what();
    }
    return false;
}

}  // namespace TAVO::Manager
