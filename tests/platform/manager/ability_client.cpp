// SPDX-License-Identifier: Apache-2.0
// Calls the manager through the public headers only.
#include "platform/manager/ability_client.h"

#include <unistd.h>

#include <condition_variable>
#include <sstream>

#include "support/process.h"
#include "tavo/message_parcel.h"
#include "tavo/mutex.h"
#include "tavo/system_ability_manager_client.h"

namespace ManagerTest {
namespace {

using namespace TAVO;

// Keeps the first answer to a load.
class LoadAnswer : public SystemAbilityLoadCallbackStub {
public:
    void OnLoadSystemAbilitySuccess(int32_t, const sptr<IRemoteObject>& object) override { Keep("loaded", object); }
    void OnLoadSystemAbilityFail(int32_t) override { Keep("failed", nullptr); }

    // What came, "silence" when nothing did in time.
    std::string Wait(sptr<IRemoteObject>& object)
    {
        MutexLock lock(mutex_);
        lock.WaitUntil(came_, TestSupport::Clock::now() + TestSupport::PATIENCE,
                       [this]() TAVO_REQUIRES(mutex_) { return answer_ != "silence"; });
        object = object_;
        return answer_;
    }

private:
    void Keep(const std::string& answer, const sptr<IRemoteObject>& object)
    {
        MutexLock lock(mutex_);
        answer_ = answer;
        object_ = object;
        came_.notify_all();
    }

    Mutex mutex_;
    std::condition_variable came_;
    std::string answer_ TAVO_GUARDED_BY(mutex_) = "silence";
    sptr<IRemoteObject> object_ TAVO_GUARDED_BY(mutex_);
};

std::string AskForPid(const sptr<IRemoteObject>& object)
{
    MessageParcel data;
    MessageParcel reply;
    MessageOption option;
    const bool isAnswered = object->SendRequest(PidService::GET_PID, data, reply, option) == IPC_OK;
    return isAnswered ? std::to_string(reply.ReadInt32()) : "silent";
}

std::string StatusText(int32_t status)
{
    return "status " + std::to_string(status);
}

}  // namespace

int PidService::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (code != GET_PID) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    reply.WriteInt32(::getpid());
    return IPC_OK;
}

sptr<ISystemAbilityManager> Manager()
{
    return SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
}

std::string Check(int32_t systemAbilityId)
{
    const sptr<ISystemAbilityManager> manager = Manager();
    if (manager == nullptr) {
        return "no manager";
    }
    const sptr<IRemoteObject> object = manager->CheckAbility(systemAbilityId);
    return object == nullptr ? "null" : "object " + AskForPid(object);
}

std::string Load(int32_t systemAbilityId)
{
    const sptr<ISystemAbilityManager> manager = Manager();
    if (manager == nullptr) {
        return "no manager";
    }
    const sptr<LoadAnswer> answer(new LoadAnswer);
    const int32_t status = manager->LoadAbility(systemAbilityId, answer);
    if (status != ABILITY_OK) {
        return StatusText(status);
    }
    sptr<IRemoteObject> object;
    const std::string text = answer->Wait(object);
    return object == nullptr ? text : text + " " + AskForPid(object);
}

std::string Add(int32_t systemAbilityId)
{
    const sptr<ISystemAbilityManager> manager = Manager();
    return manager == nullptr ? "no manager" : StatusText(manager->AddAbility(systemAbilityId, new PidService));
}

std::string Remove(int32_t systemAbilityId)
{
    const sptr<ISystemAbilityManager> manager = Manager();
    return manager == nullptr ? "no manager" : StatusText(manager->RemoveAbility(systemAbilityId));
}

int PidIn(const std::string& text)
{
    std::istringstream words(text);
    std::string first;
    int pid = 0;
    words >> first >> pid;
    return pid;
}

}  // namespace ManagerTest
