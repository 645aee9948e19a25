// SPDX-License-Identifier: Apache-2.0
// One screen of the verb `top`, from top to bottom: the service, the curves of the device, pushes, games, operations,
// and the keys. Games and operations share the lines that are left, and report how many of them do not fit. What comes
// from the service may have any type and any length: it is checked, escaped and cut here.
#include "top_layout.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace VeltraTool {

namespace {

constexpr size_t NUMBERS_WIDTH = 28;  // label and value of a curve
constexpr size_t BAR_WIDTH = 12;
constexpr size_t FEWEST_GAMES = 3;  // lines that games get if operations need the rest

struct Shape {
    const char* label;
    const char* unit;
    double low;  // of the bar
    double high;
};
constexpr std::array<Shape, TOP_CURVES> SHAPES{{{"temperature level", "", 0, 5},
                                                {"temperature", " C", 20, 100},
                                                {"GPU load", " %", 0, 100},
                                                {"CPU load", " %", 0, 100}}};

bool IsTrue(const Json::Value& value)
{
    return value.isBool() && value.asBool();
}

bool IsContinuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xc0) == 0x80;
}

// The first `width` characters.
std::string Cut(const std::string& text, size_t width)
{
    size_t end = 0;
    for (size_t characters = 0; end < text.size(); ++end) {
        // By characters, not bytes: a cut inside a character would show as garbage.
        if (!IsContinuation(text[end]) && characters++ == width) {
            break;
        }
    }
    return text.substr(0, end);
}

std::string Ascii(const std::string& text)
{
    std::string ascii;
    for (const char c : text) {
        if (!IsContinuation(c)) {
            ascii += static_cast<unsigned char>(c) < 0x80 ? c : '?';
        }
    }
    return ascii;
}

// `text` in a column; ASCII.
std::string Left(const std::string& text, size_t width)
{
    return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

std::string Right(const std::string& text, size_t width)
{
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string ShownNumber(const Json::Value& value, int decimals)
{
    return value.isNumeric() ? Shown(value.asDouble(), decimals) : "-";
}

std::string ShownRate(const TopState& state, const std::string& name)
{
    const std::optional<double> rate = state.Rate(name);
    return rate ? Shown(*rate, 1) : "-";
}

// 0 to `steps`, for the height of a value between the ends of its bar.
size_t StepOf(double value, const Shape& shape, size_t steps)
{
    const double share = std::clamp((value - shape.low) / (shape.high - shape.low), 0.0, 1.0);
    return static_cast<size_t>(std::lround(share * static_cast<double>(steps)));
}

std::string Sparkline(const std::deque<std::optional<double>>& curve, const Shape& shape, size_t width, bool isUtf8)
{
    static constexpr std::array BLOCKS{"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    static constexpr std::array SIGNS{"_", ".", "-", ":", "=", "+", "*", "#"};
    const size_t count = std::min(width, curve.size());
    std::string line;
    for (size_t i = curve.size() - count; i < curve.size(); ++i) {
        const size_t step = StepOf(curve[i].value_or(shape.low), shape, BLOCKS.size() - 1);
        line += !curve[i] ? " " : isUtf8 ? BLOCKS[step] : SIGNS[step];
    }
    return line;
}

TopLine CurveLine(const TopState& state, size_t index, size_t width, bool isUtf8)
{
    const Shape& shape = SHAPES[index];
    const auto& curve = state.Curve(index);
    const bool isKnown = !curve.empty() && curve.back().has_value();
    const double now = isKnown ? curve.back().value_or(0) : shape.low;
    const size_t filled = StepOf(now, shape, BAR_WIDTH);
    const std::string value = isKnown ? Shown(now, index == 0 ? 0 : 1) + shape.unit : "-";
    const std::string head = Left(Left(shape.label, 18) + Right(value, 9), NUMBERS_WIDTH) + "[" +
                             std::string(filled, '|') + std::string(BAR_WIDTH - filled, ' ') + "] ";
    const size_t left = width > head.size() ? width - head.size() : 0;
    const double share = (now - shape.low) / (shape.high - shape.low);
    return {head + Sparkline(curve, shape, left, isUtf8), share >= 0.8   ? Tone::BAD
                                                          : share >= 0.6 ? Tone::WARNING
                                                                         : Tone::PLAIN};
}

TopLine ServiceLine(const TopState& state)
{
    if (!state.Trouble().empty()) {
        return {Escaped(state.Trouble()), Tone::BAD};
    }
    const Json::Value& service = MemberOf(state.Report(), "service");
    const Json::Value& simulation = MemberOf(state.Report(), "simulation");
    const bool isActive = IsTrue(MemberOf(simulation, "active"));
    const std::string scenario = TextOf(MemberOf(simulation, "scenario"));
    const std::string text = "veltra_server " + TextOf(MemberOf(service, "version")) + ", process " +
                             ShownNumber(MemberOf(service, "pid"), 0) + ", up " +
                             ShownNumber(MemberOf(service, "uptimeSeconds"), 0) + " s, simulation " +
                             (isActive ? "on" : "off") + (scenario.empty() ? "" : ", scenario " + scenario);
    return {Escaped(text), isActive ? Tone::WARNING : Tone::PLAIN};
}

void AddPushes(const TopState& state, std::vector<TopLine>& lines)
{
    lines.push_back(
        {Left("PUSHES", 24) + Right("sent", 11) + Right("per s", 10) + Right("failed", 10) + Right("dropped", 10),
         Tone::PLAIN, true});
    const Json::Value& pushes = MemberOf(state.Report(), "pushes");
    for (const char* const kind : {"gameEvent", "gpu", "appPriorities", "resourceInfos"}) {
        const Json::Value& push = MemberOf(pushes, kind);
        const bool isBad = NumberOf(MemberOf(push, "failed")) > 0 || NumberOf(MemberOf(push, "dropped")) > 0;
        lines.push_back({Left(kind, 24) + Right(ShownNumber(MemberOf(push, "sent"), 0), 11) +
                             Right(ShownRate(state, kind), 10) + Right(ShownNumber(MemberOf(push, "failed"), 0), 10) +
                             Right(ShownNumber(MemberOf(push, "dropped"), 0), 10),
                         isBad ? Tone::WARNING : Tone::PLAIN});
    }
}

std::vector<TopLine> GameLines(const TopState& state)
{
    std::vector<TopLine> lines;
    const Json::Value& games = MemberOf(state.Report(), "games");
    // A service of another version may send something else.
    for (const Json::Value& game : games.isArray() ? games : Json::Value(Json::arrayValue)) {
        lines.push_back({Right(ShownNumber(MemberOf(game, "pid"), 0), 8) +
                         Right(ShownNumber(MemberOf(game, "state"), 0), 8) + "  " +
                         Escaped(TextOf(MemberOf(game, "program")) + "  " + TextOf(MemberOf(game, "bundle")))});
    }
    return lines;
}

// The busiest first.
std::vector<TopLine> CallLines(const TopState& state)
{
    std::vector<TopLine> lines;
    const Json::Value& calls = MemberOf(state.Report(), "calls");
    std::vector<std::string> names = calls.isObject() ? calls.getMemberNames() : std::vector<std::string>();
    std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return NumberOf(MemberOf(calls[a], "count")) > NumberOf(MemberOf(calls[b], "count"));
    });
    for (const std::string& name : names) {
        const Json::Value& call = calls[name];
        lines.push_back({Left(Cut(Ascii(Escaped(name)), 33), 34) + Right(ShownNumber(MemberOf(call, "count"), 0), 9) +
                         Right(ShownRate(state, name), 9) + Right(ShownNumber(MemberOf(call, "p50us"), 1), 9) +
                         Right(ShownNumber(MemberOf(call, "p99us"), 1), 9) +
                         Right(ShownNumber(MemberOf(call, "refused"), 0), 9)});
    }
    return lines;
}

// At most `room` lines of `list`, the last of which counts the rest if there is one.
void AddPart(const std::vector<TopLine>& list, size_t room, std::vector<TopLine>& lines)
{
    const size_t shown = list.size() <= room ? list.size() : room == 0 ? 0 : room - 1;
    lines.insert(lines.end(), list.begin(), list.begin() + static_cast<std::ptrdiff_t>(shown));
    if (shown < list.size() && room > 0) {
        lines.push_back({"... " + std::to_string(list.size() - shown) + " more"});
    }
}

}  // namespace

