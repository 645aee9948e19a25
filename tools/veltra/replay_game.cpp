// SPDX-License-Identifier: Apache-2.0
// A game of a replay, as a process of its own: makes the recorded requests of one process at their times.
#include <chrono>
#include <memory>
#include <thread>

#include "replay.h"
#include "replay_plan.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

using Clock = std::chrono::steady_clock;

struct GameOptions {
    std::string file;
    int32_t process = 0;
    double speed = 1;
    int64_t begin = 0;  // nanoseconds of the steady clock, which all games share
};

void Play(const GameOptions& options)
{
    const ReplayPlan plan = PlanReplay(options.file);
    const auto game = plan.games.find(options.process);
    if (game == plan.games.end()) {
        throw ToolError(EXIT_NO, "the recording has no such process");
    }
    TAVO::Veltra::VeltraClient client;
    const Clock::time_point begin{std::chrono::nanoseconds(options.begin)};
    for (const ReplayRequest& request : game->second) {
        // All games of the replay count from the same moment, so calls of different games keep their order.
        std::this_thread::sleep_until(begin + std::chrono::duration_cast<Clock::duration>(
                                                  std::chrono::duration<double>(request.seconds / options.speed)));
        const CallArguments arguments(request.operation->name, request.operation->parameters, request.arguments);
        request.operation->call(client, arguments);
    }
}

}  // namespace

void AddReplayGame(CLI::App& app, Tool&)
{
    CLI::App* const verb = AddVerb(app, REPLAY_GAME_VERB, "A part of replay");
    verb->group("");
    const auto options = std::make_shared<GameOptions>();
    verb->add_option("file", options->file)->required();
    verb->add_option("process", options->process)->required();
    verb->add_option("speed", options->speed)->required();
    verb->add_option("begin", options->begin)->required();
    verb->callback([options] { Play(*options); });
}

}  // namespace VeltraTool
