// SPDX-License-Identifier: Apache-2.0
// Reads a recording, one record after another, into the numbers of a report. A recording may come from another person,
// so it is not trusted: names are cut, and there is a limit for everything that a million lines could have in any
// number (processes, operations, marks, changes of quality). What exceeds a limit is counted together or left out.
#include "recorded_report.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "exit_code.h"
#include "output.h"
#include "recording.h"

namespace VeltraTool {

namespace {

constexpr size_t MOST_NAMES = 64;  // of operations
constexpr size_t MOST_GAMES = 1000;
constexpr size_t MOST_CHANGES = 1000;
constexpr size_t MOST_NAME_BYTES = 100;
constexpr int32_t OTHER_GAMES = 0;           // no process has this number
constexpr char OWN_EVENT[] = "deviceState";  // pushed by the service itself when a value changes

std::string Shortened(const std::string& text)
{
    if (text.size() <= MOST_NAME_BYTES) {
        return text;
    }
    size_t end = MOST_NAME_BYTES;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) {
        --end;  // not within a character
    }
    return text.substr(0, end) + "...";
}

CallSummary& SummaryOf(std::map<std::string, CallSummary>& summaries, const std::string& name)
{
    const bool hasRoom = summaries.size() < MOST_NAMES || summaries.count(Shortened(name)) > 0;
    return summaries[hasRoom ? Shortened(name) : "others"];
}

std::optional<double> NumberIn(const std::string& text)
{
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

void CountFailure(CallSummary& summary, int32_t code, double seconds)
{
    if (summary.failed++ == 0) {
        summary.firstFailure = code;
        summary.firstFailedAt = seconds;
    }
}

// "set tempLevel=3", "load heat-wave", "fault hang of GetDeviceInfo"
std::string ShownCommand(const Json::Value& command)
{
    const std::string what = TextOf(MemberOf(command, "do"));
    std::string shown = what;
    if (what == "set") {
        const Json::Value& values = MemberOf(command, "values");
        for (const std::string& key : values.isObject() ? values.getMemberNames() : std::vector<std::string>()) {
            shown += " " + key + "=" + ShownValue(values[key]);
        }
    } else {
        for (const char* const key : {"name", "kind", "text", "seconds", "factor"}) {
            const Json::Value& value = MemberOf(command, key);
            shown += value.isNull() ? "" : " " + ShownValue(value);
        }
        const std::string operation = TextOf(MemberOf(command, "operation"));
        shown += operation.empty() ? "" : " of " + operation;
    }
    return Shortened(shown);
}

class ReportReader {
public:
    // Games that ran before the recording began are named in its header.
    explicit ReportReader(RecordedReport& report) : report_(report)
    {
        const Json::Value& games = MemberOf(report.header, "games");
        for (const Json::Value& game : games.isArray() ? games : Json::Value(Json::arrayValue)) {
            const Json::Value& process = MemberOf(game, "pid");
            if (process.isInt()) {
                GameOf(process.asInt()).name = Shortened(TextOf(MemberOf(game, "bundle")));
            }
        }
    }

    void Add(const Json::Value& record)
    {
        const int64_t time = MicrosecondsOf(record);
        if (report_.records++ == 0) {
            begin_ = time;
        }
        report_.seconds = std::max(report_.seconds, static_cast<double>(time - begin_) / 1e6);
        const std::string type = record["type"].asString();
        if (type == "call") {
            AddCall(record);
        } else if (type == "push") {
            AddPush(record);
        } else if (type == "device" && record["values"].isObject()) {
            report_.series.Add(report_.seconds, record["values"]);
            report_.device.Add(report_.seconds, record["values"]);
        } else if (type == "dropped") {
            const uint64_t count = record["count"].asUInt64();
            report_.lost = count > UINT64_MAX - report_.lost ? UINT64_MAX : report_.lost + count;
            Mark(MarkKind::LOST, record["count"].asString() + " records were lost");
        } else if (type == "game") {
            AddGame(record);
        } else if (type == "simulation") {
            report_.wasSimulated = true;
            const Json::Value& command = MemberOf(record, "command");
            const bool isFault = TextOf(MemberOf(command, "do")) == "fault";
            Mark(isFault ? MarkKind::FAULT : MarkKind::CHANGE, "simulation: " + ShownCommand(command));
        }
    }

    void Finish()
    {
        for (auto* const summaries : {&report_.operations, &report_.pushes}) {
            for (auto& [name, summary] : *summaries) {
                summary.durations.Sort();
            }
        }
        for (auto& [process, game] : report_.games) {
            game.durations.Sort();
        }
    }

private:
    void Mark(MarkKind kind, const std::string& text) { report_.marks.Add(report_.seconds, kind, text); }

    GameSummary& GameOf(int32_t process)
    {
        const bool hasRoom = report_.games.size() < MOST_GAMES || report_.games.count(process) > 0;
        return report_.games[hasRoom ? process : OTHER_GAMES];
    }

    void AddCall(const Json::Value& record)
    {
        const std::string operation = record["op"].asString();
        const int32_t code = record["code"].asInt();
        const double microseconds = record["us"].asDouble();
        CallSummary& summary = SummaryOf(report_.operations, operation);
        GameSummary& game = GameOf(ProcessOf(record));
        summary.durations.Add(microseconds);
        game.durations.Add(microseconds);
        report_.rates.AddCall(report_.seconds);
        if (code != 0) {
            CountFailure(summary, code, report_.seconds);
            ++game.failedCalls;
            Mark(MarkKind::FAULT, Shortened(operation) + " failed: " + NameOfCode(code));
        }
        if (microseconds > RecordedReport::SLOW_MICROSECONDS) {
            ++report_.slowCalls;
        }
        if (microseconds > report_.slowest.microseconds) {
            report_.slowest = {Shortened(operation), microseconds, report_.seconds};
        }
        if (operation == "UpdateGameInfo" && code == 0) {
            game.name = Shortened(TextOf(MemberOf(record["args"], "text")));
        } else if (operation == "NotifyGameEvent" && code == 0) {
            AddScene(MemberOf(record["args"], "bundle"), ProcessOf(record), game);
        }
    }

    // A game that reports the attribute "quality" of its scenes shows how long it took to react to heat.
    void AddScene(const Json::Value& scene, int32_t process, GameSummary& game)
    {
        const std::string name = Shortened(TextOf(MemberOf(scene, "sceneName")));
        const std::optional<double> quality = NumberIn(TextOf(MemberOf(MemberOf(scene, "attributes"), "quality")));
        if (name != game.scene) {
            game.scene = name;
            Mark(MarkKind::EVENT, report_.NameOf(process) + ": scene " + name);
        }
        if (quality && game.quality && *quality != *game.quality) {
            Mark(MarkKind::CHANGE,
                 report_.NameOf(process) + ": quality " + ShownShort(*game.quality) + " to " + ShownShort(*quality));
            if (report_.qualityChanges.size() < MOST_CHANGES) {
                report_.qualityChanges.push_back({report_.seconds, process, *game.quality, *quality});
            }
        }
        game.quality = quality ? quality : game.quality;
    }

    void AddPush(const Json::Value& record)
    {
        CallSummary& summary = SummaryOf(report_.pushes, record["what"].asString());
        GameSummary& game = GameOf(ProcessOf(record));
        const int32_t status = record["status"].asInt();
        summary.durations.Add(record["us"].asDouble());
        ++game.pushes;
        report_.rates.AddPush(report_.seconds);
        if (status != 0) {
            CountFailure(summary, status, report_.seconds);
            ++game.failedPushes;
            Mark(MarkKind::FAULT, "push to " + report_.NameOf(ProcessOf(record)) + " failed: " + NameOfCode(status));
        }
        const std::string text = TextOf(MemberOf(record["data"], "eventText"));
        if (!text.empty() && text != OWN_EVENT) {
            Mark(MarkKind::EVENT, "event " + Shortened(text));
        }
    }

    void AddGame(const Json::Value& record)
    {
        const Json::Value& process = MemberOf(record, "pid");
        const std::string event = TextOf(MemberOf(record, "event"));
        if (!process.isInt() || (event != "connected" && event != "ended")) {
            return;
        }
        GameSummary& game = GameOf(process.asInt());
        Mark(MarkKind::CHANGE, report_.NameOf(process.asInt()) + (event == "ended" ? " ended" : " connected"));
        game.endedAt = event == "ended" ? std::optional(report_.seconds) : std::nullopt;
    }

    RecordedReport& report_;
    int64_t begin_ = 0;
};

}  // namespace

void Durations::Sort()
{
    std::sort(all_.begin(), all_.end());
}

double Durations::Quantile(double share) const
{
    const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(all_.size())));
    return all_.empty() ? 0 : all_[std::clamp<size_t>(rank, 1, all_.size()) - 1];
}

