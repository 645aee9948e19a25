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
    double seconds;  // of the first time
    MarkKind kind;
    std::string text;  // as a peer chose it
    uint32_t count;    // how often it happened from then on, until the next mark with the same text
};

// "event", "fault", "lost" or "change", as tools/web/curves.js names them.
const char* NameOfKind(MarkKind kind);
// With the count if it is a fault that happened again.
std::string ShownMark(const ReportMark& mark);

// What happens again within a second is one mark. If there are too many marks of a kind this time is doubled, so that
// they are spread over the whole recording; what does not fit even so is counted.
class ReportMarks {
public:
    static constexpr size_t MOST_OF_A_KIND = 200;

    void Add(double seconds, MarkKind kind, const std::string& text);
    // In the order of time.
    std::vector<ReportMark> All() const;
    size_t LeftOut() const { return leftOut_; }

private:
    struct Kind {
        std::vector<ReportMark> marks;
        std::map<std::string, size_t> latest;  // by text: the index of its latest mark
        double sameSeconds = 1;
    };
    // Adds the mark to one that is there, or behind them.
    static void Merge(Kind& kind, const ReportMark& mark);

    std::map<MarkKind, Kind> kinds_;
    size_t leftOut_ = 0;
};

}  // namespace VeltraTool

#endif
