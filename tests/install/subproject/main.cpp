// SPDX-License-Identifier: Apache-2.0
// Calls the library where no service can be found.
#include "veltra_server_client.h"

// A game may have headers of its own under such names.
#if __has_include("callback/callback_table.h") || __has_include("client/veltra_custom_proxy.h")
#error "headers of the library are found by the names of its folders"
#elif __has_include("ipc/server_codes.h") || __has_include("utils/veltra_log.h")
#error "headers of the library are found by the names of its folders"
#endif

int main()
{
    return TAVO::Veltra::VeltraClient().CallAuth("") == TAVO::Veltra::RESULT_NO_SERVICE ? 0 : 1;
}