std::string RecordedReport::NameOf(int32_t process) const
{
    const auto game = games.find(process);
    return game != games.end() && !game->second.name.empty() ? game->second.name : "process " + std::to_string(process);
}

uint64_t RecordedReport::Calls() const
{
    uint64_t calls = 0;
    for (const auto& entry : operations) {
        calls += entry.second.durations.Count();
    }
    return calls;
}

uint64_t RecordedReport::FailedCalls() const
{
    uint64_t failed = 0;
    for (const auto& entry : operations) {
        failed += entry.second.failed;
    }
    return failed;
}

RecordedReport ReadReport(const std::string& path)
{
    constexpr uint64_t PROGRESS_RECORDS = 10000;
    const bool isTerminal = ::isatty(STDERR_FILENO) == 1;
    RecordingReader recording(path);
    RecordedReport report;
    report.name = std::filesystem::path(path).filename();
    report.header = recording.Header();
    ReportReader reader(report);
    while (const std::optional<Json::Value> record = recording.Next()) {
        reader.Add(*record);
        if (isTerminal && report.records % PROGRESS_RECORDS == 0) {
            std::fprintf(stderr, "\r%llu records", static_cast<unsigned long long>(report.records));
        }
    }
    if (isTerminal && report.records >= PROGRESS_RECORDS) {
        std::fprintf(stderr, "\r\033[K");
    }
    reader.Finish();
    return report;
}

}  // namespace VeltraTool
