// SPDX-License-Identifier: Apache-2.0
// The command line of veltra-serve.
#ifndef VELTRA_SERVE_OPTIONS_H
#define VELTRA_SERVE_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

namespace VeltraServe {

constexpr char DEFAULT_LISTEN[] = "127.0.0.1:6606";

struct Options {
    std::string host;
    int port = 0;
    std::vector<std::string> names;
    bool isMetricsOnly = false;
    bool isReadOnly = false;
    bool isStartingService = false;
    bool isOpening = false;
};

// Empty when the program is to end with `exitCode`.
std::optional<Options> ParseOptions(int argc, char** argv, int& exitCode);

}  // namespace VeltraServe

#endif
