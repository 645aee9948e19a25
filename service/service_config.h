// SPDX-License-Identifier: Apache-2.0
// The configuration file of the service: which sensors count, their thresholds, and how often things are read.
#ifndef VELTRA_SERVICE_SERVICE_CONFIG_H
#define VELTRA_SERVICE_SERVICE_CONFIG_H

#include <chrono>
#include <string>
#include <vector>

#include "probes/sensor_choice.h"

namespace TAVO::Veltra {

struct ServiceConfig {
    SensorChoice sensors;
    std::chrono::milliseconds heatInterval{1000};  // between two readings of temperatures, fans and power
    std::chrono::milliseconds loadInterval{250};   // between two readings of load, memory and limits
    double lookSeconds = 1;                        // between two readings of the device while a client is subscribed
    double repeatSeconds = 10;                     // after which a subscriber gets an event although nothing changed
    std::vector<std::string> files;                // that were read

    // Puts what the file says in front of what is known. Throws ConfigError, which names the place and the line.
    void Read(const std::string& file);
};

// The files that apply, the later one in front, of those that exist: the one installed beside the program, and for this
// machine ("/") the user's, $XDG_CONFIG_HOME/veltra/service.json or ~/.config/veltra/service.json.
std::vector<std::string> DefaultConfigFiles(const std::string& rootDir);

}  // namespace TAVO::Veltra

#endif
