// SPDX-License-Identifier: Apache-2.0
// getopt_long splits the arguments; numbers must fill their whole argument and lie in range. A mistake prints the
// reason and the usage on stderr and ends with EXIT_REFUSED; --help and --version print on stdout and end with 0. Files
// are not opened here, so a wrong path is reported by the code that reads it.
#include "service_options.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "base/service_clock.h"

namespace TAVO::Veltra {

namespace {

constexpr char USAGE[] =
    "usage: veltra_server [--runtime-dir DIR] [--root DIR] [--config FILE] [--catalogue FILE]\n"
    "                     [--scenario FILE [--speed N] [--seed N]] [--no-simulation]\n"
    "       veltra_server --explain [--root DIR] [--config FILE]\n"
    "The game-support service. The ability manager starts it on demand; by hand it serves until SIGTERM or SIGINT.\n"
    "  --runtime-dir DIR  where the manager is found (default $TAVO_RUNTIME_DIR, else $XDG_RUNTIME_DIR/tavo)\n"
    "  --root DIR         read the machine's state from DIR/sys and DIR/proc (default /)\n"
    "  --config FILE      sensors, thresholds and intervals (JSON), instead of the file installed with the program and "
    "the\n"
    "                     user's own $XDG_CONFIG_HOME/veltra/service.json\n"
    "  --explain          print every sensor, why it counts or not, and how the level results; serve nothing\n"
    "  --catalogue FILE   the applications that are known (JSON); without it queries about them are refused\n"
    "  --scenario FILE    play a script (JSON) instead of reading the machine\n"
    "  --speed N          of the scenario, 0.01 to 100 (default 1)\n"
    "  --seed N           of its noise, a whole number (default 0)\n"
    "  --no-simulation    let no tool change what the service reports while it runs\n"
    "  --help, --version\n"
    "exit codes: 0 ended by a signal, 2 bad usage or no way to serve\n";

// The whole of `text` as a number.
template <typename Number>
bool ParseNumber(const char* text, Number& number)
{
    const char* end = text + std::strlen(text);
    const std::from_chars_result result = std::from_chars(text, end, number);
    return result.ec == std::errc() && result.ptr == end;
}

std::nullopt_t Refuse(int& exitCode, const char* why, const char* what)
{
    std::fprintf(stderr, "veltra_server: %s '%s'\n%s", why, what, USAGE);
    exitCode = ServiceOptions::EXIT_REFUSED;
    return std::nullopt;
}

}  // namespace

std::optional<ServiceOptions> ServiceOptions::Parse(int argc, char** argv, int& exitCode)
{
    static const option OPTIONS[] = {
        {"runtime-dir", required_argument, nullptr, 'd'}, {"root", required_argument, nullptr, 'r'},
        {"config", required_argument, nullptr, 'f'},      {"explain", no_argument, nullptr, 'x'},
        {"catalogue", required_argument, nullptr, 'c'},   {"scenario", required_argument, nullptr, 's'},
        {"speed", required_argument, nullptr, 'p'},       {"seed", required_argument, nullptr, 'e'},
        {"no-simulation", no_argument, nullptr, 'n'},     {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},           {nullptr, 0, nullptr, 0},
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
            case 'f':
                options.configFile = optarg;
                break;
            case 'x':
                options.explains = true;
                break;
            case 'c':
                options.catalogueFile = optarg;
                break;
            case 's':
                options.scenarioFile = optarg;
                break;
            case 'p':
                // Written so that NaN is refused.
                if (!ParseNumber(optarg, options.speed) || !(options.speed >= ServiceClock::LEAST_SPEED) ||
                    !(options.speed <= ServiceClock::MOST_SPEED)) {
                    return Refuse(exitCode, "not a speed from 0.01 to 100:", optarg);
                }
                break;
            case 'e':
                if (!ParseNumber(optarg, options.seed)) {
                    return Refuse(exitCode, "not a whole number:", optarg);
                }
                break;
            case 'n':
                options.allowsSimulation = false;
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
        return Refuse(exitCode, "unexpected argument", argv[optind]);
    }
    if (options.explains && !options.scenarioFile.empty()) {
        return Refuse(exitCode, "a scenario is no machine to explain:", options.scenarioFile.c_str());
    }
    return options;
}

}  // namespace TAVO::Veltra
