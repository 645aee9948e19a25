// SPDX-License-Identifier: Apache-2.0
// The applications that the service knows: their priorities, and the resources that they may download ahead.
#ifndef VELTRA_SERVICE_CATALOGUE_H
#define VELTRA_SERVICE_CATALOGUE_H

#include <cstdint>
#include <string>
#include <vector>

#include "veltra_records.h"

namespace TAVO::Veltra {

// Never changes once it is read; docs/service.md describes the file.
class Catalogue {
public:
    static constexpr size_t MAX_APPS = 1000;
    static constexpr size_t MAX_RESOURCES = 1000;  // of each application

    static Catalogue Load(const std::string& file);  // throws ConfigError

    // Those of the names that are known, the highest priority first; no names ask for all.
    std::vector<std::string> Priorities(const std::vector<std::string>& bundleNames) const;
    // What the named applications offer, in the order of the file.
    AppResourceInfos Resources(const std::vector<std::string>& bundleNames) const;

private:
    struct App {
        std::string bundleName;
        int32_t priority = 0;
        std::vector<AppResourceInfo> resources;
    };
    std::vector<App> apps_;
};

}  // namespace TAVO::Veltra

#endif
