// SPDX-License-Identifier: Apache-2.0
#include "report_marks.h"

namespace VeltraTool {

void ReportMarks::Add(double seconds, MarkKind kind, const std::string& text)
{
    constexpr double SAME_SECONDS = 1;
    const auto known = latest_.find({kind, text});
    if (known != latest_.end() && seconds - known->second.seconds <= SAME_SECONDS) {
        known->second.seconds = seconds;
        ++marks_[known->second.index].count;
        return;
    }
    if (counts_[kind] == MOST_OF_A_KIND) {
        ++leftOut_;
        return;
    }
    ++counts_[kind];
    latest_[{kind, text}] = {marks_.size(), seconds};
    marks_.push_back({seconds, kind, text, 1});
}

}  // namespace VeltraTool
