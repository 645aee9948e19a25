// SPDX-License-Identifier: Apache-2.0
// A row of the benchmark table: a figure beside the raw figure of the same run, and whether the bar holds.
#ifndef VELTRA_BENCH_ROW_H
#define VELTRA_BENCH_ROW_H

#include <functional>
#include <string>
#include <vector>

namespace Bench {

enum class Holds { AT_MOST, AT_LEAST };

struct Row {
    std::string name;
    std::string unit;
    double bar;  // what value / raw may be
    Holds holds = Holds::AT_MOST;
};

// Prints a row as one line of JSON. `value` and `raw` are the medians of the rounds; the median of the ratios round by
// round decides, since the machine's speed drifts from round to round. `p50` and `p99` are those of `singles`, the
// single measurements of the value, or of the rounds when `singles` is empty. `spread` is the distance between the
// 10th and the 90th percentile of the ratios, as a share of their median. `values` and `raws` have the same size, not 0.
void Print(const Row& row, const std::vector<double>& values, const std::vector<double>& raws,
           const std::vector<double>& singles = {});

// The same for a figure with a bar of its own, in `row.unit`: its raw figure is 1.
void Print(const Row& row, const std::vector<double>& values);

// Runs `value` and `raw` in turn, `rounds` times after one that is not counted, each returning a figure in `row.unit`,
// and prints the row. `value` may append its single measurements to `singles`.
void MeasureAndPrint(const Row& row, int rounds, const std::function<double()>& value,
                     const std::function<double()>& raw, std::vector<double>* singles = nullptr);

// Seconds on the steady clock.
double Now();

// Prints what is wrong and ends the program.
[[noreturn]] void GiveUp(const char* what);

}  // namespace Bench

#endif
