// SPDX-License-Identifier: Apache-2.0
#ifndef VELTRA_TOOLS_REPLAY_H
#define VELTRA_TOOLS_REPLAY_H

#include "verbs.h"

namespace VeltraTool {

// The hidden verb that makes the requests of one game: FILE PROCESS SPEED BEGIN, with BEGIN in nanoseconds of the
// steady clock.
constexpr char REPLAY_GAME_VERB[] = "replay-game";
void AddReplayGame(CLI::App& app, Tool& tool);

}  // namespace VeltraTool

#endif