std::vector<TopLine> LayOut(const TopState& state, size_t width, size_t height, bool isUtf8)
{
    constexpr size_t HEADINGS = 3;  // of games and of operations, and the line of the keys
    std::vector<TopLine> lines{ServiceLine(state)};
    for (size_t i = 0; i < TOP_CURVES; ++i) {
        lines.push_back(CurveLine(state, i, width, isUtf8));
    }
    AddPushes(state, lines);
    const std::vector<TopLine> games = GameLines(state);
    const std::vector<TopLine> calls = CallLines(state);
    const size_t room = height > lines.size() + HEADINGS ? height - lines.size() - HEADINGS : 0;
    const size_t left = room > calls.size() ? room - calls.size() : 0;
    // Operations first, as their number is known (17); games get what is left, and at least FEWEST_GAMES lines.
    const size_t gameRoom = std::min({games.size(), room, std::max(FEWEST_GAMES, left)});
    lines.push_back({Right("GAME PID", 8) + Right("state", 8) + "  name", Tone::PLAIN, true});
    AddPart(games, gameRoom, lines);
    lines.push_back({Left("OPERATION", 34) + Right("calls", 9) + Right("per s", 9) + Right("p50 us", 9) +
                         Right("p99 us", 9) + Right("refused", 9),
                     Tone::PLAIN, true});
    AddPart(calls, room - gameRoom, lines);
    // Cut or filled, so that the last line is at the bottom.
    lines.resize(std::max<size_t>(height, 1) - 1);
    if (height > 0) {
        lines.push_back({"q ends this view", Tone::PLAIN});
    }
    for (TopLine& line : lines) {
        line.text = Cut(isUtf8 ? line.text : Ascii(line.text), width);
    }
    return lines;
}

}  // namespace VeltraTool
