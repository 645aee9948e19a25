// SPDX-License-Identifier: Apache-2.0
// Follows what the service reports while it runs, for the verbs that watch calls.
#ifndef VELTRA_TOOLS_RECORD_STREAM_H
#define VELTRA_TOOLS_RECORD_STREAM_H

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "control/iveltra_control.h"

namespace VeltraTool {

constexpr double MOST_STREAM_SECONDS = 1e9;

// Called on main's thread only.
class RecordSink {
public:
    virtual ~RecordSink() = default;
    // `line` is the record as the service wrote it: ASCII, without a line break.
    virtual void OnRecord(const std::string& line, const Json::Value& record) = 0;
    virtual void OnLost(uint64_t count) = 0;
    // Called at least ten times a second; true ends the stream.
    virtual bool IsEnough() = 0;
};

// Passes on what `filter` lets through, until the sink has enough, for `seconds` (0: without a limit), or until SIGINT
// or SIGTERM. ToolError when the service refuses, or ends before.
void FollowRecords(const TAVO::sptr<TAVO::Veltra::IVeltraControl>& control, const Json::Value& filter, double seconds,
                   RecordSink& sink);

// Seconds since the epoch, as records have them.
double SecondsNow();

}  // namespace VeltraTool

#endif
