// SPDX-License-Identifier: Apache-2.0
// Looks at the service for the verb `top`, once a second.
#ifndef VELTRA_TOOLS_TOP_SOURCE_H
#define VELTRA_TOOLS_TOP_SOURCE_H

#include <cstdint>
#include <memory>
#include <mutex>

#include "service_look.h"
#include "top_layout.h"

namespace VeltraTool {

// State that a thread keeps up to date, so that the terminal answers keys while the service does not answer.
class TopSource : public std::enable_shared_from_this<TopSource> {
public:
    explicit TopSource(const TAVO::sptr<TAVO::Veltra::IVeltraControl>& control) : look_(control, false) {}

    // Takes the first look. ToolError when the service does not answer.
    void Open();
    // Starts the thread, which runs until the process ends.
    void Run();

    // Thread-safe, as is Version, which changes with each look.
    TopState State();
    uint64_t Version();

private:
    void Look();

    ServiceLook look_;  // of Open, then of the thread
    std::mutex mutex_;
    TopState state_;  // under mutex_, as is version_
    uint64_t version_ = 0;
};

}  // namespace VeltraTool

#endif
