// SPDX-License-Identifier: Apache-2.0
// The verb `call`: one operation of the facade, its result with name and remedy, and what its callback receives in the
// seconds after it. The library starts the service if it does not run, as it does for a game.
#include <algorithm>
#include <chrono>
#include <memory>

#include "call_answers.h"
#include "call_operations.h"
#include "reach.h"
#include "verbs.h"

namespace VeltraTool {

using namespace TAVO::Veltra;

namespace {

using Clock = std::chrono::steady_clock;

constexpr double STREAM_SECONDS = 2;
constexpr double ANSWER_SECONDS = 5;
constexpr double MOST_SECONDS = 86400;
constexpr double ANSWER_LIMIT_MILLISECONDS = 8000;  // after which a call has timed out

struct CallOptions {
    std::string operation;
    std::vector<std::string> arguments;
    double seconds = -1;  // below 0: as the operation needs
};

void ListOperations(const Tool& tool)
{
    Json::Value list = Json::arrayValue;
    for (const CallOperation& operation : CallOperations()) {
        Json::Value entry;
        entry["operation"] = operation.name;
        entry["what"] = operation.what;
        std::string line = operation.name;
        for (const std::string& parameter : operation.parameters) {
            line += " " + parameter + "=";
            entry["parameters"].append(parameter);
        }
        list.append(entry);
        if (!tool.isJson) {
            PrintLine(line + "\n    " + operation.what);
        }
    }
    if (tool.isJson) {
        Json::Value document;
        document["operations"] = list;
        PrintJson(document);
    }
}

const CallOperation& FindOperation(const std::string& name)
{
    const std::vector<CallOperation>& operations = CallOperations();
    const auto found = std::find_if(operations.begin(), operations.end(),
                                    [&name](const CallOperation& each) { return name == each.name; });
    if (found == operations.end()) {
        throw ToolError(EXIT_USAGE, "there is no operation '" + Escaped(name) + "'",
                        "\"veltra call\" without arguments lists them");
    }
    return *found;
}

// For an operation without a code: its empty answer looks the same with and without a service. `isLate`: an answer that
// was waited for has not come in time.
void RequireService(bool isLate)
{
    const TAVO::sptr<TAVO::ISystemAbilityManager> manager = ReachManager();
    if (FindAbility(manager, SERVICE_ABILITY) == nullptr) {
        throw ToolError(EXIT_UNREACHABLE, "the service does not run and could not be started",
                        "run \"veltra doctor\", which finds out why");
    }
    if (isLate) {
        FailSilent(manager);
    }
}

std::string OneLine(const Json::Value& record)
{
    std::string line;
    for (const std::string& key : record.getMemberNames()) {
        line += (line.empty() ? "" : " ") + key + "=" + Escaped(ShownValue(record[key]));
    }
    return line;
}

// One call: its arguments, its result, and the answers of its callback. The callback runs on a platform thread and only
// queues records; all of this class runs on main's thread.
class CallRun {
public:
    CallRun(Tool& tool, const CallOptions& options)
        : tool_(tool),
          operation_(FindOperation(options.operation)),
          arguments_(operation_.name, operation_.parameters, options.arguments),
          seconds_(options.seconds)
    {
    }

