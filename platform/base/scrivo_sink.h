// SPDX-License-Identifier: Apache-2.0
// Where log lines go: the choice, made once per process, and the write that never waits.
#ifndef TAVO_BASE_SCRIVO_SINK_H
#define TAVO_BASE_SCRIVO_SINK_H

#include <cstdint>

#include "tavo/scrivo_print.h"

namespace TAVO {

constexpr int SCRIVO_OFF = SCRIVO_FATAL + 1;

enum class SinkKind : int16_t { UNKNOWN, NOWHERE, DESCRIPTOR, JOURNAL };

// Small enough to be published in one atomic store: no lock that a fork could leave closed.
struct alignas(8) ScrivoSink {
    SinkKind kind;
    int16_t level;  // lowest level that is written
    int fd;         // stderr, a file or the journal's socket; -1: it could not be opened, every line is lost
};

// The sink that `settings` (the text of TAVO_LOG, null without one) requests. Opens what it needs. Without a sink in
// `settings`, a daemon logs to stderr; any other process to the journal, or to stderr if that is a terminal.
ScrivoSink OpenScrivoSink(const char* settings, bool isDaemon) noexcept;
// Writes one line to stderr for each word of `settings` that is not understood, and one if `sink` could not be opened.
void ReportScrivoSettings(const char* settings, const ScrivoSink& sink) noexcept;
void CloseScrivoSink(const ScrivoSink& sink) noexcept;

struct ScrivoLine {
    int level;
    uint32_t domain;
    const char* tag;
    const char* text;
};

// One line in one write: "MM-DD hh:mm:ss.mmm pid tid LEVEL domain/tag: text", the time in UTC. To anything but a
// regular file at most 4096 bytes (a pipe takes that whole or not at all). Returns the bytes written, -1 when the
// sink is full or fails.
int WriteScrivoLine(int fd, const ScrivoLine& line) noexcept;
// One datagram of fields to the journal's socket at `path`.
int SendScrivoLine(int fd, const char* path, const ScrivoLine& line) noexcept;

constexpr const char* JOURNAL_SOCKET = "/run/systemd/journal/socket";

}  // namespace TAVO

#endif
