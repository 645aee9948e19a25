// SPDX-License-Identifier: Apache-2.0
// The library's log lines: fixed type, domain and tag, and the fixed prefix with operation and line.
#ifndef VELTRA_UTILS_VELTRA_LOG_H
#define VELTRA_UTILS_VELTRA_LOG_H

#include <cstdint>

#include "tavo/scrivo_print.h"

namespace TAVO::Veltra {

constexpr int LOG_TYPE = 3;
constexpr uint32_t LOG_DOMAIN = 0xD00470A;
constexpr const char* LOG_TAG = "VeltraPerf";

// The levels of the platform's log.
constexpr int LOG_LEVEL_DEBUG = 3;
constexpr int LOG_LEVEL_INFO = 4;
constexpr int LOG_LEVEL_WARN = 5;
constexpr int LOG_LEVEL_ERROR = 6;

}  // namespace TAVO::Veltra

// An empty text, the operation, the source line.
#define VELTRA_LOG_PREFIX "[%{public}s(%{public}s:%{public}d)]"

// Deliberate: log collectors look for the exact texts, so that prefix and text stay one format string.
// Not for use in lambdas, whose __func__ is not the operation.
#define VELTRA_LOG(level, text, ...)                                                                          \
    ::TAVO::ScrivoPrint(::TAVO::Veltra::LOG_TYPE, level, ::TAVO::Veltra::LOG_DOMAIN, ::TAVO::Veltra::LOG_TAG, \
                        VELTRA_LOG_PREFIX text, "", __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)
#define VELTRA_LOGD(text, ...) VELTRA_LOG(::TAVO::Veltra::LOG_LEVEL_DEBUG, text __VA_OPT__(, ) __VA_ARGS__)
#define VELTRA_LOGI(text, ...) VELTRA_LOG(::TAVO::Veltra::LOG_LEVEL_INFO, text __VA_OPT__(, ) __VA_ARGS__)
#define VELTRA_LOGW(text, ...) VELTRA_LOG(::TAVO::Veltra::LOG_LEVEL_WARN, text __VA_OPT__(, ) __VA_ARGS__)
#define VELTRA_LOGE(text, ...) VELTRA_LOG(::TAVO::Veltra::LOG_LEVEL_ERROR, text __VA_OPT__(, ) __VA_ARGS__)

#endif
