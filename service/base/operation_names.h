// SPDX-License-Identifier: Apache-2.0
// The operations of the service by their names, as files and records have them.
#ifndef VELTRA_SERVICE_OPERATION_NAMES_H
#define VELTRA_SERVICE_OPERATION_NAMES_H

#include <optional>
#include <string_view>

#include "ipc/server_codes.h"

namespace TAVO::Veltra {

const char* NameOf(ServerCode code);  // of a request of IVeltraServerInterface
std::optional<ServerCode> FindOperation(std::string_view name);

}  // namespace TAVO::Veltra

#endif
