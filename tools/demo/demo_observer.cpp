// SPDX-License-Identifier: Apache-2.0
// The observer of the demo: a process that uses only the platform, not the client library. It kills the service and
// measures how soon it is notified of the death. The recipient runs on the platform's delivery thread.
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>

#include "tavo/tavo.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t ABILITY = 66006;
constexpr std::chrono::seconds NOTICE_LIMIT{5};

class Recipient : public TAVO::IRemoteObject::DeathRecipient {
public:
    void OnRemoteDied(const TAVO::wptr<TAVO::IRemoteObject>&) override
    {
        const auto now = Clock::now();
        TAVO::MutexLock lock(mutex_);
        notifiedAt_ = now;
        notified_.notify_all();
    }

    // When the notice came; the epoch if it did not.
    Clock::time_point Wait()
    {
        TAVO::MutexLock lock(mutex_);
        lock.WaitUntil(notified_, Clock::now() + NOTICE_LIMIT,
                       [this]() TAVO_REQUIRES(mutex_) { return notifiedAt_ != Clock::time_point(); });
        return notifiedAt_;
    }

private:
    TAVO::Mutex mutex_;
    std::condition_variable notified_;
    Clock::time_point notifiedAt_ TAVO_GUARDED_BY(mutex_);
};

int Fail(const char* why)
{
    std::printf("  observer: %s\n", why);
    return 1;
}

}  // namespace

int main()
{
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    const auto service = manager != nullptr ? manager->CheckAbility(ABILITY) : nullptr;
    if (service == nullptr) {
        return Fail("the service is not running");
    }
    pid_t process = 0;
    for (const auto& ability : manager->DescribeAbilities()) {
        process = ability.id == ABILITY ? ability.pid : process;
    }
    const auto recipient = TAVO::MakeRef<Recipient>();
    if (process <= 0 || !service->AddDeathRecipient(recipient)) {
        return Fail("the service cannot be watched");
    }
    // Before the signal: the notice may come before kill() returns.
    const auto start = Clock::now();
    if (::kill(process, SIGKILL) != 0) {
        return Fail("the service cannot be killed");
    }
    const auto notifiedAt = recipient->Wait();
    if (notifiedAt == Clock::time_point()) {
        return Fail("no death notice came");
    }
    std::printf("  kill -9 of process %d: death notice after %.3f ms\n", process,
                std::chrono::duration<double, std::milli>(notifiedAt - start).count());
    return 0;
}
