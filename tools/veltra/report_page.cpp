// SPDX-License-Identifier: Apache-2.0
// The page from top to bottom. Words and tables are written here, so that they can be read and printed without a
// script; the curves and marks travel as JSON, which the page's own script draws. Its content security policy allows
// nothing but the scripts and styles that are written here, which a random number marks. Two recordings stand side by
// side, section by section, with the same axes.
#include "report_page.h"

#include <sys/random.h>

#include <functional>

#include "exit_code.h"
#include "html_text.h"
#include "output.h"
#include "page_files.h"
#include "report_findings.h"
#include "report_tables.h"

namespace VeltraTool {

namespace {

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

std::string About(const RecordedReport& report)
{
    const auto shown = [&report](const char* key) { return TextOf(MemberOf(report.header, key)); };
    std::string html = "<p class=\"faint\">" + HtmlText(report.name) + ": duration " + Elapsed(report.seconds) + ", " +
                       std::to_string(report.records) + " records, " + std::to_string(report.lost) + " lost";
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
    if (reports.size() > 1) {
        html += "<section><h2>Side by side</h2>\n" + ComparisonTable(reports) + "</section>\n";
    }
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
