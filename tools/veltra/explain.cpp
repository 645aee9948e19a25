// SPDX-License-Identifier: Apache-2.0
// The verb `explain`: why the temperature level is what it is, in the words of the service.
#include <memory>
#include <sstream>

#include "reach.h"
#include "verbs.h"

namespace VeltraTool {

void AddExplain(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "explain", "Why the device state is what it is: every sensor, and what counts");
    const auto isStarting = std::make_shared<bool>(false);
    verb->add_flag("--start", *isStarting, "Start the service if it does not run");
    verb->callback([isStarting, &tool] {
        std::string answer;
        const int32_t result = ReachControl(*isStarting)->Explain(answer);
        const Json::Value document = RequireAnswer(result, answer);
        if (tool.isJson) {
            PrintJson(document);
            return;
        }
        std::istringstream text(TextOf(document["text"]));
        for (std::string line; std::getline(text, line);) {
            PrintLine(Escaped(line));
        }
    });
}

}  // namespace VeltraTool
