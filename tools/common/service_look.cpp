// SPDX-License-Identifier: Apache-2.0
// A reference to a service that has ended stays dead: the manager gives the new service a reference of its own. So a
// reference is kept as long as it answers, and fetched again by the next look after it failed.
#include "service_look.h"

#include "reach.h"

namespace VeltraTool {

using namespace TAVO;
using namespace TAVO::Veltra;

namespace {

Json::Value DescribeBy(const sptr<IVeltraControl>& control)
{
    std::string answer;
    const int32_t result = control->Describe(answer);
    return RequireAnswer(result, answer);
}

}  // namespace

Json::Value ServiceLook::Describe()
{
    if (control_ != nullptr) {
        try {
            return DescribeBy(control_);
        } catch (const ToolError& error) {
            control_ = nullptr;
            // A service that hangs is still the same one; only a dead one is looked for again.
            if (error.Code() != EXIT_UNREACHABLE) {
                throw;
            }
        }
    }
    control_ = ReachControl(isStarting_);
    try {
        return DescribeBy(control_);
    } catch (...) {
        control_ = nullptr;
        throw;
    }
}

std::string TroubleText(const ToolError& error)
{
    const char* const start = error.Code() == EXIT_UNREACHABLE ? "The service has ended, or cannot be reached: "
                              : error.Code() == EXIT_TIMED_OUT ? "The service does not answer: "
                                                               : "The service cannot be read: ";
    return start + std::string(error.what());
}

}  // namespace VeltraTool
