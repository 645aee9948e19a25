// SPDX-License-Identifier: Apache-2.0
// The command line. The check of --listen stores host and port itself, and the call after the parsing sets the default,
// since a check does not run for an option that is not given. --runtime-dir goes into the environment, where the
// platform reads it at its first use.
#include "options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <charconv>

#include "exit_code.h"
#include "output.h"
#include "reach.h"

namespace VeltraServe {

namespace {

constexpr int MAX_PORT = 65535;

// "HOST:PORT", "[ADDRESS]:PORT" or "PORT" into the options; else what is wrong with it.
std::string ParseAddress(const std::string& text, Options& options)
{
    const size_t colon = text.rfind(':');
    std::string host = colon == std::string::npos ? "127.0.0.1" : text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string::npos) {
        return "write an IPv6 address as [ADDRESS]:PORT";
    }
    const std::string port = text.substr(colon == std::string::npos ? 0 : colon + 1);
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), options.port);
    if (host.empty() || error != std::errc() || end != port.data() + port.size() || options.port < 1 ||
        options.port > MAX_PORT) {
        return "'" + text + "' is not HOST:PORT, for example " + DEFAULT_LISTEN;
    }
    options.host = host;
    return "";
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char** argv, int& exitCode)
{
    Options options;
    std::string listen = DEFAULT_LISTEN;
    CLI::App app("Shows the game-support service of this machine on a page, and to Prometheus", "veltra-serve");
    app.set_version_flag("--version", "veltra-serve " VELTRA_VERSION);
    app.add_option("--listen", listen, "Where to serve, HOST:PORT; everybody who reaches it may read")
        ->capture_default_str()
        ->check([&options](const std::string& text) { return ParseAddress(text, options); });
    app.add_option("--host", options.names, "A further name by which clients reach this server, without the port");
    app.add_flag("--metrics-only", options.isMetricsOnly, "Serve /metrics and nothing else");
    app.add_flag("--read-only", options.isReadOnly, "Change nothing: the page has no simulator");
    app.add_flag("--start", options.isStartingService, "Start the service whenever it does not run");
    app.add_flag("--open", options.isOpening, "Open the page in the browser");
    app.add_option_function<std::string>(
           "--runtime-dir",
           [](const std::string& path) { ::setenv("TAVO_RUNTIME_DIR", VeltraTool::AbsolutePath(path).c_str(), 1); },
           "Where the manager is found (default $TAVO_RUNTIME_DIR, else $XDG_RUNTIME_DIR/tavo)")
        ->trigger_on_parse();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? VeltraTool::EXIT_DONE : VeltraTool::EXIT_USAGE;
        VeltraTool::FlushOutput();
        return std::nullopt;
    }
    ParseAddress(listen, options);
    return options;
}

}  // namespace VeltraServe
