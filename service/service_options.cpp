// SPDX-License-Identifier: Apache-2.0
#include "service_options.h"

#include <getopt.h>

#include <cstdio>

namespace TAVO::Veltra {

namespace {

constexpr char USAGE[] =
    "usage: veltra_server [--runtime-dir DIR] [--root DIR]\n"
    "The game-support service. The ability manager starts it on demand; by hand it serves until SIGTERM or SIGINT.\n"
    "  --runtime-dir DIR  where the manager is found (default $TAVO_RUNTIME_DIR, else $XDG_RUNTIME_DIR/tavo)\n"
    "  --root DIR         read the machine's state from DIR/sys and DIR/proc (default /)\n"
    "  --help, --version\n"
    "exit codes: 0 ended by a signal, 2 bad usage or no way to serve\n";

}  // namespace

std::optional<ServiceOptions> ServiceOptions::Parse(int argc, char** argv, int& exitCode)
{
    static const option OPTIONS[] = {
        {"runtime-dir", required_argument, nullptr, 'd'},
        {"root", required_argument, nullptr, 'r'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},
        {nullptr, 0, nullptr, 0},
    };
    ServiceOptions options;
    exitCode = EXIT_DONE;
    for (int key = 0; (key = getopt_long(argc, argv, "", OPTIONS, nullptr)) != -1;) {
        switch (key) {
            case 'd':
                options.runtimeDir = optarg;
                break;
            case 'r':
                options.rootDir = optarg;
                break;
            case 'h':
                std::fputs(USAGE, stdout);
                return std::nullopt;
            case 'v':
                std::puts("veltra_server " VELTRA_VERSION);
                return std::nullopt;
            default:  // getopt_long has said what is wrong
                std::fputs(USAGE, stderr);
                exitCode = EXIT_REFUSED;
                return std::nullopt;
        }
    }
    if (optind < argc) {
        std::fprintf(stderr, "veltra_server: unexpected argument '%s'\n%s", argv[optind], USAGE);
        exitCode = EXIT_REFUSED;
        return std::nullopt;
    }
    return options;
}

}  // namespace TAVO::Veltra
