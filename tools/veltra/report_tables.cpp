// SPDX-License-Identifier: Apache-2.0
#include "report_tables.h"

#include <algorithm>

#include "html_text.h"
#include "output.h"
#include "report_findings.h"

namespace VeltraTool {

namespace {

constexpr size_t MOST_ROWS = 50;

using Rows = std::vector<std::vector<std::string>>;

template <typename Key, typename Summary>
std::vector<const std::pair<const Key, Summary>*> BusiestFirst(const std::map<Key, Summary>& summaries)
{
    std::vector<const std::pair<const Key, Summary>*> order;
    for (const auto& entry : summaries) {
        order.push_back(&entry);
    }
    std::stable_sort(order.begin(), order.end(), [](const auto* left, const auto* right) {
        return left->second.durations.Count() > right->second.durations.Count();
    });
    return order;
}

std::string ShownQuantile(const Durations& durations, double share)
{
    return durations.Count() == 0 ? "" : ShownDuration(durations.Quantile(share));
}

// The first rows, and how many there are besides.
std::string LimitedTable(const std::string& caption, const std::vector<HtmlColumn>& columns, Rows rows, size_t most)
{
    if (rows.empty()) {
        return "<p class=\"faint\">none</p>\n";
    }
    const size_t left = rows.size() - std::min(rows.size(), most);
    rows.resize(rows.size() - left);
    return HtmlTable(caption, columns, rows) +
           (left > 0 ? "<p class=\"faint\">and " + std::to_string(left) + " more</p>\n" : "");
}

// In the order of the rows of ComparisonTable.
std::vector<std::string> KeyFigures(const RecordedReport& report)
{
    const DeviceStory& device = report.device;
    const auto shown = [](const std::optional<TimedValue>& value, const char* unit) {
        return value ? ShownShort(value->value) + unit : "not known";
    };
    return {Elapsed(report.seconds),
            shown(device.HighestLevel(), ""),
            device.HighestLevel() ? Elapsed(device.HotPhases().at(DeviceStory::HOT_LEVEL).seconds) : "not known",
            shown(device.HighestTemperature(), " \u00b0C"),
            std::to_string(report.qualityChanges.size()),
            std::to_string(report.Calls()),
            std::to_string(report.FailedCalls()),
            std::to_string(report.slowCalls),
            report.Calls() > 0 ? ShownDuration(report.slowest.microseconds) : "none",
            std::to_string(report.lost)};
}

}  // namespace

std::string ComparisonTable(const std::vector<RecordedReport>& reports)
{
    static constexpr const char* LABELS[] = {
        "duration", "highest level", "time at level 3 or above", "highest temperature", "changes of quality",
        "calls",    "failed calls",  "calls over 100 ms",        "longest call",        "lost records"};
    Rows rows;
    for (const char* const label : LABELS) {
        rows.push_back({label});
    }
    for (const RecordedReport& report : reports) {
        const std::vector<std::string> figures = KeyFigures(report);
        for (size_t i = 0; i < rows.size(); ++i) {
            rows[i].push_back(figures[i]);
        }
    }
    return HtmlTable("Side by side",
                     {{"", "word"}, {reports[0].name.c_str(), "number"}, {reports[1].name.c_str(), "number"}}, rows);
}

std::string CallTable(const std::map<std::string, CallSummary>& summaries, const std::string& what, double seconds)
{
    Rows rows;
    for (const auto* const entry : BusiestFirst(summaries)) {
        const CallSummary& summary = entry->second;
        const Durations& durations = summary.durations;
        rows.push_back({entry->first, std::to_string(durations.Count()),
                        seconds > 0 ? Shown(static_cast<double>(durations.Count()) / seconds, 2) : "",
                        std::to_string(summary.failed), ShownQuantile(durations, 0.5), ShownQuantile(durations, 0.99),
                        ShownQuantile(durations, 1)});
    }
    return LimitedTable(what,
                        {{what.c_str(), "text"},
                         {"count", "number"},
                         {"per s", "number"},
                         {"failed", "number"},
                         {"p50", "number"},
                         {"p99", "number"},
                         {"worst", "number"}},
                        rows, MOST_ROWS);
}

std::string GameTable(const RecordedReport& report)
{
    Rows rows;
    for (const auto* const entry : BusiestFirst(report.games)) {
        const GameSummary& game = entry->second;
        rows.push_back({game.name, entry->first == 0 ? "others" : std::to_string(entry->first),
                        std::to_string(game.durations.Count()), std::to_string(game.failedCalls),
                        ShownQuantile(game.durations, 0.99), ShownQuantile(game.durations, 1),
                        std::to_string(game.pushes), std::to_string(game.failedPushes),
                        game.endedAt ? Elapsed(*game.endedAt) : ""});
    }
    return LimitedTable("Games",
                        {{"game", "text"},
                         {"process", "number"},
                         {"calls", "number"},
                         {"failed", "number"},
                         {"p99", "number"},
                         {"worst", "number"},
                         {"pushes", "number"},
                         {"failed", "number"},
                         {"ended at", "number"}},
                        rows, MOST_ROWS);
}

std::string MarkTable(const RecordedReport& report)
{
    Rows rows;
    for (const ReportMark& mark : report.marks.All()) {
        rows.push_back({Elapsed(mark.seconds), NameOfKind(mark.kind), ShownMark(mark)});
    }
    const size_t leftOut = report.marks.LeftOut();
    return LimitedTable("Events and faults", {{"time", "word"}, {"kind", "word"}, {"what", "text"}}, rows,
                        rows.size()) +
           (leftOut > 0 ? "<p class=\"faint\">and " + std::to_string(leftOut) + " more</p>\n" : "");
}

}  // namespace VeltraTool
