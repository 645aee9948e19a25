// SPDX-License-Identifier: Apache-2.0
// Looks at the service for the verb `top`, once a second.
#ifndef VELTRA_TOOLS_TOP_SOURCE_H
#define VELTRA_TOOLS_TOP_SOURCE_H

#include <cstdint>
#include <memory>
#include <mutex>

#include "control/iveltra_control.h"
#include "top_layout.h"

namespace VeltraTool {

// State that a thread keeps up to date, so that the terminal answers keys while the service does not answer.
class TopSource : public std::enable_shared_from_this<TopSource> {
public:
    explicit TopSource(const TAVO::sptr<TAVO::Veltra::IVeltraControl>& control) : control_(control) {}

    // Begins to watch and takes the first look. ToolError when the service refuses.
    void Open();
    // Starts the thread, which runs until the process ends.
    void Run();

    // Thread-safe, as is Version, which changes with each look.
    TopState State();
    uint64_t Version();

private:
    void Watch();
    Json::Value Describe();
    Json::Value DescribeAnew();
    void Look();

    TAVO::sptr<TAVO::Veltra::IVeltraControl> control_;  // null: to be found again; used by one thread at a time
    std::mutex mutex_;
    TopState state_;  // under mutex_, as is version_
    uint64_t version_ = 0;
};

}  // namespace VeltraTool

#endif
