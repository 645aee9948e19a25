// SPDX-License-Identifier: Apache-2.0
// The verb `record`: what the service does, as JSON Lines in a file. Each line is written by itself and whole, so that
// a recorder that is killed leaves a file that can be read. The first line says where and when; records that were lost
// leave a line with their number.
#include <sys/utsname.h>
#include <unistd.h>

#include <ctime>
#include <memory>

#include "line_file.h"
#include "reach.h"
#include "record_stream.h"
#include "recorded_scenario.h"
#include "recording.h"
#include "redactor.h"
#include "verbs.h"

namespace VeltraTool {

namespace {

using Clock = std::chrono::steady_clock;

struct RecordOptions {
    std::string file;
    std::string scenario;  // empty: none is made
    double seconds = 0;
    bool isRedacting = false;
    bool isStarting = false;
};

std::string TimeStamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

// `isRedacting`: without the names of games that run already.
Json::Value Header(const TAVO::sptr<TAVO::Veltra::IVeltraControl>& control, bool isRedacting)
{
    std::string answer;
    const int32_t result = control->Describe(answer);
    const Json::Value state = RequireAnswer(result, answer);
    Json::Value header;
    header["schema"] = SCHEMA;
    header["type"] = "header";
    header["service"] = TextOf(state["service"]["version"]);
    header["simulated"] = state["simulation"]["active"].isBool() && state["simulation"]["active"].asBool();
    header["startedAt"] = TimeStamp();
    utsname system{};
    if (::uname(&system) == 0) {  // without the host's name: a recording may be passed on
        header["machine"] = std::string(system.sysname) + " " + system.release + " " + system.machine;
    }
    if (!isRedacting) {
        AddGames(state["games"], header);  // the last key: it gets what is left of the line
    }
    return header;
}

class Recorder : public RecordSink {
public:
    Recorder(const LineFile& file, bool isRedacting) : file_(file), isRedacting_(isRedacting) {}

    void OnRecord(const std::string& line, const Json::Value& record) override
    {
        ++records_;
        if (!isRedacting_) {
            file_.Write(line);
            return;
        }
        Json::Value redacted = record;
        // The redactor lives as long as the recording: equal texts get equal tokens in the whole file.
        redactor_.Redact(redacted);
        file_.Write(JsonText(redacted));
    }

    void OnLost(uint64_t count) override
    {
        lost_ += count;
        Json::Value dropped;
        dropped["type"] = "dropped";
        dropped["t"] = SecondsNow();
        dropped["count"] = Json::UInt64(count);
        file_.Write(JsonText(dropped));
    }

    bool IsEnough() override
    {
        const Clock::time_point now = Clock::now();
        // IsEnough is called at least ten times a second, so it also serves the progress line.
        if (isTerminal_ && now >= nextProgress_) {
            std::fprintf(stderr, "\r%s", Summary().c_str());
            nextProgress_ = now + std::chrono::seconds(1);
        }
        return false;
    }

    void EndProgress() const
    {
        if (isTerminal_) {
            std::fprintf(stderr, "\r%s\n", Summary().c_str());
        }
    }

private:
    std::string Summary() const
    {
        const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        return std::to_string(records_) + " records in " + Shown(seconds, 0) + " s, " + std::to_string(lost_) + " lost";
    }

    const LineFile& file_;
    const bool isRedacting_;
    const bool isTerminal_ = ::isatty(STDERR_FILENO) == 1;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point nextProgress_ = start_;
    Redactor redactor_;
    uint64_t records_ = 0;
    uint64_t lost_ = 0;
};

void MakeScenario(const RecordOptions& options)
{
    if (!options.scenario.empty()) {
        WriteRecordedScenario(options.file, options.scenario);
    }
}

void Run(const RecordOptions& options)
{
    if (options.file == "-" && !options.scenario.empty()) {
        throw ToolError(EXIT_USAGE, "--as-scenario needs a recording in a file", "name one instead of -");
    }
    if (!options.scenario.empty()) {
        RequireOtherFile(options.file, options.scenario);
    }
    const auto control = ReachControl(options.isStarting);
    // Before the file is replaced: without a service an earlier recording stays.
    const Json::Value header = Header(control, options.isRedacting);
    const LineFile file(options.file);
    file.Write(JsonText(header));
    Recorder recorder(file, options.isRedacting);
    try {
        FollowRecords(control, Json::objectValue, options.seconds, recorder);
    } catch (const ToolError& error) {
        recorder.EndProgress();
        // The service has ended, and the recording is whole until then.
        if (error.Code() == EXIT_UNREACHABLE) {
            MakeScenario(options);
        }
        throw;
    }
    recorder.EndProgress();
    MakeScenario(options);
}

}  // namespace

void AddRecord(CLI::App& app, Tool&)
{
    CLI::App* const verb = AddVerb(app, "record", "Write what the service does to a file, as JSON Lines");
    const auto options = std::make_shared<RecordOptions>();
    verb->add_option("file", options->file, "The file, which is replaced; - is standard output")->required();
    verb->add_option("--for", options->seconds, "End after so many seconds")
        ->check(CLI::Range(0.0, MOST_STREAM_SECONDS));
    verb->add_option("--as-scenario", options->scenario, "Make a scenario of the recording, too, at its end");
    verb->add_flag("--redact", options->isRedacting, "Replace each text by a token, equal texts by equal tokens");
    verb->add_flag("--start", options->isStarting, "Start the service if it does not run");
    verb->callback([options] { Run(*options); });
}

}  // namespace VeltraTool
