// SPDX-License-Identifier: Apache-2.0
// The verb `replay`: makes the requests of a recording again, one process for each recorded one, and compares the
// result codes. Both sides of the comparison are the service's own records: the library gives games other codes than
// the service gives it, and none of some operations. Codes are compared for each operation of a game in its order,
// because a one-way request and the one behind it may be handled in either order.
#include "replay.h"

#include <algorithm>
#include <filesystem>
#include <memory>

#include "child_process.h"
#include "reach.h"
#include "record_stream.h"
#include "replay_plan.h"
#include "scenario_files.h"

namespace VeltraTool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double LEAST_SPEED = 0.01;
constexpr double MOST_SPEED = 1000;
constexpr std::chrono::milliseconds HEAD_START{200};  // for the games to read their recording
constexpr std::chrono::seconds RECORD_LIMIT{2};       // for the records behind the last request
constexpr size_t MOST_LISTED = 100;

struct ReplayOptions {
    std::string file;
    double speed = 1;
};

struct Game {
    int32_t recorded = 0;
    const std::vector<ReplayRequest>* requests = nullptr;
    std::unique_ptr<ChildProcess> process;
    std::map<std::string, std::vector<int32_t>> codes;  // by operation
};

class Replay : public RecordSink {
public:
    Replay(const ReplayOptions& options, const ReplayPlan& plan) : options_(options)
    {
        for (const auto& [process, requests] : plan.games) {
            games_.push_back({process, &requests, nullptr, {}});
            expected_ += requests.size();
        }
    }

    void OnRecord(const std::string&, const Json::Value& record) override
    {
        for (Game& game : games_) {
            // Calls of other games are in the records too, and are no part of the replay.
            if (game.process != nullptr && record["pid"] == game.process->Pid() && record["code"].isInt()) {
                game.codes[TextOf(record["op"])].push_back(record["code"].asInt());
                ++received_;
            }
        }
    }
    void OnLost(uint64_t count) override { lost_ += count; }

    // The games start here, when the service has begun to send records.
    bool IsEnough() override
    {
        if (!isStarted_) {
            Start();
        }
        // Wait with a limit of 0 only looks.
        isOver_ = std::all_of(games_.begin(), games_.end(), [](const Game& game) { return game.process->Wait({}); });
        const Clock::time_point now = Clock::now();
        // The records of the last requests arrive after the processes have ended.
        if (!isOver_) {
            limit_ = now + RECORD_LIMIT;
        }
        return isOver_ && (received_ >= expected_ || now >= limit_);
    }

    // Whether all games have made their requests.
    bool IsOver() const { return isOver_; }

    // Prints what differs; the exit code. ToolError if a game has not made all of its requests.
    int Report(const ReplayPlan& plan, Tool& tool)
    {
        for (const Game& game : games_) {
            if (const int status = game.process->Wait({}).value_or(0); status != 0) {
                throw ToolError(EXIT_NO,
                                "the replay of process " + std::to_string(game.recorded) + " ended with status " +
                                    std::to_string(status),
                                "replay a file that can be read several times, and not a pipe");
            }
        }
        Json::Value document;
        document["games"] = Json::UInt64(games_.size());
        document["requests"] = Json::UInt64(expected_);
        document["lost"] = Json::UInt64(lost_);
        document["skipped"] = Json::objectValue;
        for (const auto& [reason, count] : plan.skipped) {
            document["skipped"][reason] = Json::UInt64(count);
        }
        document["differences"] = Json::arrayValue;
        for (const Game& game : games_) {
            Compare(game, document["differences"]);
        }
        document["differenceCount"] = Json::UInt64(differences_);
        if (tool.isJson) {
            PrintJson(document);
        } else {
            Print(document);
        }
        // With lost records nothing is proved.
        return differences_ > 0 || lost_ > 0 ? EXIT_NO : EXIT_DONE;
    }

private:
    void Start()
    {
        isStarted_ = true;
        const int64_t begin =
            std::chrono::duration_cast<std::chrono::nanoseconds>((Clock::now() + HEAD_START).time_since_epoch())
                .count();
        for (Game& game : games_) {
            game.process = std::make_unique<ChildProcess>(
                std::vector<std::string>{ProgramFolder() + "/veltra", REPLAY_GAME_VERB,
                                         std::filesystem::absolute(options_.file), std::to_string(game.recorded),
                                         std::to_string(options_.speed), std::to_string(begin)},
                Environment{}, "/dev/null");
            if (game.process->Pid() == 0) {
                throw ToolError(EXIT_NO, "a process for the replay cannot be started", "raise the limit (ulimit -u)");
            }
        }
    }

