// SPDX-License-Identifier: Apache-2.0
#include "witness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "row.h"

namespace Bench {
namespace {

constexpr char NUMBER_VARIABLE[] = "BENCH_WITNESS";

// An abstract name, so nothing is left behind.
sockaddr_un Address(const char* number)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path + 1, sizeof(address.sun_path) - 1, "veltra-bench-witness-%s", number);
    return address;
}

}  // namespace

int ListenForWitnesses()
{
    char number[16];
    std::snprintf(number, sizeof(number), "%d", static_cast<int>(::getpid()));
    ::setenv(NUMBER_VARIABLE, number, 1);
    const sockaddr_un address = Address(number);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener, 1) != 0) {
        GiveUp("cannot listen");
    }
    return listener;
}

void ConnectWitness()
{
    if (const char* const number = std::getenv(NUMBER_VARIABLE)) {
        const sockaddr_un address = Address(number);
        const int witness = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::connect(witness, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            GiveUp("no benchmark listens for the end of the service");
        }
    }
}

}  // namespace Bench
