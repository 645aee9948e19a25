// SPDX-License-Identifier: Apache-2.0
#include "report_marks.h"

#include <algorithm>

namespace VeltraTool {

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

void ReportMarks::Add(double seconds, MarkKind kindOfMark, const std::string& text)
{
    Kind& kind = kinds_[kindOfMark];
    Merge(kind, {seconds, kindOfMark, text, 1});
    // Half of the room is enough for one mark of each text, so that doubling the time ends.
    while (kind.marks.size() > MOST_OF_A_KIND && kind.latest.size() <= MOST_OF_A_KIND / 2) {
        const std::vector<ReportMark> marks = std::move(kind.marks);
        kind = Kind{{}, {}, kind.sameSeconds * 2};
        for (const ReportMark& mark : marks) {
            Merge(kind, mark);
        }
    }
    if (kind.marks.size() > MOST_OF_A_KIND) {
        kind.latest.erase(text);
        kind.marks.pop_back();
        ++leftOut_;
    }
}

void ReportMarks::Merge(Kind& kind, const ReportMark& mark)
{
    const auto known = kind.latest.find(mark.text);
    if (known != kind.latest.end()) {
        ReportMark& latest = kind.marks[known->second];
        if (mark.seconds - latest.seconds <= kind.sameSeconds) {
            latest.count += mark.count;
            return;
        }
    }
    kind.latest[mark.text] = kind.marks.size();
    kind.marks.push_back(mark);
}

std::vector<ReportMark> ReportMarks::All() const
{
    std::vector<ReportMark> all;
    for (const auto& [name, kind] : kinds_) {
        all.insert(all.end(), kind.marks.begin(), kind.marks.end());
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const ReportMark& left, const ReportMark& right) { return left.seconds < right.seconds; });
    return all;
}

}  // namespace VeltraTool
