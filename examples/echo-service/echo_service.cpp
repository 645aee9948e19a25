// SPDX-License-Identifier: Apache-2.0
// The service: the manager starts it at the first load, and it registers under its number. Requests run on threads of
// the platform, several at once, so the list of listeners has a lock. No lock is held during a call to a listener. A
// listener is removed when its process ends; the death notice runs on a thread of the platform, too.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "echo_proxy.h"
#include "echo_stub.h"
#include "tavo/calling_peer.h"
#include "tavo/ipc_threads.h"
#include "tavo/mutex.h"
#include "tavo/scrivo_print.h"
#include "tavo/system_ability_manager_client.h"

namespace Echo {
namespace {

constexpr size_t MAX_LISTENERS = 100;

class EchoService final : public EchoStub, public IRemoteObject::DeathRecipient {
public:
    int32_t Say(const std::string& text, std::string& answer) override
    {
        if (text.size() > MAX_TEXT_BYTES) {
            return ECHO_TEXT_TOO_LONG;
        }
        for (const sptr<IEchoListener>& listener : Listeners()) {
            listener->OnText(text);
        }
        answer = text + " (from process " + std::to_string(getpid()) + ")";
        return 0;
    }

    int32_t Listen(const sptr<IEchoListener>& listener) override
    {
        const sptr<IRemoteObject> object = listener->AsObject();
        if (!IsOfCaller(object)) {  // else it would stay when the caller ends
            return ECHO_NOT_YOUR_LISTENER;
        }
        MutexLock lock(mutex_);
        if (listeners_.size() >= MAX_LISTENERS) {
            return ECHO_TOO_MANY_LISTENERS;
        }
        if (!object->AddDeathRecipient(this)) {
            return ECHO_NOT_YOUR_LISTENER;
        }
        listeners_.push_back(listener);
        return 0;
    }

    void OnRemoteDied(const wptr<IRemoteObject>& /*object*/) override
    {
        MutexLock lock(mutex_);
        const auto isDead = [](const sptr<IEchoListener>& listener) { return !listener->AsObject()->IsAlive(); };
        listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(), isDead), listeners_.end());
    }

private:
    std::vector<sptr<IEchoListener>> Listeners()
    {
        MutexLock lock(mutex_);
        return listeners_;
    }

    Mutex mutex_;
    std::vector<sptr<IEchoListener>> listeners_ TAVO_GUARDED_BY(mutex_);
};

int Serve()
{
    ScrivoActAsDaemon();
    const sptr<EchoService> service(new EchoService());
    const sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    const int32_t status =
        manager == nullptr ? ABILITY_UNREACHABLE : manager->AddAbility(ECHO_SA_ID, service->AsObject());
    if (status != ABILITY_OK) {
        std::fprintf(stderr, "echo_service: ability %d cannot be registered: status %d\n", ECHO_SA_ID, status);
        return 1;
    }
    IpcThreads::JoinPool();  // until a signal ends the process
}

}  // namespace
}  // namespace Echo

int main()
{
    return Echo::Serve();
}
