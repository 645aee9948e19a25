// SPDX-License-Identifier: Apache-2.0
// The command line of veltra_server.
#ifndef VELTRA_SERVICE_OPTIONS_H
#define VELTRA_SERVICE_OPTIONS_H

#include <optional>
#include <string>

namespace TAVO::Veltra {

struct ServiceOptions {
    std::string runtimeDir;     // empty: the platform's default
    std::string rootDir = "/";  // where sys/ and proc/ are looked for

    static constexpr int EXIT_DONE = 0;
    static constexpr int EXIT_REFUSED = 2;  // bad usage, or no way to serve

    // Empty when the process should end with `exitCode`; what there is to say has been printed then.
    static std::optional<ServiceOptions> Parse(int argc, char** argv, int& exitCode);
};

}  // namespace TAVO::Veltra

#endif
