// SPDX-License-Identifier: Apache-2.0
// The log of the service process. Lines hold numbers and names of our own only: texts of clients stay out of them.
#ifndef VELTRA_SERVICE_LOG_H
#define VELTRA_SERVICE_LOG_H

#include "utils/veltra_log.h"

#define VELTRA_SERVICE_LOG(level, ...) \
    ::TAVO::ScrivoPrint(::TAVO::Veltra::LOG_TYPE, level, ::TAVO::Veltra::LOG_DOMAIN, "VeltraServer", __VA_ARGS__)
#define VELTRA_SERVICE_LOGD(...) VELTRA_SERVICE_LOG(::TAVO::SCRIVO_DEBUG, __VA_ARGS__)
#define VELTRA_SERVICE_LOGI(...) VELTRA_SERVICE_LOG(::TAVO::SCRIVO_INFO, __VA_ARGS__)
#define VELTRA_SERVICE_LOGE(...) VELTRA_SERVICE_LOG(::TAVO::SCRIVO_ERROR, __VA_ARGS__)

#endif
