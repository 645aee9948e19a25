// SPDX-License-Identifier: Apache-2.0
// The loop that record, replay and monitor share: takes lines from the queue until the sink has enough, the time is
// over, a signal arrives or the service ends. Lines arrive on a platform thread; the sink is called on main's.
#include "record_stream.h"

#include "output.h"
#include "reach.h"
#include "utils/json_utils.h"
#include "watch_queue.h"

namespace VeltraTool {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds TICK{100};

// A service of another version may send what this tool does not understand; a recording must not have it.
Json::Value RequireRecord(const std::string& line)
{
    Json::Value record;
    if (!TAVO::Veltra::JsonUtils::Parse(line, record) || !record.isObject() || !record["type"].isString()) {
        throw ToolError(EXIT_NO, "the service sent a record that is no JSON object with a type",
                        "use a tool of the service's version");
    }
    return record;
}

}  // namespace

void FollowRecords(const TAVO::sptr<TAVO::Veltra::IVeltraControl>& control, const Json::Value& filter, double seconds,
                   RecordSink& sink)
{
    WatchQueue& queue = WatchQueue::Instance();
    BeginWatch(control, JsonText(filter));
    const double limit = seconds > 0 ? seconds : MOST_STREAM_SECONDS;
    const Clock::time_point end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(limit));
    while (!sink.IsEnough() && Clock::now() < end) {
        const std::optional<std::string> line = queue.Take(std::min(end, Clock::now() + TICK));
        // Before the line: the lost records precede it.
        if (const uint64_t lost = queue.TakeLost(); lost > 0) {
            sink.OnLost(lost);
        }
        if (line) {
            sink.OnRecord(*line, RequireRecord(*line));
        } else if (queue.Ended()) {
            break;
        }
    }
    if (queue.Ended() == EXIT_UNREACHABLE) {
        throw ToolError(EXIT_UNREACHABLE, "the service has ended", "a game's next call starts it, or --start");
    }
    // Not after the service has ended: there is nothing to end.
    control->Unwatch();
}

double SecondsNow()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace VeltraTool
