// SPDX-License-Identifier: Apache-2.0
// The verb `trace`: a recording as a trace for timeline viewers, in the JSON format of Chrome. Each process has a set
// of rows for its calls and one for the pushes to it. A row never has two of them at the same time: a game calls from
// several threads, which a recording does not name, so what overlaps goes to the next row.
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <queue>
#include <set>

#include "line_file.h"
#include "recording.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

constexpr int32_t PUSH_ROWS = 100000;  // numbers of rows; those of calls begin at 1
constexpr int32_t DEVICE = 0;          // the process of the device's curves

// All times are whole tenths of a microsecond, as they were recorded, so that rounding makes nothing overlap.
struct Span {
    int64_t begin = 0;
    int64_t end = 0;
    int32_t process = 0;
    bool isPush = false;
    Json::Value event;
};

// The rows of one set.
class Rows {
public:
    // A row that is free from `begin` on, which then is not until `end`. `begin` never decreases.
    int32_t Take(int64_t begin, int64_t end)
    {
        int32_t row = count_ + 1;
        // The row that is free longest; the queue has the earliest end on top.
        if (!busy_.empty() && busy_.top().first <= begin) {
            row = busy_.top().second;
            busy_.pop();
        } else {
            ++count_;
        }
        busy_.emplace(end, row);
        return row;
    }

private:
    using Busy = std::pair<int64_t, int32_t>;  // until when, and which
    std::priority_queue<Busy, std::vector<Busy>, std::greater<>> busy_;
    int32_t count_ = 0;
};

class Trace {
public:
    void Add(const Json::Value& record)
    {
        const std::string type = record["type"].asString();
        const int64_t time = MicrosecondsOf(record) * 10;
        if (type == "call" || type == "push") {
            AddSpan(record, type == "push", time);
        } else if (type == "device" && record["values"].isObject()) {
            for (const std::string& key : record["values"].getMemberNames()) {
                Json::Value counter = Event("C", key, DEVICE);
                counter["args"]["value"] = record["values"][key];
                others_.emplace_back(time, std::move(counter));
            }
        } else if (type == "dropped") {
            Json::Value mark = Event("i", "records were lost", DEVICE);
            mark["s"] = "g";
            mark["args"]["count"] = record["count"];
            others_.emplace_back(time, std::move(mark));
        }
    }

    // Writes all of it.
    void Finish(const std::string& output)
    {
        file_.emplace(output);
        file_->Write("{\"traceEvents\":[");
        // Records are in the order of their ends; rows are assigned in the order of their beginnings.
        std::stable_sort(spans_.begin(), spans_.end(),
                         [](const Span& left, const Span& right) { return left.begin < right.begin; });
        int64_t first = spans_.empty() ? std::numeric_limits<int64_t>::max() : spans_.front().begin;
        for (const auto& [time, event] : others_) {
            first = std::min(first, time);
        }
        for (Span& span : spans_) {
            WriteSpan(span, first);
        }
        for (auto& [time, event] : others_) {
            Write(event, time - first);
        }
        Json::Value device = Event("M", "process_name", DEVICE);
        device["args"]["name"] = "device";
        Write(device, 0, true);
        file_->Write("],\"displayTimeUnit\":\"ms\"}");
    }

private:
    static Json::Value Event(const char* phase, const std::string& name, int32_t process)
    {
        Json::Value event;
        event["ph"] = phase;
        event["name"] = name;
        event["pid"] = process;
        event["tid"] = 0;
        return event;
    }

    void AddSpan(const Json::Value& record, bool isPush, int64_t end)
    {
        Span span;
        span.process = ProcessOf(record);
        span.isPush = isPush;
        span.end = end;
        span.begin = end - std::llround(record["us"].asDouble() * 10);
        span.event = Event("X", record[isPush ? "what" : "op"].asString(), span.process);
        span.event["cat"] = isPush ? "push" : "call";
        span.event["dur"] = static_cast<double>(span.end - span.begin) / 10;
        span.event["args"]["result"] = record[isPush ? "status" : "code"];
        for (const char* const key : {"args", "reply", "data"}) {
            if (record.isMember(key)) {
                span.event["args"][key] = record[key];
            }
        }
        spans_.push_back(std::move(span));
    }

    void WriteSpan(Span& span, int64_t first)
    {
        const auto [rows, isNew] = rows_.try_emplace({span.process, span.isPush});
        const int32_t row = rows->second.Take(span.begin, span.end);
        const int32_t id = row + (span.isPush ? PUSH_ROWS : 0);
        if (named_.insert({span.process, id}).second) {
            Json::Value name = Event("M", "thread_name", span.process);
            name["tid"] = id;
            name["args"]["name"] = (span.isPush ? "pushes " : "calls ") + std::to_string(row);
            Write(name, 0, true);
        }
        span.event["tid"] = id;
        Write(span.event, span.begin - first);
        // A long recording needs its memory only once.
        span.event.clear();
    }

    void Write(Json::Value& event, int64_t time, bool isMeta = false)
    {
        if (!isMeta) {
            event["ts"] = static_cast<double>(time) / 10;
        }
        file_->Write((isFirst_ ? "" : ",") + JsonText(event));
        isFirst_ = false;
    }

    std::optional<LineFile> file_;  // empty: nothing is written yet
    bool isFirst_ = true;
    std::vector<Span> spans_;
    std::vector<std::pair<int64_t, Json::Value>> others_;
    std::map<std::pair<int32_t, bool>, Rows> rows_;
    std::set<std::pair<int32_t, int32_t>> named_;
};

}  // namespace

void AddTrace(CLI::App& app, Tool&)
{
    CLI::App* const verb = AddVerb(app, "trace", "Make a trace for timeline viewers of a recording");
    const auto recording = std::make_shared<std::string>();
    const auto output = std::make_shared<std::string>();
    verb->add_option("recording", *recording, "What record wrote")->required();
    verb->add_option("-o,--output", *output, "The file to write, which is replaced; - is standard output")->required();
    verb->callback([recording, output] {
        RequireOtherFile(*recording, *output);
        RecordingReader reader(*recording);
        Trace trace;
        while (const std::optional<Json::Value> record = reader.Next()) {
            trace.Add(*record);
        }
        // Only now: a recording with a mistake leaves the earlier trace as it is.
        trace.Finish(*output);
    });
}

}  // namespace VeltraTool
