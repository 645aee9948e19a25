// SPDX-License-Identifier: Apache-2.0
// Calls the manager through the public headers only.
#include "platform/manager/ability_client.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <mutex>
#include <utility>

#include "support/process.h"
#include "tavo/message_parcel.h"
#include "tavo/system_ability_manager_client.h"

namespace ManagerTest {
namespace {

using namespace TAVO;

// The one answer to a load; a second one is an exception in the delivery.
class LoadAnswer : public SystemAbilityLoadCallbackStub {
public:
    using Answer = std::pair<std::string, sptr<IRemoteObject>>;

    void OnLoadSystemAbilitySuccess(int32_t, const sptr<IRemoteObject>& object) override
    {
        answer_.set_value({"loaded", object});
    }
    void OnLoadSystemAbilityFail(int32_t) override { answer_.set_value({"failed", nullptr}); }

    // The answer that arrived, "silence" if none did in time.
    Answer Wait()
    {
        std::future<Answer> answer = answer_.get_future();
        const bool isThere = answer.wait_for(TestSupport::TIMEOUT) == std::future_status::ready;
        return isThere ? answer.get() : Answer("silence", nullptr);
    }

private:
    std::promise<Answer> answer_;
};

std::string AskForPid(const sptr<IRemoteObject>& object)
{
    MessageParcel data;
    MessageParcel reply;
    MessageOption option;
    const bool isAnswered = object->SendRequest(PidService::GET_PID, data, reply, option) == IPC_OK;
    return isAnswered ? std::to_string(reply.ReadInt32()) : "silent";
}

// Held while this process registers: who meets the service of a manager that dies just then would soon see it end.
std::mutex g_registering;

// The path that the test put into the environment; empty, which cannot be opened, when it did not.
std::string PathIn(const char* variable)
{
    const char* const path = std::getenv(variable);
    return path != nullptr ? path : "";
}

// What `ask` makes of the manager.
template <typename Ask>
std::string WithManager(Ask ask)
{
    const sptr<ISystemAbilityManager> manager = Manager();
    return manager == nullptr ? "no manager" : ask(*manager);
}

}  // namespace

int PidService::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (code != GET_PID) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    const std::lock_guard<std::mutex> isRegistered(g_registering);
    reply.WriteInt32(::getpid());
    return IPC_OK;
}

sptr<ISystemAbilityManager> Manager()
{
    return SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
}

std::string Status(int32_t status)
{
    return "status " + std::to_string(status);
}

std::string Check(int32_t systemAbilityId)
{
    return WithManager([systemAbilityId](ISystemAbilityManager& manager) {
        const sptr<IRemoteObject> object = manager.CheckAbility(systemAbilityId);
        return object == nullptr ? "null" : "object " + AskForPid(object);
    });
}

std::string Load(int32_t systemAbilityId)
{
    return BeginLoad(systemAbilityId).get();
}

std::future<std::string> BeginLoad(int32_t systemAbilityId)
{
    const sptr<LoadAnswer> answer(new LoadAnswer);
    const std::string accepted = WithManager([systemAbilityId, &answer](ISystemAbilityManager& manager) {
        return Status(manager.LoadAbility(systemAbilityId, answer));
    });
    return std::async(std::launch::deferred, [answer, accepted] {
        if (accepted != Status(ABILITY_OK)) {
            return std::string(accepted);
        }
        const auto [text, object] = answer->Wait();
        return object == nullptr ? text : text + " " + AskForPid(object);
    });
}

std::string Add(int32_t systemAbilityId)
{
    const std::lock_guard<std::mutex> registering(g_registering);
    return WithManager(
        [=](ISystemAbilityManager& manager) { return Status(manager.AddAbility(systemAbilityId, new PidService)); });
}

std::string Remove(int32_t systemAbilityId)
{
    return WithManager([=](ISystemAbilityManager& manager) { return Status(manager.RemoveAbility(systemAbilityId)); });
}

void NoteStart()
{
    const int notes = ::open(PathIn("TEST_NOTES").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    ::dprintf(notes, "%d\n", ::getpid());
    ::close(notes);
}

void WaitUntilTold()
{
    ::close(::open(PathIn("TEST_FIFO").c_str(), O_RDONLY | O_CLOEXEC));  // until the test opens it for writing
}

int PidIn(const std::string& text)
{
    int pid = 0;
    std::sscanf(text.c_str(), "%*s %d", &pid);
    return pid;
}

}  // namespace ManagerTest
