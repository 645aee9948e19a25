// SPDX-License-Identifier: Apache-2.0
// A value over time in a scenario: points joined by straight lines, and noise that is the same for each seed.
#ifndef VELTRA_SERVICE_CURVE_H
#define VELTRA_SERVICE_CURVE_H

#include <cstdint>
#include <utility>
#include <vector>

#include "base/config_node.h"

namespace TAVO::Veltra {

class Curve {
public:
    static constexpr size_t MAX_POINTS = 1000;

    // A number, or {"points": [[seconds, value], ...], "repeat": bool, "noise": n}. Values lie in [least, most].
    static Curve Parse(const ConfigNode& node, double least, double most, uint64_t seed);

    // Before the first point its value, after the last one that one's, or all again from the first. The noise, up to n
    // to either side, changes once a second; the result stays in [least, most].
    double At(double seconds) const;

private:
    void AddPoint(const ConfigNode& item);
    double NoiseAt(double seconds) const;

    std::vector<std::pair<double, double>> points_;  // ascending times; never empty
    double least_ = 0;
    double most_ = 0;
    double noise_ = 0;
    bool repeats_ = false;
    uint64_t seed_ = 0;
};

}  // namespace TAVO::Veltra

#endif
