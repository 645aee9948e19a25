// SPDX-License-Identifier: Apache-2.0
// Each section of the file has a function that checks every key and every bound; a mistake throws ConfigError with its
// line. Lists of a file go in front of those that are known, and the first match wins, so the file that is read last
// has priority; single values are replaced. A reading that throws may have changed a part of the object already: a
// caller that goes on after a mistake reads into a copy. Default files that do not exist are no mistake.
#include "service_config.h"

#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "base/config_node.h"

namespace TAVO::Veltra {

namespace {

constexpr size_t MAX_PATTERNS = 256;
constexpr size_t MAX_PATTERN_BYTES = 128;
constexpr size_t MAX_NAME_BYTES = 64;
constexpr double MILLI = 1000;

std::vector<std::string> Patterns(const ConfigNode& list)
{
    std::vector<std::string> patterns;
    for (const ConfigNode& item : list.Items(MAX_PATTERNS)) {
        patterns.push_back(item.Text(MAX_PATTERN_BYTES));
    }
    return patterns;
}

SensorClass ParseClass(const ConfigNode& node, const std::string& name)
{
    const std::optional<SensorClass> known = FindSensorClass(name);
    if (!known) {
        node.Fail("there is no class \"" + name + "\"");
    }
    return *known;
}

template <typename List>
void PutInFront(List& known, List added)
{
    known.insert(known.begin(), added.begin(), added.end());
}

void ReadSensorChoice(const ConfigNode& node, SensorChoice& choice)
{
    node.ExpectKeys({"prefer", "exclude", "rename", "class"});
    if (node.Has("prefer")) {
        PutInFront(choice.preferred, Patterns(node.Member("prefer")));
    }
    if (node.Has("exclude")) {
        PutInFront(choice.excluded, Patterns(node.Member("exclude")));
    }
    if (node.Has("rename")) {
        std::vector<std::pair<std::string, std::string>> names;
        for (const auto& [pattern, name] : node.Member("rename").Members()) {
            names.emplace_back(pattern, name.Text(MAX_NAME_BYTES));
        }
        PutInFront(choice.names, names);
    }
    if (node.Has("class")) {
        std::vector<std::pair<std::string, SensorClass>> classes;
        for (const auto& [pattern, name] : node.Member("class").Members()) {
            classes.emplace_back(pattern, ParseClass(name, name.Text(MAX_NAME_BYTES)));
        }
        PutInFront(choice.classes, classes);
    }
}

void ReadThresholds(const ConfigNode& node, SensorChoice& choice)
{
    constexpr double LEAST = 20;
    constexpr double MOST = 150;
    for (const auto& [name, row] : node.Members()) {
        const auto index = static_cast<size_t>(ParseClass(row, name));
        row.ExpectKeys({"hot", "critical", "step"});
        ClassThresholds& thresholds = choice.thresholds[index];
        const auto read = [&row = row](const char* key, int64_t& value, double least, double most) {
            value = std::llround(row.NumberOr(key, static_cast<double>(value) / MILLI, least, most) * MILLI);
        };
        read("hot", thresholds.hot, LEAST, MOST);
        read("critical", thresholds.critical, LEAST, MOST);
        read("step", thresholds.step, 1, MOST);
        // Checked after both are read, in whatever order they are written.
        if (thresholds.critical < thresholds.hot) {
            row.Fail("critical is below hot");
        }
        // Also for an empty object: to name a class makes its sensors count.
        choice.hasThresholds.set(index);
    }
}

void ReadIntervals(const ConfigNode& node, ServiceConfig& config)
{
    constexpr double MOST_MILLISECONDS = 60000;
    constexpr double MOST_SECONDS = 3600;
    node.ExpectKeys({"heatMilliseconds", "loadMilliseconds", "lookSeconds", "repeatSeconds"});
    const auto read = [&node](const char* key, std::chrono::milliseconds& value) {
        const double number = node.NumberOr(key, static_cast<double>(value.count()), 50, MOST_MILLISECONDS);
        value = std::chrono::milliseconds(std::llround(number));
    };
    read("heatMilliseconds", config.heatInterval);
    read("loadMilliseconds", config.loadInterval);
    config.lookSeconds = node.NumberOr("lookSeconds", config.lookSeconds, 0.1, MOST_SECONDS);
    config.repeatSeconds = node.NumberOr("repeatSeconds", config.repeatSeconds, 1, MOST_SECONDS);
}

// The folder of the running program, with a slash behind it.
std::string ProgramFolder()
{
    char path[PATH_MAX];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof(path));
    const std::string program(path, size > 0 ? static_cast<size_t>(size) : 0);
    return program.substr(0, program.rfind('/') + 1);
}

std::string UserFolder()
{
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config != nullptr && config[0] == '/') {
        return config;
    }
    const char* home = std::getenv("HOME");
    return home != nullptr && home[0] == '/' ? std::string(home) + "/.config" : "";
}

}  // namespace

void ServiceConfig::Read(const std::string& file)
{
    const ConfigNode root = ConfigNode::Load(file);
    root.ExpectKeys({"sensors", "thresholds", "intervals"});
    if (root.Has("sensors")) {
        ReadSensorChoice(root.Member("sensors"), sensors);
    }
    if (root.Has("thresholds")) {
        ReadThresholds(root.Member("thresholds"), sensors);
    }
    if (root.Has("intervals")) {
        ReadIntervals(root.Member("intervals"), *this);
    }
    files.push_back(file);
}

std::vector<std::string> DefaultConfigFiles(const std::string& rootDir)
{
    constexpr char NAME[] = "/veltra/service.json";
    const std::filesystem::path installed(ProgramFolder() + VELTRA_SHARE_WAY + NAME);
    std::vector<std::string> files = {installed.lexically_normal().string()};
    const std::string userFolder = UserFolder();
    // The user's corrections describe this machine; another root is another machine.
    if (rootDir == "/" && !userFolder.empty()) {
        files.push_back(userFolder + NAME);
    }
    std::erase_if(files, [](const std::string& file) { return access(file.c_str(), F_OK) != 0; });
    return files;
}

}  // namespace TAVO::Veltra
