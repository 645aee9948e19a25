// SPDX-License-Identifier: Apache-2.0
// A peer that breaks the protocol without end must not fill a disk: at most ten lines a second for the whole process.
// Lock-free, since it is called under locks and in forked children.
#include "base/warn_limited.h"

#include <atomic>
#include <chrono>
#include <cstdint>

#include "tavo/scrivo_print.h"

namespace TAVO {
namespace {

constexpr uint32_t LOG_DOMAIN = 0xD00470C;
constexpr int LOG_TYPE = 3;
constexpr uint64_t LINES_PER_SECOND = 10;

}  // namespace

void WarnLimited(const char* what, const char* detail) noexcept
{
    static std::atomic<uint64_t> window{0};  // second since the start of the clock, times 256, plus lines in it
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const uint64_t second = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
    uint64_t seen = window.load(std::memory_order_relaxed);
    for (;;) {
        const uint64_t lines = seen >> 8 == second ? seen & 255 : 0;
        if (lines >= LINES_PER_SECOND) {
            return;
        }
        if (window.compare_exchange_weak(seen, second << 8 | (lines + 1))) {
            break;
        }
    }
    ScrivoPrint(LOG_TYPE, SCRIVO_WARN, LOG_DOMAIN, "Tavo", "%{public}s: %{public}s", what, detail);
}

}  // namespace TAVO
