// SPDX-License-Identifier: Apache-2.0
// The verb `serve`: replaces this process by the program veltra-serve, which is installed in the same folder. It gets
// all words after the verb.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "scenario_files.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

[[noreturn]] void Become(const std::string& program, std::vector<std::string> words)
{
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv(program.c_str(), arguments.data());
    if (errno == ENOENT) {
        throw ToolError(EXIT_NOT_SUPPORTED, "veltra-serve is not installed beside this program",
                        "install the package veltra-serve, or build with -DVELTRA_SERVE=ON");
    }
    throw ToolError(EXIT_NO, program + " cannot be started: " + std::strerror(errno));
}

}  // namespace

void AddServe(CLI::App& app, Tool&)
{
    CLI::App* const verb = app.add_subcommand("serve", "Live page with the simulator, and metrics for Prometheus");
    verb->prefix_command();
    verb->set_help_flag();  // veltra-serve has its own
    verb->callback([verb] {
        std::vector<std::string> words = verb->remaining();
        words.insert(words.begin(), "veltra-serve");
        Become(ProgramFolder() + "/veltra-serve", words);
    });
}

}  // namespace VeltraTool
