// SPDX-License-Identifier: Apache-2.0
// Parse accepts a constant or a list of points with strictly ascending times, so a curve has at least one point and no
// two at the same time: the interpolation never divides by 0. At is a pure function of its time. The noise is a hash of
// the seed and the whole second, so that each run with the same seed has the same values, in whatever order and on
// whatever thread they are requested.
#include "scenario/curve.h"

#include <algorithm>
#include <cmath>

namespace TAVO::Veltra {

namespace {

constexpr double MOST_SECONDS = 1e9;

// Spreads the bits of a number, so that neighbours have nothing in common.
uint64_t Mixed(uint64_t bits)
{
    bits += 0x9e3779b97f4a7c15U;
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9U;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebU;
    return bits ^ (bits >> 31);
}

}  // namespace

Curve Curve::Parse(const ConfigNode& node, double least, double most, uint64_t seed)
{
    Curve curve;
    curve.least_ = least;
    curve.most_ = most;
    curve.seed_ = seed;
    if (node.IsNumber()) {
        curve.points_.emplace_back(0, node.Number(least, most));
        return curve;
    }
    node.ExpectKeys({"points", "repeat", "noise"});
    const ConfigNode points = node.Member("points");
    const std::vector<ConfigNode> items = points.Items(MAX_POINTS);
    if (items.empty()) {
        points.Fail("has no point");
    }
    for (const ConfigNode& item : items) {
        item.Try([&] { curve.AddPoint(item); });
    }
    node.Try([&] { curve.noise_ = node.NumberOr("noise", 0, 0, most - least); });
    node.Try([&] { curve.repeats_ = node.Has("repeat") && node.Member("repeat").Flag(); });
    return curve;
}

void Curve::AddPoint(const ConfigNode& item)
{
    const std::vector<ConfigNode> pair = item.Items(2);
    if (pair.size() != 2) {
        item.Fail("is not [seconds, value]");
    }
    const double time = pair[0].Number(0, MOST_SECONDS);
    if (!points_.empty() && time <= points_.back().first) {
        item.Fail("is not later than the point before");
    }
    points_.emplace_back(time, pair[1].Number(least_, most_));
}

double Curve::At(double seconds) const
{
    double time = seconds;
    const double first = points_.front().first;
    const double last = points_.back().first;
    if (repeats_ && time > last && last > first) {
        // The last point is where the first begins again, so it is never shown itself.
        time = first + std::fmod(time - first, last - first);
    }
    // The first point after `time`.
    const auto next = std::upper_bound(points_.begin(), points_.end(), time,
                                       [](double value, const auto& point) { return value < point.first; });
    double value = points_.back().second;
    if (next == points_.begin()) {
        value = next->second;
    } else if (next != points_.end()) {
        const auto before = std::prev(next);
        const double share = (time - before->first) / (next->first - before->first);
        value = before->second + share * (next->second - before->second);
    }
    return std::clamp(value + NoiseAt(seconds), least_, most_);
}

double Curve::NoiseAt(double seconds) const
{
    const uint64_t bits = Mixed(seed_ ^ Mixed(static_cast<uint64_t>(std::max(seconds, 0.0))));
    return noise_ * (2.0 * static_cast<double>(bits >> 11) / static_cast<double>(uint64_t{1} << 53) - 1.0);
}

}  // namespace TAVO::Veltra
