// SPDX-License-Identifier: Apache-2.0
// The verb `top`: the service in full screen, looked at once a second. What can fail is done before the terminal is
// taken over, so that its error is seen.
#include <unistd.h>

#include <memory>

#include "reach.h"
#include "top_screen.h"
#include "top_source.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

constexpr std::chrono::milliseconds TICK{100};

void RequireTerminal(const Tool& tool)
{
    if (tool.isJson) {
        throw ToolError(EXIT_USAGE, "top has no JSON output",
                        "use \"veltra --json status\" or \"veltra --json monitor\"");
    }
    if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1) {
        throw ToolError(EXIT_USAGE, "top needs a terminal as standard input and output",
                        "use \"veltra status\" or \"veltra monitor\"");
    }
}

void Show(TopSource& source)
{
    TopScreen screen;
    TopInput input = TopInput::RESIZED;
    for (uint64_t shown = 0; input != TopInput::QUIT; input = screen.Wait(TICK)) {
        // The state is copied and drawn only when it has changed, or the terminal has.
        const uint64_t version = source.Version();
        if (input == TopInput::RESIZED || version != shown) {
            screen.Draw(LayOut(source.State(), screen.Width(), screen.Height(), screen.IsUtf8()));
            shown = version;
        }
    }
}

}  // namespace

void AddTop(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "top", "Full-screen view: device, games, calls and pushes, until q");
    const auto isStarting = std::make_shared<bool>(false);
    verb->add_flag("--start", *isStarting, "Start the service if it does not run");
    verb->callback([isStarting, &tool] {
        RequireTerminal(tool);
        const auto source = std::make_shared<TopSource>(ReachControl(*isStarting));
        // The first look, on this thread: without a service this throws before the screen is taken over.
        source->Open();
        source->Run();
        Show(*source);
    });
}

}  // namespace VeltraTool
