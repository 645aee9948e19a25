// SPDX-License-Identifier: Apache-2.0
#include "exit_code.h"

#include <tavo/ipc_status.h>

namespace VeltraTool {

using namespace TAVO::Veltra;

ExitCode ExitCodeOf(int32_t result)
{
    // Codes of the service (docs/service.md), which the library passes on.
    constexpr int32_t NOT_SUPPORTED[] = {1010310102, 1010310103, 1010310107};
    for (const int32_t code : NOT_SUPPORTED) {
        if (result == code) {
            return EXIT_NOT_SUPPORTED;
        }
    }
    switch (result) {
        case RESULT_OK:
            return EXIT_DONE;
        // Some operations return the platform's status.
        case TAVO::IPC_TIMED_OUT:
            return EXIT_TIMED_OUT;
        case RESULT_NO_SERVICE:
        case RESULT_RENDER_NO_SERVICE:
        case TAVO::IPC_DEAD_OBJECT:
        case TAVO::IPC_BROKEN:
        case TAVO::IPC_UNAVAILABLE:
            return EXIT_UNREACHABLE;
        default:
            return EXIT_NO;
    }
}

std::string NameOfCode(int32_t result)
{
    const ResultText* const text = FindResultText(result);
    return text == nullptr ? std::to_string(result) : text->name;
}

std::string MeaningOf(int32_t result)
{
    const ResultText* const text = FindResultText(result);
    return text == nullptr ? "code " + std::to_string(result) + " of another service"
                           : std::string(text->name) + ": " + text->meaning;
}

std::string RemedyOf(int32_t result)
{
    const ResultText* const text = FindResultText(result);
    return text == nullptr ? "" : text->remedy;
}

}  // namespace VeltraTool
