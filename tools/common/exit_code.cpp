// SPDX-License-Identifier: Apache-2.0
#include "exit_code.h"

#include <tavo/ipc_status.h>

#include "service_result.h"

namespace VeltraTool {

using namespace TAVO::Veltra;

ExitCode ExitCodeOf(int32_t result)
{
    switch (result) {
        case RESULT_OK:
            return EXIT_DONE;
        // The library passes on the codes of the service.
        case SERVICE_NOT_SUPPORTED:
        case SERVICE_NO_SENSOR:
        case SERVICE_NO_GPU_COUNTERS:
            return EXIT_NOT_SUPPORTED;
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
