// SPDX-License-Identifier: Apache-2.0
// The verb `simulate check`: every mistake of a scenario file, each on a line that editors understand.
#include <memory>

#include "scenario/scenario.h"
#include "simulate.h"

namespace VeltraTool {

using TAVO::Veltra::ConfigMistake;

namespace {

std::string Line(const ScenarioFile& file, const ConfigMistake& mistake)
{
    std::string line = file.path;
    if (mistake.line > 0) {
        // As compilers print places, so that an editor can jump there.
        line += ":" + std::to_string(mistake.line) + ":" + std::to_string(mistake.column);
    }
    return line + ": " + mistake.text;
}

Json::Value Document(const ScenarioFile& file, const std::vector<ConfigMistake>& mistakes)
{
    Json::Value document;
    document["file"] = file.path;
    document["mistakes"] = Json::arrayValue;
    for (const ConfigMistake& mistake : mistakes) {
        Json::Value entry;
        if (mistake.line > 0) {
            entry["line"] = Json::UInt64(mistake.line);
            entry["column"] = Json::UInt64(mistake.column);
        }
        entry["text"] = mistake.text;
        document["mistakes"].append(entry);
    }
    return document;
}

}  // namespace

bool CheckScenario(const ScenarioFile& file, const std::string& text, const Tool& tool)
{
    // The code of the service itself, linked into the tool: both accept exactly the same files.
    const std::vector<ConfigMistake> mistakes = TAVO::Veltra::Scenario::Check(text);
    if (tool.isJson) {
        PrintJson(Document(file, mistakes));
        return mistakes.empty();
    }
    for (const ConfigMistake& mistake : mistakes) {
        PrintLine(Escaped(Line(file, mistake)));
    }
    if (!mistakes.empty()) {
        PrintLine(std::to_string(mistakes.size()) + (mistakes.size() == 1 ? " mistake" : " mistakes") +
                  "; the keys and their bounds are in docs/service.md");
    }
    return mistakes.empty();
}

void AddSimulateCheck(CLI::App& simulate, Tool& tool)
{
    CLI::App* const verb = AddVerb(simulate, "check", "Find every mistake of a scenario file; needs no service");
    const auto given = std::make_shared<std::string>();
    verb->add_option("file", *given, "A path, or the name of an installed scenario")->required();
    verb->callback([given, &tool] {
        const ScenarioFile file = FindScenario(*given);
        const bool isRight = CheckScenario(file, ReadScenario(file), tool);
        if (isRight && !tool.isJson) {
            PrintLine(Escaped(file.path) + ": " + Toned("no mistake", Tone::GOOD));
        }
        tool.exitCode = isRight ? EXIT_DONE : EXIT_NO;
    });
}

}  // namespace VeltraTool
