// SPDX-License-Identifier: Apache-2.0
// veltra: shows a running system, calls its service, finds out what does not work, and simulates a device. Each verb
// has a file of its own, with a function Add...() that describes its options and sets its callback. This file builds
// the command line from them, runs the verb and maps its outcome to an exit status. A verb that fails throws a
// ToolError, which carries the exit status and what to do.
#include <cstdio>
#include <cstdlib>
#include <new>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include "reach.h"
#include "restart_probe.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

constexpr char FOOTER[] =
    "exit status: 0 done, 1 the answer is no or it failed, 2 usage, 3 no manager or service can be reached,\n"
    "             4 no answer in time, 5 this machine or service does not have it";

void PrintError(const Tool& tool, const ToolError& error)
{
    if (tool.isJson) {
        Json::Value document;
        document["error"] = error.what();
        document["exitCode"] = error.Code();
        if (!error.Fix().empty()) {
            document["fix"] = error.Fix();
        }
        PrintJson(document);
        return;
    }
    std::fprintf(stderr, "veltra: %s\n", Escaped(error.what()).c_str());
    if (!error.Fix().empty()) {
        std::fprintf(stderr, "  to do: %s\n", Escaped(error.Fix()).c_str());
    }
}

int Run(int argc, char** argv)
{
    Tool tool;
    CLI::App app("Looks at the game-support service of this machine, calls it, and checks it", "veltra");
    app.require_subcommand(1);
    app.set_version_flag("--version", "veltra " VELTRA_VERSION);
    app.footer(FOOTER);
    app.add_flag("--json", tool.isJson, "Print JSON, with the key \"schema\" and stable keys");
    app.add_option_function<std::string>(
           "--runtime-dir",
           // By the environment, since the platform reads it at its first use, and child processes inherit it.
           [](const std::string& path) { ::setenv("TAVO_RUNTIME_DIR", AbsolutePath(path).c_str(), 1); },
           "Where the manager is found (default $TAVO_RUNTIME_DIR, else $XDG_RUNTIME_DIR/tavo)")
        // Before the callback of the verb, wherever the option is on the command line.
        ->trigger_on_parse();
    AddStatus(app, tool);
    AddGet(app, tool);
    AddWatch(app, tool);
    AddMonitor(app, tool);
    AddRecord(app, tool);
    AddReplay(app, tool);
    AddReport(app, tool);
    AddTop(app, tool);
    AddTrace(app, tool);
    AddScenario(app, tool);
    AddExplain(app, tool);
    AddCall(app, tool);
    AddDoctor(app, tool);
    AddRestartProbe(app, tool);
    AddSimulate(app, tool);
    AddServe(app, tool);
    AddCompletion(app, tool);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // --help and --version are "errors" with status 0, which print to stdout.
        const int status = app.exit(error);
        FlushOutput();
        return status == 0 ? EXIT_DONE : EXIT_USAGE;
    } catch (const ToolError& error) {
        PrintError(tool, error);
        return error.Code();
    }
    return tool.exitCode;
}

}  // namespace

CLI::App* AddVerb(CLI::App& app, const std::string& name, const std::string& what)
{
    CLI::App* const verb = app.add_subcommand(name, what);
    // Options of the tool itself (--json) may also follow the verb.
    verb->fallthrough();
    return verb;
}

}  // namespace VeltraTool

int main(int argc, char** argv)
try {
    // The tool reports by itself what fails; the lines of the library would only repeat it. TAVO_LOG brings them back.
    ::setenv("TAVO_LOG", "off", 0);
    // Deliberate: platform threads may still run callbacks, which must not see static objects go.
    std::_Exit(VeltraTool::Run(argc, argv));
} catch (const std::exception& error) {
    std::fprintf(stderr, "veltra: %s\n", error.what());
    std::_Exit(VeltraTool::EXIT_NO);
}
