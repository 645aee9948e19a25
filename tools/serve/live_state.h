// SPDX-License-Identifier: Apache-2.0
// What the live page receives, as documents of JSON.
#ifndef VELTRA_SERVE_LIVE_STATE_H
#define VELTRA_SERVE_LIVE_STATE_H

#include <mutex>
#include <string>

#include "service_feed.h"

namespace VeltraServe {

// What does not change while the server runs: values that can be simulated with their ranges, scenarios, kinds of
// faults, whether the page may write.
std::string LiveSetup(bool isReadOnly);

// Any thread. Writes each look once, however many pages are open.
class LiveState {
public:
    // The state document of the service with "t", the time of the look, and at most MAX_GAMES games; {"t", "trouble"}
    // if there is none.
    std::string TextOf(const SharedLook& look);

private:
    static constexpr unsigned MAX_GAMES = 100;
    static std::string Write(const Look& look);

    std::mutex mutex_;
    uint64_t number_ = 0;  // of the look that was written last; under mutex_, as is the text
    std::string text_;
};

}  // namespace VeltraServe

#endif
