// SPDX-License-Identifier: Apache-2.0
// Suppresses repeated log lines of one process and counts them.
#ifndef TAVO_BASE_SCRIVO_FOLDER_H
#define TAVO_BASE_SCRIVO_FOLDER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/scrivo_sink.h"

namespace TAVO {

// Remembers the last few distinct lines. A line that was written less than 10 s ago is counted instead; when the time
// is over, one line with its text and "(repeated N times)" replaces them. So two lines that alternate 60 times a second
// cost two lines in 10 s.
//
// Constant-initialised and trivially destructible: usable before main, at exit and in a signal-free forked child. Any
// thread. A thread that finds the table in use, or a child that was forked while it was in use, writes without folding.
class ScrivoFolder {
public:
    static constexpr int64_t WINDOW_NANOSECONDS = 10'000'000'000;
    static constexpr size_t MAX_TEXT_BYTES = 400;  // of a repetition; longer texts are cut

    // One line that replaces several.
    struct Summary {
        int level;
        uint32_t domain;
        char tag[32];
        char text[MAX_TEXT_BYTES + 64];
    };
    struct Result {
        bool isFolded = false;    // the line is not to be written
        bool hasSummary = false;  // `summary` is to be written first
    };

    constexpr ScrivoFolder() noexcept = default;

    // `now` is the steady clock's time. Fills at most one summary; another one follows at the next line.
    Result Fold(const ScrivoLine& line, int64_t now, Summary& summary) noexcept;
    // Removes one line with repetitions, whenever they began; false if there is none left. For the exit of the process.
    bool TakeAny(Summary& summary) noexcept;

private:
    static constexpr size_t SLOTS = 16;

    struct Slot {
        uint64_t hash = 0;
        int64_t since = 0;
        uint32_t repeated = 0;
        bool isUsed = false;
        int level = 0;
        uint32_t domain = 0;
        char tag[32] = {};
        char text[MAX_TEXT_BYTES] = {};
    };
    class Busy;

    Slot* Find(const ScrivoLine& line, uint64_t hash) noexcept;
    // For a line that is in the table.
    static Result Repeat(Slot& known, int64_t now, Summary& summary) noexcept;
    // Frees slots whose window has ended, until a second one has repetitions. Whether the summary was filled.
    bool FreeThoseOver(int64_t now, Summary& summary) noexcept;
    // A free slot; the oldest one is emptied if there is none, and its summary filled if it has repetitions.
    Slot& Free(Summary& summary, bool& hasSummary) noexcept;
    static void Fill(const Slot& slot, Summary& summary) noexcept;

    std::atomic<bool> isBusy_{false};
    std::atomic<int> process_{0};  // that uses the table; a forked child does not
    Slot slots_[SLOTS] = {};
};

}  // namespace TAVO

#endif
