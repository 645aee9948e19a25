// SPDX-License-Identifier: Apache-2.0
// The tables of a report, as HTML. The busiest come first; what a page has no room for is counted.
#ifndef VELTRA_TOOLS_REPORT_TABLES_H
#define VELTRA_TOOLS_REPORT_TABLES_H

#include <map>
#include <string>
#include <vector>

#include "recorded_report.h"

namespace VeltraTool {

// Of two recordings.
std::string ComparisonTable(const std::vector<RecordedReport>& reports);
// `what`: the heading of the names. `seconds`: how long the recording is.
std::string CallTable(const std::map<std::string, CallSummary>& summaries, const std::string& what, double seconds);
std::string GameTable(const RecordedReport& report);
std::string MarkTable(const RecordedReport& report);

}  // namespace VeltraTool

#endif
