// SPDX-License-Identifier: Apache-2.0
// What the verb `top` shows, as lines of text: no terminal, no service, no threads.
#ifndef VELTRA_TOOLS_TOP_LAYOUT_H
#define VELTRA_TOOLS_TOP_LAYOUT_H

#include <json/value.h>

#include <array>
#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "output.h"

namespace VeltraTool {

constexpr size_t TOP_CURVES = 4;

// What is known about the service, from one look to the next.
class TopState {
public:
    using Clock = std::chrono::steady_clock;

    // `report` is the state document of the service, unchecked.
    void SetReport(const Json::Value& report, Clock::time_point now);
    // No state could be read. Keeps the curves, which get a gap, and nothing else.
    void SetTrouble(const std::string& trouble);

    const std::string& Trouble() const { return trouble_; }
    // An object, empty if there is none.
    const Json::Value& Report() const { return report_; }
    const std::deque<std::optional<double>>& Curve(size_t index) const { return curves_[index]; }
    // Events per second since the report before; empty without one. `name` is that of a call, or of a push kind.
    std::optional<double> Rate(const std::string& name) const;

private:
    void AddSamples();

    Json::Value report_{Json::objectValue};
    std::string trouble_;
    std::array<std::deque<std::optional<double>>, TOP_CURVES> curves_;  // the latest value at the end
    std::map<std::string, double> counts_;
    std::map<std::string, double> rates_;
    std::optional<Clock::time_point> time_;  // of the last report; empty: it belongs to no running service
    double process_ = 0;
};

struct TopLine {
    std::string text;  // escaped, at most `width` characters
    Tone tone = Tone::PLAIN;
    bool isHeading = false;
};

// At most `height` lines; the last one is at the bottom. Without `isUtf8` all text is ASCII.
std::vector<TopLine> LayOut(const TopState& state, size_t width, size_t height, bool isUtf8);

}  // namespace VeltraTool

#endif
