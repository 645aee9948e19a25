// SPDX-License-Identifier: Apache-2.0
// The terminal of the verb `top`.
#ifndef VELTRA_TOOLS_TOP_SCREEN_H
#define VELTRA_TOOLS_TOP_SCREEN_H

#include <chrono>
#include <vector>

#include "top_layout.h"

namespace VeltraTool {

enum class TopInput { NONE, RESIZED, QUIT };

// Takes over the terminal of stdin and stdout until its destruction, which restores it. One at a time. ToolError when
// the type of the terminal is not known.
class TopScreen {
public:
    TopScreen();
    ~TopScreen();
    TopScreen(const TopScreen&) = delete;
    TopScreen& operator=(const TopScreen&) = delete;

    size_t Width() const;
    size_t Height() const;
    bool IsUtf8() const { return isUtf8_; }
    void Draw(const std::vector<TopLine>& lines);
    // QUIT: the key q, SIGINT, SIGTERM or SIGHUP, or the terminal was closed.
    TopInput Wait(std::chrono::milliseconds limit);

private:
    bool isUtf8_ = false;
    bool hasColour_ = false;
};

}  // namespace VeltraTool

#endif
