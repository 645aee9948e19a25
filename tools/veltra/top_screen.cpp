// SPDX-License-Identifier: Apache-2.0
// ncurses, and nothing else of the tool knows it. A signal that ends the view only sets a flag, so that the terminal is
// restored on main's thread. A terminal that was closed reports a hang-up, an error, or input without a key.
#include "top_screen.h"

#include <langinfo.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#define NCURSES_NOMACROS 1
#include <ncurses.h>

#include "exit_code.h"

namespace VeltraTool {

namespace {

std::atomic<bool> g_isEnding{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void EndView(int)
{
    g_isEnding = true;
}

// Before ncurses is started, which replaces only default handlers.
void EndAtSignals()
{
    struct sigaction action {};
    action.sa_handler = EndView;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

attr_t AttributeOf(const TopLine& line, bool hasColour)
{
    if (line.isHeading) {
        return A_REVERSE;
    }
    return hasColour && line.tone != Tone::PLAIN ? static_cast<attr_t>(COLOR_PAIR(static_cast<int>(line.tone)))
                                                 : A_NORMAL;
}

}  // namespace

TopScreen::TopScreen()
{
    std::setlocale(LC_CTYPE, "");
    isUtf8_ = std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
    EndAtSignals();
    if (::newterm(nullptr, stdout, stdin) == nullptr) {
        throw ToolError(EXIT_USAGE, "the type of this terminal is not known", "set TERM, for example to xterm");
    }
    ::cbreak();
    ::noecho();
    ::curs_set(0);
    // wgetch must not block: poll waits, for input or the next tick.
    ::nodelay(stdscr, true);
    ::keypad(stdscr, true);
    const char* const noColour = std::getenv("NO_COLOR");
    hasColour_ = (noColour == nullptr || *noColour == '\0') && ::has_colors();
    if (hasColour_) {
        ::start_color();
        ::use_default_colors();
        constexpr short DEFAULT = -1;
        ::init_pair(static_cast<short>(Tone::GOOD), COLOR_GREEN, DEFAULT);
        ::init_pair(static_cast<short>(Tone::WARNING), COLOR_YELLOW, DEFAULT);
        ::init_pair(static_cast<short>(Tone::BAD), COLOR_RED, DEFAULT);
    }
}

TopScreen::~TopScreen()
{
    // Restores the terminal also when an exception ends the view.
    ::endwin();
}

size_t TopScreen::Width() const
{
    return static_cast<size_t>(std::max(getmaxx(stdscr), 0));
}

size_t TopScreen::Height() const
{
    return static_cast<size_t>(std::max(getmaxy(stdscr), 0));
}

void TopScreen::Draw(const std::vector<TopLine>& lines)
{
    ::werase(stdscr);
    for (size_t row = 0; row < lines.size(); ++row) {
        const attr_t attribute = AttributeOf(lines[row], hasColour_);
        ::wattr_on(stdscr, attribute, nullptr);
        ::mvwaddstr(stdscr, static_cast<int>(row), 0, lines[row].text.c_str());
        ::wattr_off(stdscr, attribute, nullptr);
    }
    ::wrefresh(stdscr);
}

TopInput TopScreen::Wait(std::chrono::milliseconds limit)
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const int ready = ::poll(&input, 1, static_cast<int>(limit.count()));
    if (g_isEnding || (ready > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0)) {
        return TopInput::QUIT;
    }
    int key = ::wgetch(stdscr);  // also without input: a new size is a key
    if (ready > 0 && key == ERR) {
        return TopInput::QUIT;
    }
    TopInput result = TopInput::NONE;
    for (; key != ERR; key = ::wgetch(stdscr)) {
        if (key == 'q' || key == 'Q') {
            return TopInput::QUIT;
        }
        result = key == KEY_RESIZE ? TopInput::RESIZED : result;
    }
    return result;
}

}  // namespace VeltraTool
