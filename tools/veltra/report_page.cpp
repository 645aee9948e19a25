// SPDX-License-Identifier: Apache-2.0
// The page from top to bottom. Words and tables are written here, so that they can be read and printed without a
// script; the curves and marks travel as JSON, which the page's own script draws. Its content security policy allows
// nothing but the scripts and styles that are written here, which a random number marks. Two recordings stand side by
// side, section by section, with the same axes.
#include "report_page.h"

#include <sys/random.h>

#include <algorithm>
#include <functional>

#include "exit_code.h"
#include "html_text.h"
#include "output.h"
#include "page_files.h"
#include "report_findings.h"

namespace VeltraTool {

namespace {

constexpr size_t MOST_ROWS = 50;

using Rows = std::vector<std::vector<std::string>>;
using Reports = std::vector<RecordedReport>;

// Marks what the page itself has written, for its policy.
std::string Nonce()
{
    unsigned char bytes[16];
    if (::getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) {
        throw ToolError(EXIT_NO, "the kernel gave no random number");
    }
    std::string nonce;
    for (const unsigned char byte : bytes) {
        char hex[3];
        std::snprintf(hex, sizeof(hex), "%02x", byte);
        nonce += hex;
    }
    return nonce;
}

const char* NameOfKind(MarkKind kind)
{
    switch (kind) {
        case MarkKind::EVENT:
            return "event";
        case MarkKind::FAULT:
            return "fault";
        case MarkKind::LOST:
            return "lost";
        default:
            return "change";
    }
}

std::string ShownMark(const ReportMark& mark)
{
    const bool isCounted = mark.kind == MarkKind::FAULT && mark.count > 1;
    return mark.text + (isCounted ? ", " + std::to_string(mark.count) + " times" : "");
}

std::string ShownQuantile(const Durations& durations, double share)
{
    return durations.Count() == 0 ? "" : ShownDuration(durations.Quantile(share));
}

// One heading, and below it what `content` makes of each recording.
std::string Section(const Reports& reports, const std::string& heading,
                    const std::function<std::string(const RecordedReport&)>& content)
{
    std::string html = "<section><h2>" + HtmlText(heading) + "</h2>\n";
    if (reports.size() == 1) {
        return html + content(reports.front()) + "</section>\n";
    }
    html += "<div class=\"columns\">\n";
    for (const RecordedReport& report : reports) {
        html += "<div><h3>" + HtmlText(report.name) + "</h3>\n" + content(report) + "</div>\n";
    }
    return html + "</div></section>\n";
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

std::string About(const RecordedReport& report)
{
    const auto shown = [&report](const char* key) { return TextOf(MemberOf(report.header, key)); };
    const std::string lost = report.lost == 0 ? "no record lost" : std::to_string(report.lost) + " records lost";
    std::string html = "<p class=\"faint\">" + HtmlText(report.name) + ": duration " + Elapsed(report.seconds) + ", " +
                       std::to_string(report.records) + " records, " + lost;
    for (const auto& [label, key] :
         {std::pair{"started", "startedAt"}, {"machine", "machine"}, {"service", "service"}}) {
        html += shown(key).empty() ? "" : ", " + std::string(label) + " " + HtmlText(shown(key));
    }
    return html + "</p>\n";
}

std::string FindingList(const RecordedReport& report)
{
    static constexpr const char* CLASSES[] = {"", "good", "warning", "bad"};
    static constexpr const char* SIGNS[] = {"", "\u2713 ", "! ", "\u2717 "};  // also without colour
    std::string html = "<ul class=\"findings\">\n";
    for (const Finding& finding : FindingsOf(report)) {
        const auto tone = static_cast<size_t>(finding.tone);
        html += std::string("<li class=\"") + CLASSES[tone] + "\">" + SIGNS[tone] + HtmlText(finding.text) + "</li>\n";
    }
    return html + "</ul>\n";
}

std::vector<std::string> KeyFigures(const RecordedReport& report)
{
    const DeviceStory& device = report.device;
    const auto shown = [](const std::optional<TimedValue>& value, const char* unit) {
        return value ? ShownShort(value->value) + unit : "not known";
    };
    const auto hot = device.HotPhases().find(DeviceStory::HOT_LEVEL);
    return {Elapsed(report.seconds),
            shown(device.HighestLevel(), ""),
            hot == device.HotPhases().end() ? "not known" : Elapsed(hot->second.seconds),
            shown(device.HighestTemperature(), " \u00b0C"),
            std::to_string(report.qualityChanges.size()),
            std::to_string(report.Calls()),
            std::to_string(report.FailedCalls()),
            std::to_string(report.slowCalls),
            ShownDuration(report.slowest.microseconds),
            std::to_string(report.lost)};
}

std::string Comparison(const Reports& reports)
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
    return "<section><h2>Side by side</h2>\n" +
           HtmlTable("Side by side",
                     {{"", "word"}, {reports[0].name.c_str(), "number"}, {reports[1].name.c_str(), "number"}}, rows) +
           "</section>\n";
}

std::string CallTable(const std::map<std::string, CallSummary>& summaries, const std::string& what, double seconds)
{
    std::vector<const std::pair<const std::string, CallSummary>*> order;
    for (const auto& entry : summaries) {
        order.push_back(&entry);
    }
    std::stable_sort(order.begin(), order.end(), [](const auto* left, const auto* right) {
        return left->second.durations.Count() > right->second.durations.Count();
    });
    Rows rows;
    for (const auto* const entry : order) {
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

// The busiest first.
std::string GameTable(const RecordedReport& report)
{
    std::vector<const std::pair<const int32_t, GameSummary>*> order;
    for (const auto& entry : report.games) {
        order.push_back(&entry);
    }
    std::stable_sort(order.begin(), order.end(), [](const auto* left, const auto* right) {
        return left->second.calls.Count() > right->second.calls.Count();
    });
    Rows rows;
    for (const auto* const entry : order) {
        const GameSummary& game = entry->second;
        rows.push_back({game.name, entry->first == 0 ? "others" : std::to_string(entry->first),
                        std::to_string(game.calls.Count()), std::to_string(game.failedCalls),
                        ShownQuantile(game.calls, 0.99), ShownQuantile(game.calls, 1), std::to_string(game.pushes),
                        std::to_string(game.failedPushes), game.endedAt ? Elapsed(*game.endedAt) : ""});
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

Json::Value CurveData(const Reports& reports)
{
    Json::Value data = Json::arrayValue;
    for (const RecordedReport& report : reports) {
        Json::Value entry;
        entry["name"] = Escaped(report.name);
        entry["device"] = report.series.Document();
        entry["rates"] = report.rates.Document();
        entry["marks"] = Json::arrayValue;
        for (const ReportMark& mark : report.marks.All()) {
            Json::Value shown;
            shown["t"] = mark.seconds;
            shown["kind"] = NameOfKind(mark.kind);
            shown["text"] = Escaped(ShownMark(mark));
            entry["marks"].append(shown);
        }
        data.append(entry);
    }
    return data;
}

std::string Head(const std::string& title, const std::string& nonce)
{
    const std::string style = "<style nonce=\"" + nonce + "\">\n";
    return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src 'nonce-" +
           nonce + "'; style-src 'nonce-" + nonce +
           "'; base-uri 'none'; form-action 'none'\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
           HtmlText(title) + "</title>\n" + style + std::string(UPLOT_CSS) + "</style>\n" + style +
           std::string(PAGE_CSS) + "</style>\n</head>\n";
}

std::string Foot(const Reports& reports, const std::string& nonce)
{
    std::string html =
        "<footer class=\"faint\"><p>Made by veltra " VELTRA_VERSION
        ". Times are minutes and seconds since the first record; durations of calls are those in the service.</p>\n"
        "<details><summary>The curves are drawn by uPlot. Its licence</summary><pre class=\"licence\">" +
        std::string(UPLOT_LICENCE) + "</pre></details></footer>\n" + "<script type=\"application/json\" id=\"data\">" +
        HtmlJson(CurveData(reports)) + "</script>\n";
    for (const std::string_view script : {UPLOT_JS, CURVES_JS, REPORT_JS}) {
        html += "<script nonce=\"" + nonce + "\">\n" + std::string(script) + "</script>\n";
    }
    return html + "</body></html>";
}

}  // namespace

std::string ReportPage(const Reports& reports)
{
    const std::string nonce = Nonce();
    std::string title = "Report of " + reports.front().name;
    for (size_t i = 1; i < reports.size(); ++i) {
        title += " and " + reports[i].name;
    }
    std::string html = Head(title, nonce) + "<body>\n<header><h1>" + HtmlText(title) + "</h1>\n";
    for (const RecordedReport& report : reports) {
        html += About(report);
    }
    html += "</header>\n<main>\n" + Section(reports, "Findings", FindingList);
    html += reports.size() > 1 ? Comparison(reports) : "";
    size_t index = 0;
    html += Section(reports, "Curves", [&reports, &index](const RecordedReport&) {
        return "<div class=\"curves" + std::string(reports.size() == 1 ? " columns" : "") + "\" data-index=\"" +
               std::to_string(index++) + "\"></div><noscript><p>The curves need JavaScript.</p></noscript>\n";
    });
    html += Section(reports, "Events and faults", MarkTable);
    html += Section(reports, "Calls", [](const RecordedReport& report) {
        return CallTable(report.operations, "operation", report.seconds);
    });
    html += Section(reports, "Pushes",
                    [](const RecordedReport& report) { return CallTable(report.pushes, "push", report.seconds); });
    html += Section(reports, "Games", GameTable);
    return html + "</main>\n" + Foot(reports, nonce);
}

}  // namespace VeltraTool
