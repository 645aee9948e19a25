// SPDX-License-Identifier: Apache-2.0
// Warnings that a peer or the system may cause any number of times.
#ifndef TAVO_BASE_WARN_LIMITED_H
#define TAVO_BASE_WARN_LIMITED_H

namespace TAVO {

// Logs a warning about what a peer or the system did, at most ten lines a second in the process.
void WarnLimited(const char* what, const char* detail) noexcept;

}  // namespace TAVO

#endif
