// SPDX-License-Identifier: Apache-2.0
// The platform's log: one call, one line, filtered by level before anything is formatted.
#ifndef TAVO_SCRIVO_PRINT_H
#define TAVO_SCRIVO_PRINT_H

#include <cstdint>
#include <string_view>

#include "tavo/export.h"

namespace TAVO {

enum ScrivoLevel : int {
    SCRIVO_DEBUG = 3,
    SCRIVO_INFO = 4,
    SCRIVO_WARN = 5,
    SCRIVO_ERROR = 6,
    SCRIVO_FATAL = 7,
};

// What a hook sees of one call, below the current level too. Pointers are valid during the hook's call only.
struct ScrivoRecord {
    int type;
    int level;
    uint32_t domain;
    const char* tag;
    const char* format;  // as it was passed, markers included
    const char* text;    // formatted, private values hidden
};
using ScrivoHook = void (*)(const ScrivoRecord& record, void* context);

// Writes one line without interleaving. `format` is printf's, each conversion optionally marked "%{public}d" or
// "%{private}s": a private value prints as "<private>", an unmarked one as it is. Any thread; never blocks longer than
// a failed write takes: a full sink drops the line and counts it. A warning or error that repeats within 10 s is
// counted and not written; one line "... (repeated N times)" follows later. Returns the bytes written, 0 when filtered
// out or counted, -1 when dropped.
//
// The environment variable TAVO_LOG sets sink and lowest level: "stderr", a file (a path with a slash), or a level
// ("debug", "info", "warn", "error", "off"); several joined by commas. Any other word is reported once on stderr. By
// default warnings and errors go to stderr when it is a terminal, else to the journal's socket when there is one, else
// nowhere; in a daemon (ScrivoActAsDaemon) they go to stderr, also where it is a file or a pipe.
TAVO_EXPORT int ScrivoPrint(int type, int level, uint32_t domain, const char* tag, const char* format, ...);

// Whether a line of this level would be written or seen by a hook; costs one load.
TAVO_EXPORT bool ScrivoIsLoggable(int level);

// For a daemon, at the beginning of main, before other threads log: unless TAVO_LOG names a sink, this process logs to
// stderr, so that a container or a service manager sees its warnings.
TAVO_EXPORT void ScrivoActAsDaemon();

// The first word of `settings`, a value of TAVO_LOG, that is not understood; empty when there is none.
TAVO_EXPORT std::string_view ScrivoUnknownWord(std::string_view settings);

// Lines that a full or failing sink lost in this process.
TAVO_EXPORT uint64_t ScrivoDroppedLines();

// For tests: receives every record of every level from now on; null removes it. Called on the logging thread. Returns
// when no thread is inside an earlier hook any more, whose context may end then: so it must not be called by a hook.
TAVO_EXPORT void SetScrivoHook(ScrivoHook hook, void* context);

}  // namespace TAVO

#endif
