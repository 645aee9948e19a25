// SPDX-License-Identifier: Apache-2.0
// The state of a running service as one document: its process, the device, games, subscribers, what is simulated.
#ifndef VELTRA_SERVICE_SERVICE_REPORT_H
#define VELTRA_SERVICE_SERVICE_REPORT_H

#include <json/value.h>

#include "veltra_service.h"

namespace TAVO::Veltra {

// docs/control.md describes the document. What is not known has no key.
Json::Value DescribeService(const ServiceView& view);

}  // namespace TAVO::Veltra

#endif
