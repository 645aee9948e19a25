// SPDX-License-Identifier: Apache-2.0
// What a recording shows, in words.
#ifndef VELTRA_TOOLS_REPORT_FINDINGS_H
#define VELTRA_TOOLS_REPORT_FINDINGS_H

#include <string>
#include <vector>

#include "output.h"
#include "recorded_report.h"

namespace VeltraTool {

struct Finding {
    Tone tone;
    std::string text;  // has texts of peers as they chose them
};

// The worst first within each subject: heat, calls, games, and what limits the report. Never empty.
std::vector<Finding> FindingsOf(const RecordedReport& report);

// "12.3 us", "4.2 ms", "1.20 s"
std::string ShownDuration(double microseconds);

}  // namespace VeltraTool

#endif
