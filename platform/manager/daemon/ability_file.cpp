// SPDX-License-Identifier: Apache-2.0
// Reads ability files strictly: one unknown key or wrong type makes the whole file invalid, since options that are
// silently ignored are hard to find. An invalid file disables its ability, also when an earlier folder has a valid one.
#include "manager/daemon/ability_file.h"

#include <json/json.h>

#include <algorithm>
#include <charconv>
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

// What makes a file invalid; its text follows the path of the file in the log.
class Fault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

Json::Value Parse(const fs::path& path)
{
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    if (error) {
        throw Fault("cannot be read");  // Not opened: to open a FIFO waits for a writer.
    }
    if (size > MAX_FILE_BYTES) {
        throw Fault("is larger than 1 MiB");
    }
    std::ifstream stream(path);
    if (!stream) {
        throw Fault("cannot be read");
    }
    Json::CharReaderBuilder builder;
    // Strict: no comments, no duplicate keys, nothing behind the document. By default the library keeps the last of two
    // equal keys and accepts trailing text.
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = MAX_DEPTH;
    Json::Value root;
    std::string why;
    try {
        if (!Json::parseFromStream(builder, stream, &root, &why)) {
            std::replace(why.begin(), why.end(), '\n', ' ');
            throw Fault("is not valid JSON: " + why);
        }
        // The parser throws when the nesting exceeds stackLimit; all other mistakes are the return value.
    } catch (const Json::Exception&) {
        throw Fault("is nested more than " + std::to_string(MAX_DEPTH) + " levels deep");
    }
    return root;
}

// A text that can be handed to a program.
std::string Text(const Json::Value& value, const std::string& what)
{
    // A NUL would cut the text off in execve.
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

// `ability` holds what earlier folders say of the id.
AbilityFile Interpret(const Json::Value& root, const fs::path& folder, AbilityFile ability)
{
    for (const std::string& key : root.getMemberNames()) {
        const Json::Value& value = root[key];
        if (key == "id") {
            continue;
        }
        if (key == "program") {
            const std::string program = Text(value, "\"program\"");
            // operator/ keeps an absolute path as it is.
            ability.program = program.empty() ? "" : (folder / program).lexically_normal().string();
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
    if (ability.program.empty() && !ability.external) {
        throw Fault("\"program\" is missing, without which \"external\" must be true");
    }
    return ability;
}

// 0 when there is none.
int32_t IdIn(const Json::Value& root)
{
    const Json::Value id = root.isObject() ? root.get("id", 0) : Json::Value();
    return id.isInt() && id.asInt() > 0 ? id.asInt() : 0;
}

// The number of "<id>.json", 0 for any other name.
int32_t IdIn(const fs::path& path)
{
    const std::string stem = path.stem().string();
    int32_t id = 0;
    const auto [end, error] = std::from_chars(stem.data(), stem.data() + stem.size(), id);
    return error == std::errc() && end == stem.data() + stem.size() && id > 0 ? id : 0;
}

// The files of one folder, in the order of their names.
class FolderReader {
public:
    FolderReader(const fs::path& folder, AbilityFiles& files) : folder_(folder), files_(files) {}

    // Returns what is wrong with the file, empty when nothing is.
    std::string Read(const fs::path& path)
    {
        // Of a file that cannot be parsed only the name can tell which ability to disable.
        int32_t id = IdIn(path);
        try {
            const Json::Value root = Parse(path);
            if (!root.isObject()) {
                throw Fault("must hold one JSON object");
            }
            id = IdIn(root) != 0 ? IdIn(root) : id;
            if (IdIn(root) == 0) {
                throw Fault("\"id\" must be a whole number above 0");
            }
            if (const auto [first, isFirst] = names_.emplace(id, path.filename().string()); !isFirst) {
                throw Fault("\"id\" " + std::to_string(id) + " is described by " + first->second + " too");
            }
            const auto earlier = files_.find(id);
            // An invalid earlier file is no base to override: its keys are unknown.
            const bool isOverride = earlier != files_.end() && earlier->second.fault.empty();
            Keep(id, path, Interpret(root, folder_, isOverride ? earlier->second : AbilityFile()));
            return "";
        } catch (const Fault& fault) {
            AbilityFile disabled;
            disabled.fault = "ability file " + path.string() + ": " + fault.what();
            std::string line = disabled.fault;
            if (id != 0) {
                names_.emplace(id, path.filename().string());
                Keep(id, path, std::move(disabled));
            }
            return line;
        }
    }

private:
    void Keep(int32_t id, const fs::path& path, AbilityFile ability)
    {
        ability.id = id;
        ability.path = path.string();
        files_[id] = std::move(ability);
    }

    const fs::path folder_;
    AbilityFiles& files_;
    std::map<int32_t, std::string> names_;  // of the files, by their ids
};

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

AbilityFolder ReadAbilityFolder(const std::string& folder, AbilityFiles& files)
{
    AbilityFolder result;
    try {
        const fs::path absolute = fs::absolute(folder);
        // Relative programs start at the folder itself, also if `folder` is a symbolic link.
        FolderReader reader(fs::canonical(absolute), files);
        for (const fs::path& path : JsonFiles(absolute)) {
            ++result.fileCount;
            if (std::string fault = reader.Read(path); !fault.empty()) {
                result.faults.push_back(std::move(fault));
            }
        }
    } catch (const fs::filesystem_error& fault) {
        result.error = "ability folder " + folder + ": " + fault.code().message();
    }
    return result;
}

}  // namespace TAVO::Manager
