// SPDX-License-Identifier: Apache-2.0
// What happened at one moment of a recording: the lines across the curves of a report.
#ifndef VELTRA_TOOLS_REPORT_MARKS_H
#define VELTRA_TOOLS_REPORT_MARKS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace VeltraTool {

enum class MarkKind { EVENT, FAULT, LOST, CHANGE };

struct ReportMark {
    double seconds;
    MarkKind kind;
    std::string text;  // as a peer chose it
    uint32_t count;    // how often it happened, each time within a second of the time before
};

class ReportMarks {
public:
    static constexpr size_t MOST_OF_A_KIND = 200;

    void Add(double seconds, MarkKind kind, const std::string& text);
    const std::vector<ReportMark>& All() const { return marks_; }
    size_t LeftOut() const { return leftOut_; }

private:
    struct Latest {
        size_t index;
        double seconds;
    };
    std::vector<ReportMark> marks_;
    std::map<std::pair<MarkKind, std::string>, Latest> latest_;  // of those in marks_
    std::map<MarkKind, size_t> counts_;
    size_t leftOut_ = 0;
};

}  // namespace VeltraTool

#endif
