// SPDX-License-Identifier: Apache-2.0
// The command line of veltra_server.
#ifndef VELTRA_SERVICE_OPTIONS_H
#define VELTRA_SERVICE_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

namespace TAVO::Veltra {

struct ServiceOptions {
    std::string runtimeDir;     // empty: the platform's default
    std::string rootDir = "/";  // where sys/ and proc/ are looked for
    std::string configFile;     // empty: those that apply by default
    bool explains = false;      // prints the explanation of this machine instead of serving
    std::string catalogueFile;  // empty: none
    std::string scenarioFile;   // empty: none
    double speed = 1;           // of the scenario
    uint64_t seed = 0;          // of the scenario
    bool allowsSimulation = true;

    static constexpr int EXIT_DONE = 0;
    static constexpr int EXIT_REFUSED = 2;  // bad usage, or no way to serve

    // Empty when the process should end with `exitCode`; what there is to say has been printed then.
    static std::optional<ServiceOptions> Parse(int argc, char** argv, int& exitCode);
};

}  // namespace TAVO::Veltra

#endif
