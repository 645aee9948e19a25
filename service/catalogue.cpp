// SPDX-License-Identifier: Apache-2.0
// The file is read once, at start, and is checked whole: unknown keys, texts that are too long and names that occur
// twice throw ConfigError. Afterwards the catalogue is constant, so queries of any thread need no lock. Priorities
// sorts stably: applications with the same priority keep the order of the file.
#include "catalogue.h"

#include <algorithm>
#include <set>

#include "base/config_node.h"

namespace TAVO::Veltra {

namespace {

constexpr size_t MAX_NAME_BYTES = 256;
constexpr size_t MAX_TEXT_BYTES = 4096;

AppResourceInfo ParseResource(const ConfigNode& node, const std::string& bundleName, int32_t priority)
{
    node.ExpectKeys({"name", "kind", "version", "location", "bytes", "checksum"});
    AppResourceInfo info;
    info.text1 = bundleName;
    info.int1 = static_cast<int32_t>(node.IntegerOr("kind", info.int1, 0, INT32_MAX));
    info.int2 = static_cast<int32_t>(node.IntegerOr("version", 0, 0, INT32_MAX));
    info.text2 = node.Member("name").Text(MAX_NAME_BYTES);
    info.text3 = node.TextOr("location", "", MAX_TEXT_BYTES);
    info.long1 = node.IntegerOr("bytes", 0, 0, INT64_MAX);
    info.int3 = priority;
    info.text4 = node.TextOr("checksum", "", MAX_TEXT_BYTES);
    return info;
}

}  // namespace

Catalogue Catalogue::Load(const std::string& file)
{
    const ConfigNode root = ConfigNode::Load(file);
    root.ExpectKeys({"apps"});
    Catalogue catalogue;
    std::set<std::string> names;
    for (const ConfigNode& item : root.Member("apps").Items(MAX_APPS)) {
        item.ExpectKeys({"bundleName", "priority", "resources"});
        App app;
        app.bundleName = item.Member("bundleName").Text(MAX_NAME_BYTES);
        if (!names.insert(app.bundleName).second) {
            item.Member("bundleName").Fail("is there twice");
        }
        app.priority = static_cast<int32_t>(item.IntegerOr("priority", 0, INT32_MIN, INT32_MAX));
        if (item.Has("resources")) {
            for (const ConfigNode& resource : item.Member("resources").Items(MAX_RESOURCES)) {
                app.resources.push_back(ParseResource(resource, app.bundleName, app.priority));
            }
        }
        catalogue.apps_.push_back(std::move(app));
    }
    return catalogue;
}

std::vector<std::string> Catalogue::Priorities(const std::vector<std::string>& bundleNames) const
{
    // A request may name an application twice; it is answered once.
    const std::set<std::string> wanted(bundleNames.begin(), bundleNames.end());
    std::vector<const App*> found;
    for (const App& app : apps_) {
        if (wanted.empty() || wanted.count(app.bundleName) > 0) {
            // Pointers into apps_, which does not change any more.
            found.push_back(&app);
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const App* left, const App* right) { return left->priority > right->priority; });
    std::vector<std::string> names;
    for (const App* app : found) {
        names.push_back(app->bundleName);
    }
    return names;
}

AppResourceInfos Catalogue::Resources(const std::vector<std::string>& bundleNames) const
{
    const std::set<std::string> wanted(bundleNames.begin(), bundleNames.end());
    AppResourceInfos infos;
    for (const App& app : apps_) {
        if (wanted.count(app.bundleName) > 0) {
            infos.resourceInfos.insert(infos.resourceInfos.end(), app.resources.begin(), app.resources.end());
        }
    }
    return infos;
}

}  // namespace TAVO::Veltra
