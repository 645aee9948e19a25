// SPDX-License-Identifier: Apache-2.0
// Takes percentiles and prints them.
#include "row.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace Bench {
namespace {

double Percentile(std::vector<double> figures, double share)
{
    const auto index = static_cast<std::ptrdiff_t>(std::lround(share * static_cast<double>(figures.size() - 1)));
    std::nth_element(figures.begin(), figures.begin() + index, figures.end());
    return figures[static_cast<size_t>(index)];
}

double Median(const std::vector<double>& figures)
{
    return Percentile(figures, 0.5);
}

}  // namespace

void Print(const Row& row, const std::vector<double>& values, const std::vector<double>& raws,
           const std::vector<double>& singles)
{
    std::vector<double> ratios;
    for (size_t i = 0; i < values.size(); ++i) {
        ratios.push_back(values[i] / raws[i]);
    }
    const std::vector<double>& measured = singles.empty() ? values : singles;
    const double ratio = Median(ratios);
    const double spread = ratio == 0 ? 0 : (Percentile(ratios, 0.9) - Percentile(ratios, 0.1)) / ratio;
    const bool isHeld = row.holds == Holds::AT_MOST ? ratio <= row.bar : ratio >= row.bar;
    std::printf(R"({"name": "%s", "value": %.3f, "unit": "%s", "raw": %.3f, "ratio": %.3f, "bar": %.2f, "holds": %s, )"
                R"("p50": %.3f, "p99": %.3f, "spread": %.3f})"
                "\n",
                row.name.c_str(), Median(values), row.unit.c_str(), Median(raws), ratio, row.bar,
                isHeld ? "true" : "false", Median(measured), Percentile(measured, 0.99), spread);
    std::fflush(stdout);
}

void Print(const Row& row, const std::vector<double>& values)
{
    Print(row, values, std::vector<double>(values.size(), 1));
}

void MeasureAndPrint(const Row& row, int rounds, const std::function<double()>& value,
                     const std::function<double()>& raw, std::vector<double>* singles)
{
    raw();
    value();
    if (singles != nullptr) {
        singles->clear();
    }
    std::vector<double> values;
    std::vector<double> raws;
    for (int round = 0; round < rounds; ++round) {
        raws.push_back(raw());
        values.push_back(value());
    }
    Print(row, values, raws, singles != nullptr ? *singles : std::vector<double>());
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
