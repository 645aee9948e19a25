// SPDX-License-Identifier: Apache-2.0
// The verb `doctor`: runs the checks in order and prints each finding as soon as it is there, since some take seconds.
#include "doctor.h"

#include "verbs.h"

namespace VeltraTool {

namespace {

struct HealthName {
    const char* name;
    Tone tone;
};

const HealthName& NameOf(Health health)
{
    static constexpr HealthName NAMES[] = {
        {"ok", Tone::GOOD}, {"warning", Tone::WARNING}, {"failed", Tone::BAD}, {"skipped", Tone::PLAIN}};
    return NAMES[static_cast<size_t>(health)];
}

std::string Padded(const std::string& text, size_t width)
{
    return text + std::string(text.size() < width ? width - text.size() : 1, ' ');
}

void PrintFinding(const Check& check, const Finding& finding)
{
    constexpr size_t HEALTH_WIDTH = 9;
    constexpr size_t TITLE_WIDTH = 22;
    const HealthName& health = NameOf(finding.health);
    const std::string gap(HEALTH_WIDTH - std::string(health.name).size(), ' ');
    PrintLine(Toned(health.name, health.tone) + gap + Padded(check.title, TITLE_WIDTH) + Escaped(finding.what));
    if (!finding.fix.empty()) {
        PrintLine(std::string(HEALTH_WIDTH + TITLE_WIDTH, ' ') + "to do: " + Escaped(finding.fix));
    }
}

Json::Value JsonOf(const Check& check, const Finding& finding)
{
    Json::Value json;
    json["name"] = check.name;
    json["state"] = NameOf(finding.health).name;
    json["detail"] = finding.what;
    if (!finding.fix.empty()) {
        json["fix"] = finding.fix;
    }
    return json;
}

void Run(Tool& tool)
{
    Patient patient;
    Json::Value checks = Json::arrayValue;
    int counts[4] = {};
    for (const Check& check : DoctorChecks()) {
        const Finding finding = check.run(patient);
        ++counts[static_cast<size_t>(finding.health)];
        checks.append(JsonOf(check, finding));
        // As it is found: a check that hangs is then the one after the last line.
        if (!tool.isJson) {
            PrintFinding(check, finding);
        }
    }
    const int failed = counts[static_cast<size_t>(Health::FAILED)];
    // Warnings do not fail: a virtual machine without sensors is healthy.
    tool.exitCode = failed == 0 ? EXIT_DONE : EXIT_NO;
    if (tool.isJson) {
        Json::Value document;
        document["checks"] = checks;
        document["healthy"] = failed == 0;
        PrintJson(document);
        return;
    }
    std::string total;
    for (const Health health : {Health::OK, Health::WARNING, Health::FAILED, Health::SKIPPED}) {
        total += (total.empty() ? "" : ", ") + std::to_string(counts[static_cast<size_t>(health)]) + " " +
                 NameOf(health).name;
    }
    PrintLine(total);
}

}  // namespace

void AddDoctor(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "doctor", "Check every layer in order, and name the fix of what fails");
    verb->callback([&tool] { Run(tool); });
}

}  // namespace VeltraTool
