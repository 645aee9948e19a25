// SPDX-License-Identifier: Apache-2.0
// The verb `report`: a page about a recording, or about two side by side. Everything is read before the file is
// written, so that a recording with a mistake leaves the earlier report as it is.
#include <memory>

#include "line_file.h"
#include "recorded_report.h"
#include "recording.h"
#include "report_page.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

struct ReportOptions {
    std::string recording;
    std::string other;  // empty: none
    std::string output;
};

void Run(const ReportOptions& options)
{
    std::vector<RecordedReport> reports;
    for (const std::string& path : {options.recording, options.other}) {
        if (path.empty()) {
            continue;
        }
        RequireOtherFile(path, options.output);
        reports.push_back(ReadReport(path));
    }
    const std::string page = ReportPage(reports);
    LineFile(options.output).Write(page);
}

}  // namespace

void AddReport(CLI::App& app, Tool&)
{
    CLI::App* const verb = AddVerb(app, "report", "Make a page of a recording, with curves and findings");
    const auto options = std::make_shared<ReportOptions>();
    verb->add_option("recording", options->recording, "What record wrote")->required();
    verb->add_option("--compare", options->other, "Another recording, to be shown beside it");
    verb->add_option("-o,--output", options->output, "The file to write, which is replaced; - is standard output")
        ->required();
    verb->callback([options] { Run(*options); });
}

}  // namespace VeltraTool
