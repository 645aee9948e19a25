// SPDX-License-Identifier: Apache-2.0
// The client: says each line of its input to the service, and prints the answers and what it hears. The first line
// starts the service. When the service dies, a notice says so, and the next line starts it again.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <iostream>
#include <string>
#include <thread>

#include "echo_proxy.h"
#include "echo_stub.h"
#include "tavo/mutex.h"
#include "tavo/system_ability_manager_client.h"

namespace Echo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds MANAGER_WAIT{2};
constexpr std::chrono::seconds CONNECT_WAIT{10};
constexpr std::chrono::milliseconds CONNECT_PAUSE{50};
constexpr std::chrono::seconds HEAR_WAIT{5};

// The callback. The platform calls it on a thread of its own.
class Listener final : public EchoListenerStub {
public:
    int32_t OnText(const std::string& text) override
    {
        std::printf("heard: %s\n", text.c_str());
        MutexLock lock(mutex_);
        ++heard_;
        condition_.notify_all();
        return 0;
    }
    void WaitFor(int texts)
    {
        MutexLock lock(mutex_);
        lock.WaitUntil(condition_, Clock::now() + HEAR_WAIT,
                       [this, texts]() TAVO_REQUIRES(mutex_) { return heard_ >= texts; });
    }

private:
    Mutex mutex_;
    std::condition_variable condition_;
    int heard_ TAVO_GUARDED_BY(mutex_) = 0;
};

class Death final : public IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const wptr<IRemoteObject>& /*object*/) override { std::puts("the service has ended"); }
};

class Load final : public SystemAbilityLoadCallbackStub {
public:
    void OnLoadSystemAbilitySuccess(int32_t, const sptr<IRemoteObject>& object) override { loaded_.set_value(object); }
    void OnLoadSystemAbilityFail(int32_t) override { loaded_.set_value(nullptr); }
    sptr<IRemoteObject> Wait()
    {
        std::future<sptr<IRemoteObject>> future = loaded_.get_future();
        return future.wait_for(CONNECT_WAIT) == std::future_status::ready ? future.get() : nullptr;
    }

private:
    std::promise<sptr<IRemoteObject>> loaded_;
};

// The manager may have been started a moment before this program.
sptr<ISystemAbilityManager> FindManager()
{
    const auto deadline = Clock::now() + MANAGER_WAIT;
    for (;;) {
        sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
        if (manager != nullptr || Clock::now() > deadline) {
            return manager;
        }
        std::this_thread::sleep_for(CONNECT_PAUSE);
    }
}

// The service, started if it does not run; null if that fails.
sptr<IRemoteObject> FindService()
{
    const sptr<ISystemAbilityManager> manager = FindManager();
    if (manager == nullptr) {
        return nullptr;
    }
    if (sptr<IRemoteObject> running = manager->CheckAbility(ECHO_SA_ID); running != nullptr) {
        return running;
    }
    const sptr<Load> load(new Load());
    return manager->LoadAbility(ECHO_SA_ID, load) == ABILITY_OK ? load->Wait() : nullptr;
}

// Asks once more if the service that was found has died at this moment.
sptr<IEcho> Connect(const sptr<Listener>& listener)
{
    for (const auto deadline = Clock::now() + CONNECT_WAIT; Clock::now() < deadline;) {
        const sptr<IRemoteObject> object = FindService();
        if (object == nullptr) {
            return nullptr;
        }
        sptr<IEcho> echo = iface_cast<IEcho>(object);
        if (echo != nullptr && object->AddDeathRecipient(new Death()) && echo->Listen(listener) == 0) {
            return echo;
        }
        std::this_thread::sleep_for(CONNECT_PAUSE);
    }
    return nullptr;
}

int SayLines()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const sptr<Listener> listener(new Listener());
    sptr<IEcho> echo;
    int said = 0;
    for (std::string line; std::getline(std::cin, line);) {
        if (echo == nullptr || !echo->AsObject()->IsAlive()) {
            echo = Connect(listener);
        }
        if (echo == nullptr) {
            std::fprintf(stderr, "echo_client: no service; is tavo_manager running, with the same TAVO_RUNTIME_DIR?\n");
            return 1;
        }
        std::string answer;
        const int32_t result = echo->Say(line, answer);
        if (result != 0) {
            std::fprintf(stderr, "echo_client: refused with %d\n", result);
            continue;
        }
        std::printf("answer: %s\n", answer.c_str());
        ++said;
    }
    listener->WaitFor(said);
    return 0;
}

}  // namespace
}  // namespace Echo

int main()
{
    return Echo::SayLines();
}
