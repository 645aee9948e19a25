// SPDX-License-Identifier: Apache-2.0
// Whether a device may be read without waking it up.
#ifndef VELTRA_SERVICE_DEVICE_SLEEP_H
#define VELTRA_SERVICE_DEVICE_SLEEP_H

#include <string>

#include "probes/root_files.h"

namespace TAVO::Veltra {

// `deviceDir` ends with a slash: "sys/class/drm/card0/device/". The kernel has suspended the device: this file and the
// device's description can be read, any other file would wake it up and keep it awake.
inline bool IsAsleep(const RootFiles& files, const std::string& deviceDir)
{
    return files.ReadName(deviceDir + "power/runtime_status") == "suspended";
}

}  // namespace TAVO::Veltra

#endif
