// SPDX-License-Identifier: Apache-2.0
// A row of the benchmark table: a figure beside the raw figure of the same run, and whether the bar holds.
#ifndef VELTRA_BENCH_ROW_H
#define VELTRA_BENCH_ROW_H

#include <functional>
#include <string>

namespace Bench {

enum class Holds { AT_MOST, AT_LEAST };

struct Row {
    std::string name;
    std::string unit;
    double bar;  // what value / raw may be
    Holds holds = Holds::AT_MOST;
};

// Runs `value` and `raw` in turn, `rounds` times after one that is not counted, each returning a figure in `row.unit`,
// and prints the row as one line of JSON: the medians, and the median of the ratios round by round. The ratio decides,
// since the machine's speed drifts from round to round.
void MeasureAndPrint(const Row& row, int rounds, const std::function<double()>& value,
                     const std::function<double()>& raw);

// Seconds on the steady clock.
double Now();

// Says what is wrong and ends the program.
[[noreturn]] void GiveUp(const char* what);

}  // namespace Bench

#endif
