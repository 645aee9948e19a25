// SPDX-License-Identifier: Apache-2.0
// The page of a report: one file that needs nothing else, and no network.
#ifndef VELTRA_TOOLS_REPORT_PAGE_H
#define VELTRA_TOOLS_REPORT_PAGE_H

#include <string>
#include <vector>

#include "recorded_report.h"

namespace VeltraTool {

// Of one recording, or of two side by side.
std::string ReportPage(const std::vector<RecordedReport>& reports);

}  // namespace VeltraTool

#endif
