// SPDX-License-Identifier: Apache-2.0
// The service's document about the device, as a snapshot.
#ifndef VELTRA_SESSION_DEVICE_DOCUMENT_H
#define VELTRA_SESSION_DEVICE_DOCUMENT_H

#include <optional>
#include <string>

#include "veltra_session.h"

namespace TAVO::Veltra {

struct DeviceDocument {
    DeviceSnapshot snapshot;  // `number` and `readAt` are left to the caller
    DeviceDetails details;
};

// Nothing when the text is not a JSON object, has no usable "tempLevel" or is longer than 1 MiB. A value of another
// type than expected is absent. Throws std::bad_alloc only.
std::optional<DeviceDocument> ParseDeviceDocument(std::string text);

// `text` as one that is valid until the process ends, the same one for equal texts. At most 1024 texts of at most 256
// bytes are kept, since they come from another process; "(more)" replaces any other. Any thread.
const char* KeptText(const std::string& text);

}  // namespace TAVO::Veltra

#endif
