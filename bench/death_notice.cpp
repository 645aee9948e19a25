// SPDX-License-Identifier: Apache-2.0
// How long the death notice takes from the kill of a service to the recipient in the client, beside the end of file on
// a bare connection to the same process, in the same kills. The service of service.cpp makes that connection.
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ipc/server_codes.h"
#include "platform.h"
#include "row.h"
#include "service_process.h"
#include "tavo/iremote_object.h"
#include "tavo/system_ability_manager_client.h"
#include "veltra_server_client.h"
#include "witness.h"

namespace {

constexpr int ROUNDS = 301;

class Recipient : public TAVO::IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const TAVO::wptr<TAVO::IRemoteObject>&) override
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        at_ = Bench::Now();
        condition_.notify_all();
    }
    double Await()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        condition_.wait(lock, [this] { return at_ != 0; });
        return at_;
    }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    double at_ = 0;
};

}  // namespace

int main()
{
    const int listener = Bench::ListenForWitnesses();
    Bench::Platform platform(1, 0, Bench::Service::BENCH);
    TAVO::Veltra::VeltraClient client;
    std::vector<double> notices;
    std::vector<double> ends;
    for (int round = 0; round <= ROUNDS; ++round) {
        Bench::EndService();
        client.CallAuth("");  // starts the service
        const int connection = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
        const auto object = manager->CheckAbility(TAVO::Veltra::VELTRA_SERVER_SA_ID);
        const auto recipient = TAVO::MakeRef<Recipient>();
        if (connection < 0 || object == nullptr || !object->AddDeathRecipient(recipient)) {
            Bench::GiveUp("the service is not there to be watched");
        }
        double ended = 0;
        std::thread witness([&] {
            char byte = 0;
            while (::recv(connection, &byte, 1, 0) > 0) {}
            ended = Bench::Now();
        });
        const pid_t process = Bench::DescribeService().pid;  // also gives the witness the time to block
        const double start = Bench::Now();
        ::kill(process, SIGKILL);
        notices.push_back((recipient->Await() - start) * 1e6);
        witness.join();
        ends.push_back((ended - start) * 1e6);
        ::close(connection);
    }
    Bench::Print({"death_notice", "us", 3}, notices, ends);
    return 0;
}
