// SPDX-License-Identifier: Apache-2.0
// How long a game that keeps calling goes without an answer when veltra_server is killed: from the kill to the end of
// the first call that succeeds.
#include <sched.h>
#include <signal.h>

#include <vector>

#include "platform.h"
#include "row.h"
#include "service_process.h"
#include "veltra_server_client.h"

namespace {

constexpr int ROUNDS = 101;
constexpr double RECOVERY_SECONDS = 10;

}  // namespace

int main()
{
    Bench::Platform platform(0, 0);
    TAVO::Veltra::VeltraClient client;
    std::vector<double> milliseconds;
    while (milliseconds.size() < ROUNDS) {
        if (client.CallAuth("") != 0) {
            Bench::GiveUp("the service was not started");
        }
        const pid_t process = Bench::DescribeService().pid;
        const double start = Bench::Now();
        ::kill(process, SIGKILL);
        while (client.CallAuth("") != 0) {
            if (Bench::Now() - start > RECOVERY_SECONDS) {
                Bench::GiveUp("the service does not come back");
            }
            ::sched_yield();
        }
        milliseconds.push_back((Bench::Now() - start) * 1e3);
    }
    Bench::Print({"recovery_ms", "ms", 100}, milliseconds);
    return 0;
}
