// SPDX-License-Identifier: Apache-2.0
// The loop of a session. Without a service it asks the manager for one, and twice a second again; a load is answered
// by a callback, so nothing waits for it here. With a service it subscribes, sends the reports of the game one by one,
// and reads the device when the interval is over or an event has arrived. The death of the service is noticed by a
// death recipient, which makes the loop start again from the beginning. A call to a service that hangs ends after 8 s.
//
// The objects that the platform calls only put a note into the mailbox, which they share.
#include "session_thread.h"

#include <new>
#include <utility>

#include "callback/game_event_callback_stub.h"
#include "callback/gpu_counter_call_back_stub.h"
#include "device_document.h"
#include "tavo/isystem_ability_load_callback.h"
#include "tavo/system_ability_manager_client.h"
#include "veltra_result.h"

namespace TAVO::Veltra {
namespace {

constexpr std::chrono::milliseconds RETRY_PAUSE{500};
constexpr std::chrono::seconds LOAD_WAIT{10};
constexpr std::chrono::seconds HANGS_AFTER{7};  // a call times out after 8 s

using SharedMailbox = std::shared_ptr<Mailbox>;

// Runs on a worker of the platform and returns at once: a slow game never makes the service wait.
class EventReceiver : public GameEventCallbackStub {
public:
    explicit EventReceiver(SharedMailbox mailbox) : mailbox_(std::move(mailbox)) {}
    int32_t OnGameCallbackEvent(const GameCallbackEventInfo& info) override
    {
        mailbox_->PostGameEvent(info);
        return RESULT_OK;
    }

private:
    const SharedMailbox mailbox_;
};

class BatchReceiver : public GpuCounterCallBackStub {
public:
    explicit BatchReceiver(SharedMailbox mailbox) : mailbox_(std::move(mailbox)) {}
    int32_t OnGpuData(std::vector<GpuPerfInfo>& infos) override
    {
        mailbox_->PostGpuBatch(std::move(infos));
        return RESULT_OK;
    }

private:
    const SharedMailbox mailbox_;
};

class LoadAnswer : public SystemAbilityLoadCallbackStub {
public:
    explicit LoadAnswer(SharedMailbox mailbox) : mailbox_(std::move(mailbox)) {}
    void OnLoadSystemAbilitySuccess(int32_t /*id*/, const sptr<IRemoteObject>& object) override
    {
        mailbox_->PostLoadAnswer(object);
    }
    void OnLoadSystemAbilityFail(int32_t /*id*/) override { mailbox_->PostLoadAnswer(nullptr); }

private:
    const SharedMailbox mailbox_;
};

class DeathNotice : public IRemoteObject::DeathRecipient {
public:
    // With the number of its connection: a late notice must not end the next one.
    DeathNotice(SharedMailbox mailbox, uint64_t connection) : mailbox_(std::move(mailbox)), connection_(connection) {}
    void OnRemoteDied(const wptr<IRemoteObject>& /*object*/) override { mailbox_->PostDeath(connection_); }

private:
    const SharedMailbox mailbox_;
    const uint64_t connection_;
};

SteadyTime Now()
{
    return std::chrono::steady_clock::now();
}

}  // namespace

SessionThread::SessionThread(SharedMailbox mailbox)
    : mailbox_(std::move(mailbox)),
      events_(MakeRef<EventReceiver>(mailbox_)),
      batches_(MakeRef<BatchReceiver>(mailbox_))
{
    if (!mailbox_->options.gameName.empty()) {
        const auto name = [text = mailbox_->options.gameName](IVeltraServerInterface& service) {
            constexpr int32_t RUNNING = 1;
            return service.UpdateGameInfo(RUNNING, text, 0);
        };
        gameInfo_ = Report{name, true};
    }
}

SessionThread::~SessionThread() = default;

Mutex SessionThread::subscribing_;
const SessionThread* SessionThread::subscriber_ = nullptr;

void SessionThread::Run()
{
    for (bool isStopping = false; !isStopping;) {
        try {
            Turn();
        } catch (const std::bad_alloc&) {  // What this turn was about is lost. The next one begins after a pause.
            due_ = Now() + RETRY_PAUSE;
        }
        isStopping = mailbox_->IsStopping();
    }
    Unsubscribe();
}

void SessionThread::Turn()
{
    const Work work = mailbox_->WaitForWork(service_ != nullptr, due_);
    if (work.isStopping) {
        return;
    }
    // First, so that nothing of this turn is sent to a service that is known to be dead.
    if (work.isServiceDead) {
        Disconnect();
    }
    if (work.isLoadAnswered && service_ == nullptr) {
        loadEnds_ = {};
        if (work.loaded == nullptr) {
            mailbox_->SetState(ServiceState::UNAVAILABLE, RESULT_NO_SERVICE);
            due_ = Now() + RETRY_PAUSE;
        }
    }
    // A loaded object is used at once; without one, twice a second at most.
    if (service_ == nullptr && (work.loaded != nullptr || Now() >= due_)) {
        Connect(work.loaded);
    }
    if (service_ != nullptr) {
        if (work.report) {
            Send(*work.report);
        }
        if (work.isEventReceived || Now() >= due_) {
            Refresh();
        }
    }
    mailbox_->Deliver();
}

void SessionThread::Connect(const sptr<IRemoteObject>& loaded)
{
    // Before the attempt, which may take 2 s with a manager that hangs.
    const sptr<IRemoteObject> object = loaded != nullptr ? loaded : FindOrLoad();
    due_ = Now() + RETRY_PAUSE;
    if (object != nullptr && Adopt(object)) {
        due_ = Now();
    }
}

sptr<IRemoteObject> SessionThread::FindOrLoad()
{
    const sptr<ISystemAbilityManager> manager = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (manager == nullptr) {
        loadEnds_ = {};
        mailbox_->SetState(ServiceState::UNAVAILABLE, RESULT_NO_SERVICE);
        return nullptr;
    }
    sptr<IRemoteObject> running = manager->CheckAbility(VELTRA_SERVER_SA_ID);
    if (running != nullptr && running->IsAlive()) {
        return running;
    }
    // A load is pending. Its callback or, should that be lost, this deadline ends the wait.
    if (Now() < loadEnds_) {
        return nullptr;
    }
    if (manager->LoadAbility(VELTRA_SERVER_SA_ID, MakeRef<LoadAnswer>(mailbox_)) == ABILITY_OK) {
        loadEnds_ = Now() + LOAD_WAIT;
        mailbox_->SetState(ServiceState::STARTING, RESULT_OK);
    } else {
        mailbox_->SetState(ServiceState::UNAVAILABLE, RESULT_NO_SERVICE);
    }
    return nullptr;
}

bool SessionThread::Adopt(const sptr<IRemoteObject>& object)
{
    const sptr<IVeltraServerInterface> service = iface_cast<IVeltraServerInterface>(object);
    if (service == nullptr) {
        mailbox_->SetState(ServiceState::UNAVAILABLE, RESULT_TOKEN_REFUSED);
        return false;
    }
    notice_ = MakeRef<DeathNotice>(mailbox_, mailbox_->BeginConnection());
    if (!object->AddDeathRecipient(notice_)) {  // It is dead already.
        return false;
    }
    // From here on a death is reported to the mailbox under the number of this connection.
    mailbox_->NoteConnection();
    object_ = object;
    service_ = service;
    loadEnds_ = {};
    isSubscribed_ = false;
    return true;
}

void SessionThread::Subscribe()
{
    const MutexLock lock(subscribing_);
    if (mailbox_->IsStopping()) {  // The next session may have subscribed while this thread waited for the lock.
        return;
    }
    subscriber_ = this;
    const int32_t events = service_->RegisterCallBack(events_);
    int32_t gpu = RESULT_OK;
    if (events != RESULT_NO_SERVICE && mailbox_->options.gpuInterval.count() > 0) {
        gpu = service_->StartGetGpuPerfInfo(static_cast<int32_t>(mailbox_->options.gpuInterval.count()), batches_);
    }
    mailbox_->SetSubscriptions(events, gpu);
    // A refusal by the service is final and kept in the status; only a call that failed is tried again.
    isSubscribed_ = events != RESULT_NO_SERVICE && gpu != RESULT_NO_SERVICE;
    if (isSubscribed_ && gameInfo_) {
        gameInfo_->send(*service_);
    }
}

void SessionThread::Send(const Report& report)
{
    if (report.isGameInfo) {
        gameInfo_ = report;
    }
    const SteadyTime begin = Now();
    const int32_t result = report.send(*service_);
    mailbox_->NoteReport(result);
    // Any other result means that the service is there, which the next reading finds too.
    if (result == RESULT_NO_SERVICE) {
        Judge(result, begin);
    }
}

void SessionThread::Refresh()
{
    const SteadyTime begin = Now();
    due_ = begin + mailbox_->options.refreshInterval;
    if (!isSubscribed_) {
        Subscribe();
        if (!isSubscribed_) {
            Judge(RESULT_NO_SERVICE, begin);
            return;
        }
    }
    DeviceInfoResult answer = service_->GetDeviceInfo({});
    int32_t result = answer.retCode;
    if (result == RESULT_OK) {
        std::optional<DeviceDocument> document = ParseDeviceDocument(std::move(answer.result));
        if (document) {
            document->snapshot.number = ++readings_;
            // After the answer: the age of the values is at most this much too young, by the time of the reply.
            document->snapshot.readAt = Now();
            mailbox_->latest.Store(document->snapshot);
            mailbox_->SetDetails(std::move(document->details));
        } else {
            result = RESULT_BAD_DEVICE_STATE;
        }
    }
    Judge(result, begin);
}

void SessionThread::Judge(int32_t result, SteadyTime begin)
{
    if (result != RESULT_NO_SERVICE) {
        mailbox_->SetState(ServiceState::CONNECTED, result);
        // The result alone does not tell a service that hangs from one that died; the time does.
    } else if (Now() - begin >= HANGS_AFTER) {
        mailbox_->SetState(ServiceState::NOT_ANSWERING, result);
    }
    // Else the call has failed early, because the service died. The death notice follows.
}

void SessionThread::Disconnect()
{
    object_ = nullptr;
    notice_ = nullptr;
    service_ = nullptr;
    isSubscribed_ = false;
    due_ = {};
    mailbox_->SetState(ServiceState::STARTING, RESULT_NO_SERVICE);
}

// Each call may wait for 8 s, during which the thread may be abandoned.
void SessionThread::Unsubscribe()
try {
    if (service_ == nullptr) {
        return;
    }
    // First: the end of the service is of no interest any more.
    object_->RemoveDeathRecipient(notice_);
    const MutexLock lock(subscribing_);
    if (subscriber_ != this) {
        return;
    }
    if (isSubscribed_ && !mailbox_->IsAbandoned()) {
        service_->UnRegisterCallBack();
    }
    if (isSubscribed_ && mailbox_->options.gpuInterval.count() > 0 && !mailbox_->IsAbandoned()) {
        service_->StopGetGpuPerfInfo();
    }
} catch (const std::bad_alloc&) {  // The service finds out when it pushes the next event, or when this process ends.
}

}  // namespace TAVO::Veltra
