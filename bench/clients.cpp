// SPDX-License-Identifier: Apache-2.0
// What 1,000 idle client processes cost: a call of one more client, the memory and descriptors of veltra_server while
// they are connected, also with a subscription each, and the memory that it keeps when they have left. Two services run
// side by side, one with the 1,000 clients and one without, so that the rounds of both alternate.
#include <sched.h>
#include <unistd.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "facade_bytes.h"
#include "helpers.h"
#include "platform.h"
#include "row.h"
#include "service_process.h"
#include "veltra_server_client.h"

namespace {

constexpr int CLIENTS = 1000;
constexpr int CALLS = 2000;  // a round
constexpr int ROUNDS = 25;
constexpr double LEAVE_SECONDS = 10;
constexpr double RETURN_SECONDS = 3;  // the service returns memory when no client has left for a second

enum Side : int { ALONE, CROWDED, SUBSCRIBED };
enum Command : char { START = 's', CALL = 'c', MEMORY = 'm', DESCRIPTORS = 'd', LEAVE = 'l' };

void CallOnce()
{
    TAVO::Veltra::VeltraClient client;
    if (client.CallAuth("") == TAVO::Veltra::RESULT_NO_SERVICE) {
        Bench::GiveUp("the service cannot be reached");
    }
}

class Subscriber : public TAVO::Veltra::GameEventCallbackBase {
public:
    int32_t OnGameCallbackEvent(const TAVO::Veltra::GameCallbackEventInfo&) override { return 0; }
};

void Subscribe()
{
    TAVO::Veltra::VeltraClient client;
    if (client.RegisterGameCallback(std::make_unique<Subscriber>(), 1) != 0) {
        Bench::GiveUp("the service refuses a subscription");
    }
}

// A service with a measured client, in a process of its own. The crowd is forked before that process uses the library.
class MeasuredService {
public:
    MeasuredService(int clients, void (*connect)())
    {
        Bench::MakeRuntimeDir();
        if (clients > 0) {
            crowd_.emplace(clients, connect);
        }
        platform_.emplace(1, 0);
        CallOnce();
        // The service opens the folders of the device at its first look, and keeps them open; subscribers cause it.
        TAVO::Veltra::VeltraClient().GetDeviceInfo({});
        Bench::AwaitControl();
        process_ = Bench::DescribeService().pid;
        memoryBefore_ = Memory();
        descriptorsBefore_ = Descriptors();
        if (crowd_) {
            crowd_->Connect();
        }
    }

    double Memory() const { return Bench::MemoryOf(process_) - memoryBefore_; }
    double Descriptors() const { return Bench::DescriptorsOf(process_) - descriptorsBefore_; }

    double MicrosecondsPerCall()
    {
        TAVO::Veltra::VeltraClient client;
        const std::string text(Bench::CALL_AUTH_TEXT_BYTES, 'x');
        const double start = Bench::Now();
        for (int i = 0; i < CALLS; ++i) {
            client.CallAuth(text);
        }
        return (Bench::Now() - start) / CALLS * 1e6;
    }

    // What the service keeps a moment later, as a share of what the clients took.
    double MemoryKept()
    {
        const double peak = Memory();
        crowd_.reset();
        for (const double start = Bench::Now(); Descriptors() > 0;) {
            if (Bench::Now() - start > LEAVE_SECONDS) {
                Bench::GiveUp("the service keeps descriptors of clients that have ended");
            }
            ::sched_yield();
        }
        ::usleep(static_cast<useconds_t>(RETURN_SECONDS * 1e6));
        return Memory() / peak;
    }

private:
    std::optional<Bench::Crowd> crowd_;
    std::optional<Bench::Platform> platform_;
    pid_t process_ = 0;
    double memoryBefore_ = 0;
    double descriptorsBefore_ = 0;
};

}  // namespace

int main()
{
    std::unique_ptr<MeasuredService> service;  // of each helper
    Bench::Helpers helpers(3, [&](int side, char command) -> double {
        switch (command) {
            case START:
                service = std::make_unique<MeasuredService>(side == ALONE ? 0 : CLIENTS,
                                                            side == SUBSCRIBED ? Subscribe : CallOnce);
                return 0;
            case CALL:
                return service->MicrosecondsPerCall();
            case MEMORY:
                return service->Memory();
            case DESCRIPTORS:
                return service->Descriptors();
            default:
                return service->MemoryKept();
        }
    });
    helpers.Run(SUBSCRIBED, START);
    Bench::Print({"idle_subscriber_bytes", "bytes", 16 * 1024}, {helpers.Run(SUBSCRIBED, MEMORY) / CLIENTS});
    helpers.Run(SUBSCRIBED, LEAVE);
    helpers.Run(ALONE, START);
    helpers.Run(CROWDED, START);
    Bench::Print({"idle_client_bytes", "bytes", 16 * 1024}, {helpers.Run(CROWDED, MEMORY) / CLIENTS});
    Bench::Print({"fds_per_client", "", 3.1}, {helpers.Run(CROWDED, DESCRIPTORS) / CLIENTS});
    Bench::MeasureAndPrint(
        {"clients_1000", "us", 1.3}, ROUNDS, [&] { return helpers.Run(CROWDED, CALL); },
        [&] { return helpers.Run(ALONE, CALL); });
    Bench::Print({"memory_after_peak", "", 0.5}, {helpers.Run(CROWDED, LEAVE)});
    return 0;
}