    void Compare(const Game& game, Json::Value& list)
    {
        std::map<std::string, size_t> counts;
        for (const ReplayRequest& request : *game.requests) {
            const size_t index = counts[request.name]++;
            const auto codes = game.codes.find(request.name);
            const bool isMade = codes != game.codes.end() && index < codes->second.size();
            if ((isMade && codes->second[index] == request.code) || ++differences_ > MOST_LISTED) {
                continue;
            }
            Json::Value difference;
            difference["pid"] = game.recorded;
            difference["op"] = request.name;
            difference["number"] = Json::UInt64(index + 1);
            difference["recorded"] = request.code;
            if (isMade) {
                difference["now"] = codes->second[index];
            }
            list.append(difference);
        }
    }

    void Print(const Json::Value& document) const
    {
        for (const Json::Value& each : document["differences"]) {
            const std::string now =
                each.isMember("now") ? NameOfCode(each["now"].asInt()) : "it did not reach the service";
            PrintLine("process " + ShownValue(each["pid"]) + ": " + Escaped(each["op"].asString()) + " number " +
                      ShownValue(each["number"]) + ": recorded " + NameOfCode(each["recorded"].asInt()) + ", now " +
                      Toned(now, Tone::BAD));
        }
        if (differences_ > MOST_LISTED) {
            PrintLine("... and " + std::to_string(differences_ - MOST_LISTED) + " more");
        }
        for (const std::string& reason : document["skipped"].getMemberNames()) {
            PrintLine(ShownValue(document["skipped"][reason]) + " requests skipped: " + reason);
        }
        if (lost_ > 0) {
            PrintLine(Toned(std::to_string(lost_) + " records were lost: replay it slower", Tone::WARNING));
        }
        PrintLine(std::to_string(expected_) + " requests of " + std::to_string(games_.size()) + " processes: " +
                  (differences_ == 0 ? Toned("the same results", Tone::GOOD)
                                     : Toned(std::to_string(differences_) + " other results", Tone::BAD)));
    }

    const ReplayOptions& options_;
    std::vector<Game> games_;
    size_t expected_ = 0;
    size_t received_ = 0;
    size_t differences_ = 0;
    uint64_t lost_ = 0;
    bool isStarted_ = false;
    bool isOver_ = false;
    Clock::time_point limit_;
};

void Run(Tool& tool, const ReplayOptions& options)
{
    const ReplayPlan plan = PlanReplay(options.file);
    Replay replay(options, plan);
    Json::Value filter;
    filter["device"] = filter["pushes"] = false;
    FollowRecords(ReachControl(true), filter, 0, replay);
    if (!replay.IsOver()) {
        throw ToolError(EXIT_NO, "the replay was interrupted");
    }
    tool.exitCode = replay.Report(plan, tool);
}

}  // namespace

void AddReplay(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "replay", "Make the requests of a recording again, and compare the results");
    const auto options = std::make_shared<ReplayOptions>();
    verb->add_option("file", options->file, "What record wrote")->required();
    verb->add_option("--speed", options->speed, "1 is the recorded pace")->check(CLI::Range(LEAST_SPEED, MOST_SPEED));
    verb->callback([options, &tool] { Run(tool, *options); });
    AddReplayGame(app, tool);
}

}  // namespace VeltraTool
