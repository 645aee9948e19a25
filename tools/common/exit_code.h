// SPDX-License-Identifier: Apache-2.0
// How the tool ends, and how a verb gives up.
#ifndef VELTRA_TOOLS_EXIT_CODE_H
#define VELTRA_TOOLS_EXIT_CODE_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "veltra_result_text.h"

namespace VeltraTool {

// Stable: scripts depend on the numbers.
enum ExitCode : int {
    EXIT_DONE = 0,
    EXIT_NO = 1,             // the answer is no, or the operation failed
    EXIT_USAGE = 2,          // the command line is wrong
    EXIT_UNREACHABLE = 3,    // no manager or no service
    EXIT_TIMED_OUT = 4,      // no answer in time
    EXIT_NOT_SUPPORTED = 5,  // this machine or this service does not have it
};

// Ends a verb; main prints it. `fix` may be empty.
class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& what, std::string fix = "")
        : std::runtime_error(what), code_(code), fix_(std::move(fix))
    {
    }
    ExitCode Code() const { return code_; }
    const std::string& Fix() const { return fix_; }

private:
    const ExitCode code_;
    const std::string fix_;
};

// How a verb ends whose operation had this result code.
ExitCode ExitCodeOf(int32_t result);
// "RESULT_OK", or the number of a code that has no name here.
std::string NameOfCode(int32_t result);
// "NAME: meaning" of a code, or its number.
std::string MeaningOf(int32_t result);
std::string RemedyOf(int32_t result);

}  // namespace VeltraTool

#endif
