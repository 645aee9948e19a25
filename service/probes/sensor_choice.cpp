// SPDX-License-Identifier: Apache-2.0
#include "probes/sensor_choice.h"

#include <fnmatch.h>

#include <algorithm>

namespace TAVO::Veltra {

bool MatchesSensor(const std::string& pattern, const std::vector<std::string>& sensorNames)
{
    std::string escaped;
    for (const char c : pattern) {
        // Only `*` is special. The others may be part of a label: "CPU [die]".
        escaped += c == '?' || c == '[' || c == '\\' ? std::string{'\\', c} : std::string{c};
    }
    return std::any_of(sensorNames.begin(), sensorNames.end(), [&escaped](const std::string& name) {
        // `*` also matches a slash, since FNM_PATHNAME is not set: "acpitz*" names all of its zones.
        return fnmatch(escaped.c_str(), name.c_str(), 0) == 0;
    });
}

}  // namespace TAVO::Veltra
