// SPDX-License-Identifier: Apache-2.0
// What tools cost a game's calls. `watch_off`: a call to veltra_server after its watcher has left, beside the same call
// to a service written by hand that cannot be watched. `watch_on`: a call while another process watches everything,
// beside the call to a service that was never watched. The services run side by side, so that their rounds alternate.
#include <memory>
#include <optional>
#include <string>

#include "control/control_proxies.h"
#include "control/control_stubs.h"
#include "facade_bytes.h"
#include "helpers.h"
#include "platform.h"
#include "row.h"
#include "service_process.h"
#include "veltra_server_client.h"

namespace {

using namespace TAVO;
using namespace TAVO::Veltra;

constexpr int CALLS = 4000;  // a round
constexpr int ROUNDS = 25;
constexpr double WAIT_SECONDS = 10;

enum Side : int { BY_HAND, NEVER, LEFT, WATCHED };
enum Command : char { START = 's', CALL = 'c', LEAVE = 'l' };

class Watcher final : public VeltraWatcherStub {
public:
    int32_t OnRecords(const std::string&, uint64_t) override { return 0; }
};

void Watch()
{
    static const sptr<IVeltraWatcher> watcher(new Watcher());
    std::string answer;
    if (iface_cast<IVeltraControl>(Bench::AwaitControl())->Watch("", watcher, answer) != 0) {
        Bench::GiveUp("the service refuses a watcher");
    }
}

// Returns when the description of the service contains `text`.
void AwaitDescription(const char* text, const char* complaint)
{
    const sptr<IVeltraControl> control = iface_cast<IVeltraControl>(Bench::AwaitControl());
    std::string answer;
    for (const double start = Bench::Now(); answer.find(text) == std::string::npos;) {
        control->Describe(answer);
        if (Bench::Now() - start > WAIT_SECONDS) {
            Bench::GiveUp(complaint);
        }
    }
}

// A service with a measured client, and perhaps a watcher, which is forked before this process uses the library.
class MeasuredService {
public:
    explicit MeasuredService(int side)
    {
        Bench::MakeRuntimeDir();
        if (side == LEFT || side == WATCHED) {
            watcher_.emplace(1, Watch);
        }
        platform_.emplace(1, 0, side == BY_HAND ? Bench::Service::BENCH : Bench::Service::REAL);
        if (client_.CallAuth("") == RESULT_NO_SERVICE) {
            Bench::GiveUp("the service cannot be reached");
        }
        if (watcher_) {
            watcher_->Connect();
        }
        if (side == NEVER) {
            Bench::AwaitControl();  // so that all services have the same work behind them
        }
        if (side == LEFT) {
            watcher_->Leave();
            AwaitDescription("\"watchers\":0", "the service keeps a watcher that has ended");
        }
    }

    double MicrosecondsPerCall()
    {
        const double start = Bench::Now();
        for (int i = 0; i < CALLS; ++i) {
            client_.CallAuth(text_);
        }
        return (Bench::Now() - start) / CALLS * 1e6;
    }

private:
    const std::string text_ = std::string(Bench::CALL_AUTH_TEXT_BYTES, 'x');
    std::optional<Bench::Crowd> watcher_;
    std::optional<Bench::Platform> platform_;
    VeltraClient client_;
};

}  // namespace

int main()
{
    std::unique_ptr<MeasuredService> service;  // of each helper
    Bench::Helpers helpers(4, [&service](int side, char command) -> double {
        if (command == START) {
            service = std::make_unique<MeasuredService>(side);
        } else if (command == LEAVE) {
            if (side == WATCHED) {
                AwaitDescription("\"CallAuth\"", "the calls were not recorded");
            }
            service.reset();
        } else {
            return service->MicrosecondsPerCall();
        }
        return 0;
    });
    for (const Side side : {BY_HAND, NEVER, LEFT, WATCHED}) {
        helpers.Run(side, START);
    }
    Bench::MeasureAndPrint(
        {"watch_off", "us", 1.1}, ROUNDS, [&] { return helpers.Run(LEFT, CALL); },
        [&] { return helpers.Run(BY_HAND, CALL); });
    Bench::MeasureAndPrint(
        {"watch_on", "us", 1.2}, ROUNDS, [&] { return helpers.Run(WATCHED, CALL); },
        [&] { return helpers.Run(NEVER, CALL); });
    for (const Side side : {BY_HAND, NEVER, LEFT, WATCHED}) {
        helpers.Run(side, LEAVE);
    }
    return 0;
}
