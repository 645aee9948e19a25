// SPDX-License-Identifier: Apache-2.0
// veltra-serve: shows the state of the service over HTTP until SIGINT or SIGTERM. One thread accepts connections, main
// waits for the signal. Nothing that a peer sends is logged; a peer learns from the response what it did wrong.
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <thread>

#include "edge.h"
#include "exit_code.h"
#include "http_server.h"
#include "options.h"
#include "output.h"
#include "routes.h"
#include "service_feed.h"

namespace VeltraServe {

namespace {

std::string AddressOf(const Options& options)
{
    const bool isEvery = options.host == "0.0.0.0" || options.host == "::";
    const std::string host = isEvery                                       ? "127.0.0.1"
                             : options.host.find(':') == std::string::npos ? options.host
                                                                           : "[" + options.host + "]";
    return "http://" + host + ":" + std::to_string(options.port) + "/";
}

// In the desktop's browser. The server runs whether there is one or not.
void Open(std::string address)
{
    char program[] = "xdg-open";
    char* arguments[] = {program, address.data(), nullptr};
    // The signals that are blocked here would stay blocked in the browser.
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t process = 0;
    if (const int error = ::posix_spawnp(&process, program, nullptr, &attributes, arguments, environ); error != 0) {
        std::fprintf(stderr, "veltra-serve: xdg-open cannot be started: %s; open the address yourself\n",
                     std::strerror(error));
    }
    ::posix_spawnattr_destroy(&attributes);
    if (process > 0) {
        std::thread([process] { ::waitpid(process, nullptr, 0); }).detach();
    }
}

int Run(const Options& options)
{
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGINT);
    sigaddset(&endSignals, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);  // for all threads: main takes them

    const bool isWriting = !options.isMetricsOnly && !options.isReadOnly;
    const std::string token = isWriting ? Edge::NewToken() : "";
    const Edge edge(options.host, options.port, options.names, token);
    HttpServer server;
    AddRoutes(server, edge, ServiceFeed::Start(options.isStartingService), options.isMetricsOnly);
    server.Bind(options.host, options.port);
    const std::string address = AddressOf(options) + (options.isMetricsOnly ? "metrics"
                                                      : isWriting           ? "#token=" + token
                                                                            : "");
    VeltraTool::PrintLine(address);
    std::thread([&server] {
        server.listen_after_bind();
        std::fprintf(stderr, "veltra-serve: the system accepts no more connections; start it again\n");
        std::_Exit(VeltraTool::EXIT_NO);
    }).detach();
    if (options.isOpening && !options.isMetricsOnly) {
        Open(address);
    }
    int signal = 0;
    ::sigwait(&endSignals, &signal);
    // Deliberate: no destructors. Threads of connections and of the platform still use the objects.
    std::_Exit(VeltraTool::EXIT_DONE);
}

}  // namespace

}  // namespace VeltraServe

int main(int argc, char** argv)
try {
    // This program reports by itself what fails; the lines of the library would only repeat it. TAVO_LOG brings them
    // back.
    ::setenv("TAVO_LOG", "off", 0);
    int exitCode = 0;
    const std::optional<VeltraServe::Options> options = VeltraServe::ParseOptions(argc, argv, exitCode);
    return options ? VeltraServe::Run(*options) : exitCode;
} catch (const VeltraTool::ToolError& error) {
    std::fprintf(stderr, "veltra-serve: %s\n", VeltraTool::Escaped(error.what()).c_str());
    if (!error.Fix().empty()) {
        std::fprintf(stderr, "  to do: %s\n", VeltraTool::Escaped(error.Fix()).c_str());
    }
    return error.Code();
} catch (const std::exception& error) {
    std::fprintf(stderr, "veltra-serve: %s\n", error.what());
    return VeltraTool::EXIT_NO;
}
