// SPDX-License-Identifier: Apache-2.0
// A service in place of the real one that hangs, dies and answers as its caller wants it to.
//
//     system_test_service serve               registers, says "serving", then does what its stdin says:
//         release                             lets the calls go on that hang
//         push NAME CODE TOKEN ITEM...        see callback_box.h; the objects are named events, gpu and, those of the
//         flood NAME                          two queries, as the first text of the query
//     system_test_service second HOW FILE     the first start marks FILE and then fails by HOW; the next ones serve
#include <signal.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "ipc/server_codes.h"
#include "support/process.h"
#include "system/callback_box.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/ipc_threads.h"
#include "tavo/mutex.h"
#include "tavo/system_ability_manager_client.h"

namespace {

using namespace TAVO;
using TAVO::Veltra::ServerCode;

TestSupport::LinePipe& Parent()
{
    static auto& parent = *new TestSupport::LinePipe(STDIN_FILENO);
    return parent;
}

SystemTest::CallbackBox& Box()
{
    static auto& box = *new SystemTest::CallbackBox(Parent());
    return box;
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
            case ServerCode::GET_DEVICE_INFO:
                data.SetReadPosition(data.GetReadPosition() + 3 * Parcel::SLOT);  // one detail, a type, one parameter
                data.ReadString();                                                // its name
                reply.WriteInt32(0);
                reply.WriteString(data.ReadString());
                return 0;
            case ServerCode::REGISTER_CALL_BACK:
                return Keep("events", data);
            case ServerCode::UN_REGISTER_CALL_BACK:
                return Box().Drop("events");
            case ServerCode::START_GET_GPU_PERF_INFO:
                data.ReadInt32();  // how often does not matter
                return Keep("gpu", data);
            case ServerCode::STOP_GET_GPU_PERF_INFO:
                return Box().Drop("gpu");
            case ServerCode::GET_APP_PRIORITYS:
            case ServerCode::QUERY_APP_RESOURCE_INFOS: {
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

private:
    static int Keep(const std::string& name, MessageParcel& data)
    {
        Box().Keep(name, data.ReadRemoteObject());
        return 0;
    }

    // A number is the status of the request, without a reply.
    int CallAuth(const std::string& text, MessageParcel& reply)
    {
        if (text == "die") {
            ::raise(SIGKILL);
        }
        if (text == "hang") {
            Hang();
        }
        if (text == "pid") {
            reply.WriteInt32(::getpid());
        } else if (!text.empty() && text.find_first_not_of("-0123456789") == std::string::npos) {
            return std::stoi(text);
        }
        return 0;
    }

    void Hang()
    {
        MutexLock lock(mutex_);
        Parent().Say("hanging");
        const int before = releases_;
        lock.Wait(released_, [this, before]() TAVO_REQUIRES(mutex_) { return releases_ > before; });
    }

    Mutex mutex_;
    std::condition_variable released_;
    int releases_ TAVO_GUARDED_BY(mutex_) = 0;
};

int Serve()
{
    const sptr<TestService> service(new TestService);
    const auto manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr || manager->AddAbility(Veltra::VELTRA_SERVER_SA_ID, service) != ABILITY_OK) {
        std::fprintf(stderr, "the test service cannot register\n");
        return 3;
    }
    Parent().Say("serving");
    while (const auto line = Parent().Hear(std::chrono::hours(1))) {
        std::istringstream words(*line);
        std::string word;
        words >> word;
        if (word == "release") {
            service->Release();
        } else if (word == "push") {
            Box().Push(std::move(words));
        } else if (word == "flood") {
            words >> word;
            Box().Flood(word);
        }
    }
    IpcThreads::JoinPool();  // Started by the manager: nobody speaks.
}

// How the first start fails: it keeps "silence"; or it is "late", and serves once there is a FILE.go.
int FailBy(const std::string& how, const std::string& file)
{
    if (how == "silence") {
        ::pause();
    }
    if (how == "late" && TestSupport::WaitFor([&file] { return std::filesystem::exists(file + ".go"); })) {
        return Serve();
    }
    return 1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "second" && argc == 4 && !std::filesystem::exists(argv[3])) {
        std::ofstream(argv[3]).close();
        return FailBy(argv[2], argv[3]);
    }
    return mode == "serve" || mode == "second" ? Serve() : 2;
}
