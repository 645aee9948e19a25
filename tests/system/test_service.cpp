// SPDX-License-Identifier: Apache-2.0
// A service in place of the real one that hangs, dies and answers as its caller requests.
//
//     system_test_service serve               registers, reports "serving", then obeys its stdin:
//         release                             continues the calls that hang
//         push NAME                           sends one request to a callback object, see Push
//         flood NAME                          the same without a pause until one fails; reports "flooded" and its status
//     system_test_service when-told           the same, once the test that runs the manager tells its services to go on
//
// The objects are named events, gpu and, those of the two queries, as the first text of the query.
#include <signal.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "ipc/server_codes.h"
#include "platform/manager/ability_client.h"
#include "support/process.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/ipc_threads.h"
#include "tavo/mutex.h"
#include "tavo/system_ability_manager_client.h"

namespace {

using namespace TAVO;
using TAVO::Veltra::CallbackCode;
using TAVO::Veltra::ServerCode;

TestSupport::LinePipe& Parent()
{
    static auto& parent = *new TestSupport::LinePipe(STDIN_FILENO);
    return parent;
}

// Sends an event of zeros, no GPU samples or no priorities. The status and, behind a space, each Int32 of the reply.
std::string Push(const sptr<IRemoteObject>& object)
{
    if (object == nullptr) {
        return "no such object";
    }
    const std::u16string& token = object->Descriptor();
    const CallbackCode code = token.ends_with(u"EventCallback")           ? CallbackCode::GAME_EVENT
                              : token.ends_with(u"CounterNativeCallback") ? CallbackCode::GPU_COUNTER_DATA
                                                                          : CallbackCode::GET_APP_PRIORITYS;
    MessageParcel data;
    MessageParcel reply;
    MessageOption option;
    data.WriteInterfaceToken(token);
    data.WriteInt32(0);
    std::string answer = std::to_string(object->SendRequest(static_cast<uint32_t>(code), data, reply, option));
    while (reply.GetReadableBytes() > 0) {
        answer += ' ' + std::to_string(reply.ReadInt32());
    }
    return answer;
}

class TestService : public IPCObjectStub {
public:
    TestService() : IPCObjectStub(u"zem.game.perf.iVeltraServerInterface") {}

    int OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option) override
    {
        data.ReadInterfaceToken();
        switch (static_cast<ServerCode>(code)) {
            case ServerCode::CALL_AUTH:
                return CallAuth(data.ReadString(), reply);
            case ServerCode::REGISTER_CALL_BACK:
                return Keep("events", data);
            case ServerCode::UN_REGISTER_CALL_BACK:
                return Drop("events");
            case ServerCode::START_GET_GPU_PERF_INFO:
                data.ReadInt32();  // how often does not matter
                return Keep("gpu", data);
            case ServerCode::STOP_GET_GPU_PERF_INFO:
                return Drop("gpu");
            case ServerCode::GET_APP_PRIORITYS: {
                data.ReadInt32();  // one text is expected
                const std::string name = data.ReadString();
                return Keep(name, data);
            }
            default:
                return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
        }
    }

    void Release()
    {
        MutexLock lock(mutex_);
        ++releases_;
        released_.notify_all();
    }
    sptr<IRemoteObject> Find(const std::string& name)
    {
        MutexLock lock(mutex_);
        const auto found = objects_.find(name);
        return found != objects_.end() ? found->second : nullptr;
    }

private:
    int Keep(const std::string& name, MessageParcel& data)
    {
        MutexLock lock(mutex_);
        objects_[name] = data.ReadRemoteObject();
        return 0;
    }
    int Drop(const std::string& name)
    {
        MutexLock lock(mutex_);
        objects_.erase(name);
        return 0;
    }

    int CallAuth(const std::string& text, MessageParcel& reply)
    {
        if (text == "die") {
            ::raise(SIGKILL);
        } else if (text == "hang") {
            Hang();
        } else if (text == "pid") {
            reply.WriteInt32(::getpid());
        }
        return 0;
    }

    void Hang()
    {
        MutexLock lock(mutex_);
        Parent().Send("hanging");
        const int before = releases_;
        lock.Wait(released_, [this, before]() TAVO_REQUIRES(mutex_) { return releases_ > before; });
    }

    Mutex mutex_;
    std::condition_variable released_;
    int releases_ TAVO_GUARDED_BY(mutex_) = 0;
    std::map<std::string, sptr<IRemoteObject>> objects_ TAVO_GUARDED_BY(mutex_);
};

// Pushes from a thread of its own, since the client may block.
void PushFromThread(const sptr<TestService>& service, const std::string& name, bool isFlood)
{
    std::thread([service, name, isFlood] {
        std::string answer = Push(service->Find(name));
        while (isFlood && answer == "0 0") {
            answer = Push(service->Find(name));
        }
        Parent().Send((isFlood ? "flooded " : "") + answer);
    }).detach();
}

int Serve()
{
    const sptr<TestService> service(new TestService);
    const auto manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr || manager->AddAbility(Veltra::VELTRA_SERVER_SA_ID, service) != ABILITY_OK) {
        std::fprintf(stderr, "the test service cannot register\n");
        return 3;
    }
    Parent().Send("serving");
    while (const auto line = Parent().Receive(std::chrono::hours(1))) {
        std::istringstream words(*line);
        std::string verb;
        std::string name;
        words >> verb >> name;
        if (verb == "release") {
            service->Release();
        } else {
            PushFromThread(service, name, verb == "flood");
        }
    }
    IpcThreads::JoinPool();  // Started by the manager: stdin is at its end.
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && std::string(argv[1]) == "when-told") {
        ManagerTest::NoteStart();
        ManagerTest::WaitUntilTold();
    }
    return Serve();
}