    void Run()
    {
        const Clock::time_point start = Clock::now();
        result_ = operation_.call(client_, arguments_);
        milliseconds_ = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        const bool isLate = milliseconds_ >= ANSWER_LIMIT_MILLISECONDS;
        if (!result_.code) {
            RequireService(isLate && result_.answer.isObject() && result_.answer.empty());
        }
        const int32_t code = result_.code.value_or(RESULT_OK);
        tool_.exitCode = ExitCodeOf(code);
        // The library has one code for "no service" and "no answer"; the time distinguishes the two.
        if (code == RESULT_NO_SERVICE && isLate) {
            tool_.exitCode = EXIT_TIMED_OUT;
        }
        // Before the answers of the callback, which may take seconds.
        if (!tool_.isJson) {
            PrintResult();
        }
        if (code == RESULT_OK && operation_.answers != Answers::NONE) {
            CollectAnswers();
        }
        if (tool_.isJson) {
            PrintJson(Document());
        }
    }

private:
    void PrintResult() const
    {
        const std::string time = ", " + Shown(milliseconds_, 2) + " ms";
        const std::string name = operation_.name;
        if (!result_.code) {
            PrintLine(name + (result_.answer.isNull() ? ": sent, one-way" : ": answered") + time);
        } else {
            const bool isDone = *result_.code == RESULT_OK;
            PrintLine(name + ": " + Toned(MeaningOf(*result_.code), isDone ? Tone::GOOD : Tone::BAD) + " (" +
                      std::to_string(*result_.code) + ")" + time);
            if (const std::string remedy = RemedyOf(*result_.code); !remedy.empty()) {
                PrintLine("  to do: " + remedy);
            }
        }
        if (result_.answer.isObject()) {
            for (const std::string& key : result_.answer.getMemberNames()) {
                PrintLine("  " + Escaped(key) + " = " + Escaped(ShownValue(result_.answer[key])));
            }
        }
    }

    void CollectAnswers()
    {
        const bool isOne = operation_.answers == Answers::ONE;
        const double wait = seconds_ >= 0 ? seconds_ : isOne ? ANSWER_SECONDS : STREAM_SECONDS;
        const auto deadline =
            Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(wait));
        while (const std::optional<Json::Value> record = CallAnswers::Instance().Take(deadline)) {
            if (!tool_.isJson) {
                PrintLine("  " + OneLine(*record));
            }
            callbacks_.append(*record);
            if (isOne) {
                break;
            }
        }
        if (callbacks_.empty()) {
            tool_.exitCode = EXIT_TIMED_OUT;
            if (!tool_.isJson) {
                PrintLine("  nothing came to the callback within " + Shown(wait, 1) + " s");
            }
        }
        // Ends the subscription, so that the service does not keep one of an ended process for a moment.
        if (operation_.end != nullptr) {
            operation_.end(client_, arguments_);
        }
    }

    Json::Value Document() const
    {
        Json::Value document;
        document["operation"] = operation_.name;
        document["milliseconds"] = milliseconds_;
        if (result_.code) {
            const ResultText* const text = FindResultText(*result_.code);
            document["code"] = *result_.code;
            if (text != nullptr) {
                document["name"] = text->name;
                document["meaning"] = text->meaning;
                document["remedy"] = text->remedy;
            }
        }
        if (!result_.answer.isNull()) {
            document["answer"] = result_.answer;
        }
        if (operation_.answers != Answers::NONE) {
            document["callbacks"] = callbacks_;
        }
        return document;
    }

    Tool& tool_;
    const CallOperation& operation_;
    const CallArguments arguments_;
    const double seconds_;
    VeltraClient client_;
    CallResult result_;
    double milliseconds_ = 0;
    Json::Value callbacks_ = Json::arrayValue;
};

}  // namespace

void AddCall(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "call", "Call one operation of the service, as a game does");
    const auto options = std::make_shared<CallOptions>();
    verb->add_option("operation", options->operation, "Its name; without it all of them are listed");
    // A word in brackets would be split at its commas, so a JSON list is given by name.
    verb->add_option("arguments", options->arguments, "Its arguments, by name (text=hello) or by position");
    verb->add_option("--for", options->seconds, "How many seconds to print what comes to its callback")
        ->check(CLI::Range(0.0, MOST_SECONDS));
    for (const CallOperation& operation : CallOperations()) {
        tool.words[verb].push_back(operation.name);
    }
    verb->callback([options, &tool] {
        if (options->operation.empty()) {
            ListOperations(tool);
        } else {
            CallRun(tool, *options).Run();
        }
    });
}

}  // namespace VeltraTool
