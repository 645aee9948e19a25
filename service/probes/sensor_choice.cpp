// SPDX-License-Identifier: Apache-2.0
#include "probes/sensor_choice.h"

#include <fnmatch.h>

#include <algorithm>

namespace TAVO::Veltra {

bool MatchesSensor(const std::string& pattern, const std::vector<std::string>& sensorNames)
{
    return std::any_of(sensorNames.begin(), sensorNames.end(), [&pattern](const std::string& name) {
        // `*` also matches a slash, since FNM_PATHNAME is not set: "acpitz*" names all of its zones.
        return fnmatch(pattern.c_str(), name.c_str(), FNM_NOESCAPE) == 0;
    });
}

}  // namespace TAVO::Veltra
