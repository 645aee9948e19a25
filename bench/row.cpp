// SPDX-License-Identifier: Apache-2.0
// Takes medians and prints them.
#include "row.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace Bench {
namespace {

double Median(std::vector<double> figures)
{
    const auto middle = figures.begin() + static_cast<std::ptrdiff_t>(figures.size() / 2);
    std::nth_element(figures.begin(), middle, figures.end());
    return *middle;
}

}  // namespace

void MeasureAndPrint(const Row& row, int rounds, const std::function<double()>& value,
                     const std::function<double()>& raw)
{
    raw();
    value();
    std::vector<double> values;
    std::vector<double> raws;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        raws.push_back(raw());
        values.push_back(value());
        ratios.push_back(values.back() / raws.back());
    }
    const double ratio = Median(ratios);
    const bool isHeld = row.holds == Holds::AT_MOST ? ratio <= row.bar : ratio >= row.bar;
    std::printf(R"({"name": "%s", "value": %.3f, "unit": "%s", "raw": %.3f, "ratio": %.3f, "bar": %.2f, "holds": %s})"
                "\n",
                row.name.c_str(), Median(values), row.unit.c_str(), Median(raws), ratio, row.bar,
                isHeld ? "true" : "false");
    std::fflush(stdout);
}

void GiveUp(const char* what)
{
    std::fprintf(stderr, "bench: %s\n", what);
    std::exit(1);
}

double Now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace Bench
