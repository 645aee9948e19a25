// SPDX-License-Identifier: Apache-2.0
// Subscriptions through the facade: which requests the service receives, what a refusal changes, and when callbacks are
// destroyed.
#include <sys/wait.h>
#include <unistd.h>

#include <future>
#include <new>
#include <thread>

#include "client/subscriptions_fixture.h"
#include "support/log_capture.h"

namespace TAVO::Veltra {
namespace {

constexpr int32_t NO_SERVICE = 1010310014;
constexpr int32_t NOT_REGISTERED = 1010310016;
constexpr int32_t GPU_REFUSED = 1010310019;
constexpr int32_t PRIORITIES_REFUSED = 1010310024;

// What is made of a service that takes the object, refuses with 9, or is not there.
enum class Service { TAKES, REFUSES, ABSENT };
enum class Step { REGISTER, UNREGISTER };

// The whole life of a registration, each way out of each state once. `requests` are the codes the service saw.
TEST_F(SubscriptionsTest, RegistrationGoesThroughItsStates)
{
    struct Row {
        Step step;
        int32_t key;
        Service service;
        int32_t result;
        std::vector<uint32_t> requests;
        int living;
        std::string log;  // the last line
    };
    const std::string none;
    const std::string success = "I RegisterGameCallback: register callback success!";
    const std::string joins = "W RegisterGameCallback: already register to SA, try to add callback list";
    const std::string notRegistered = "W UnRegisterGameCallback: not register!";
    const std::string ended = "I UnRegisterGameCallback: UnRegisterCallBack success!";
    const std::string refused = "W UnRegisterGameCallback: unregister failed!";
    const std::string absent = "W GetServiceProxy: Failed to load systemAbility.";
    const Row rows[] = {
        {Step::UNREGISTER, 1, Service::TAKES, NOT_REGISTERED, {}, 0, notRegistered},
        {Step::REGISTER, 1, Service::ABSENT, NO_SERVICE, {}, 0, absent},
        {Step::REGISTER, 1, Service::REFUSES, NOT_REGISTERED, {5}, 0, none},
        {Step::UNREGISTER, 1, Service::TAKES, NOT_REGISTERED, {}, 0, notRegistered},
        {Step::REGISTER, 1, Service::TAKES, 0, {5}, 1, success},
        {Step::REGISTER, 2, Service::TAKES, 0, {}, 2, joins},
        {Step::REGISTER, 3, Service::ABSENT, 0, {}, 3, joins},
        {Step::REGISTER, 3, Service::REFUSES, 0, {}, 3, joins},  // replaces
        {Step::UNREGISTER, 7, Service::TAKES, 0, {}, 3, none},   // an unknown key
        {Step::UNREGISTER, 1, Service::TAKES, 0, {}, 2, none},
        {Step::UNREGISTER, 3, Service::ABSENT, 0, {}, 1, none},
        {Step::UNREGISTER, 2, Service::ABSENT, NO_SERVICE, {}, 0, absent},  // registered, no keys
        {Step::REGISTER, 4, Service::TAKES, 0, {}, 1, joins},               // joins without a request
        {Step::UNREGISTER, 4, Service::ABSENT, NO_SERVICE, {}, 0, absent},
        {Step::UNREGISTER, 4, Service::TAKES, 0, {6}, 0, ended},
        {Step::UNREGISTER, 4, Service::TAKES, NOT_REGISTERED, {}, 0, notRegistered},
        {Step::REGISTER, 5, Service::TAKES, 0, {5}, 1, success},
        {Step::UNREGISTER, 5, Service::REFUSES, 1010310018, {6}, 0, refused},
        {Step::UNREGISTER, 5, Service::TAKES, NOT_REGISTERED, {}, 0, notRegistered},
        {Step::REGISTER, 6, Service::ABSENT, NO_SERVICE, {}, 0, absent},
        {Step::REGISTER, 6, Service::TAKES, 0, {5}, 1, success},
        {Step::UNREGISTER, 6, Service::TAKES, 0, {6}, 0, ended},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE("row " + std::to_string(i + 1));
        const auto service = RunAnswering(row.service == Service::REFUSES ? 9 : 0);
        if (row.service == Service::ABSENT) {
            manager_->SetRunning(nullptr);
        }
        const LogCapture log;
        EXPECT_EQ(row.step == Step::REGISTER ? Register(row.key) : client_.UnRegisterGameCallback(row.key), row.result);
        std::vector<uint32_t> requests;
        for (const FakeRemoteObject::Request& request : service->Requests()) {
            requests.push_back(request.code);
        }
        EXPECT_EQ(requests, row.requests);
        EXPECT_EQ(log.Lines().empty() ? "" : log.Lines().back(), row.log);
        if (row.service == Service::REFUSES && !row.requests.empty()) {
            kept_ = nullptr;  // a service that refused releases it
        }
        EXPECT_EQ(living_, row.living);
    }
}

TEST_F(SubscriptionsTest, LaterKeysAreReachedThroughTheObjectOfTheFirst)
{
    RunAnswering(0);
    Register(1);
    Register(2);
    EXPECT_EQ(CallBack(7, {}), 0);
    EXPECT_EQ(calls_, 2);
    client_.UnRegisterGameCallback(1);
    CallBack(7, {});
    EXPECT_EQ(calls_, 3);
}

// A refused end leaves an object that is not filled again; the next registration makes one of its own.
TEST_F(SubscriptionsTest, RefusedUnregistrationIsFollowedByAFreshObject)
{
    RunAnswering(0);
    Register(1);
    const sptr<IRemoteObject> first = kept_;
    RunAnswering(9);
    EXPECT_EQ(client_.UnRegisterGameCallback(1), 1010310018);
    EXPECT_EQ(first->GetStrongCount(), 3);  // here, in kept_ and in the proxy
    RunAnswering(0);
    EXPECT_EQ(Register(1), 0);
    EXPECT_TRUE(kept_ != first);
    EXPECT_EQ(first->GetStrongCount(), 1);
}

// A game that does not take turns: the failure of one registration takes the object of the other away.
TEST_F(SubscriptionsTest, RegisteredWithoutAnObjectIsReportedOnceAndMended)
{
    RunService([this](uint32_t, MessageParcel&, MessageParcel& reply) {
        RunAnswering(0);
        EXPECT_EQ(Register(2), 0);
        kept_ = nullptr;
        reply.WriteInt32(9);
        return 0;
    });
    EXPECT_EQ(Register(1), NOT_REGISTERED);
    EXPECT_EQ(living_, 0);
    ExpectLog({"W UnRegisterGameCallback: callbackPtr_ is nullptr!"},
              [this] { EXPECT_EQ(client_.UnRegisterGameCallback(2), 1010310008); });
    EXPECT_EQ(client_.UnRegisterGameCallback(2), NOT_REGISTERED);
}

TEST_F(SubscriptionsTest, RegistrationOfANullCallbackReachesTheService)
{
    const auto service = RunAnswering(0);
    EXPECT_EQ(client_.RegisterGameCallback(nullptr, 1), 0);
    EXPECT_EQ(CallBack(7, {}), 0);
    EXPECT_EQ(client_.UnRegisterGameCallback(1), 0);
    EXPECT_EQ(service->Requests().size(), 2u);
}

// The callback is there from the moment at which the start has succeeded, not before.
TEST_F(SubscriptionsTest, SamplesReachTheCallbackOnceTheStreamHasStarted)
{
    RunAnswering(0, [this] { EXPECT_EQ(CallBack(12, {0}), 0); });
    EXPECT_EQ(StartGpu(), 0);
    EXPECT_EQ(sentValue_, 42);
    EXPECT_EQ(calls_, 0);
    EXPECT_EQ(CallBack(12, {0}), 3);
    EXPECT_EQ(calls_, 1);

    RunAnswering(9);
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), GPU_REFUSED);
    EXPECT_EQ(CallBack(12, {0}), 3);

    RunAnswering(0);
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), 0);
    kept_ = nullptr;
    EXPECT_EQ(living_, 0);
}

TEST_F(SubscriptionsTest, NewStreamEndsThePreviousOneEvenIfItIsRefused)
{
    RunAnswering(0);
    StartGpu();
    for (const int32_t result : {0, 9}) {
        RunAnswering(result, [this] { EXPECT_EQ(living_, 1); });  // the new one
        EXPECT_EQ(StartGpu(), result == 0 ? 0 : GPU_REFUSED);
        EXPECT_EQ(living_, result == 0 ? 1 : 0);
        EXPECT_EQ(kept_->GetStrongCount(), result == 0 ? 2 : 1);
    }
}

// The latest query's object is kept here as well, so that its answer finds the callback whatever the service holds.
TEST_F(SubscriptionsTest, ResourceQueryKeepsItsObjectUntilTheNext)
{
    RunAnswering(0);
    EXPECT_EQ(QueryInfos(), 0);
    EXPECT_EQ(sentNames_, std::vector<std::string>{"app"});
    EXPECT_EQ(CallBack(18, {0}), 4);
    kept_ = nullptr;
    EXPECT_EQ(living_, 1);
    EXPECT_EQ(QueryInfos(), 0);
    EXPECT_EQ(living_, 1);

    RunAnswering(9);
    EXPECT_EQ(QueryInfos(), 9);
    EXPECT_EQ(kept_->GetStrongCount(), 1);
    kept_ = nullptr;
    EXPECT_EQ(living_, 0);
    EXPECT_EQ(QueryInfos({}), 1010310001);
    EXPECT_EQ(living_, 0);
}

// The priorities' object lives as long as the service wants; several queries may be under way.
TEST_F(SubscriptionsTest, PrioritiesObjectIsTheServicesAlone)
{
    RunAnswering(0, [this] { EXPECT_EQ(CallBack(16, {1, "now"}), 5); });
    EXPECT_EQ(QueryPrioritys(), 0);
    EXPECT_EQ(sentNames_, names_);
    EXPECT_EQ(calls_, 1);
    const sptr<IRemoteObject> first = kept_;
    EXPECT_EQ(QueryPrioritys(), 0);
    EXPECT_EQ(first->GetStrongCount(), 1);
    EXPECT_EQ(living_, 2);
    kept_ = first;
    EXPECT_EQ(living_, 1);
    EXPECT_EQ(CallBack(16, {0}), 5);

    RunAnswering(9);
    EXPECT_EQ(QueryPrioritys(), PRIORITIES_REFUSED);
    EXPECT_EQ(living_, 2);  // the service has released the first only
}

// The library destroys the callback of a failed call before the call returns.
TEST_F(SubscriptionsTest, CallbackOfAFailedCallIsDestroyedBeforeItReturns)
{
    const auto expectAll = [this](int32_t registered, int32_t started, int32_t queried, int32_t asked) {
        EXPECT_EQ(Register(1), registered);
        EXPECT_EQ(StartGpu(), started);
        EXPECT_EQ(QueryInfos(), queried);
        EXPECT_EQ(QueryPrioritys(), asked);
        EXPECT_EQ(living_, 0);
    };
    expectAll(NO_SERVICE, NO_SERVICE, NO_SERVICE, NO_SERVICE);
    manager_->SetRunning(FakeRemoteObject::FailingWith(IPC_BROKEN));
    expectAll(NOT_REGISTERED, GPU_REFUSED, NO_SERVICE, PRIORITIES_REFUSED);
    RunService([](uint32_t, MessageParcel&, MessageParcel&) -> int { throw std::bad_alloc(); });
    expectAll(NOT_REGISTERED, GPU_REFUSED, NO_SERVICE, PRIORITIES_REFUSED);
    EXPECT_EQ(client_.UnRegisterGameCallback(1), NOT_REGISTERED);
    FakeAbilityManager::Remove();
    expectAll(NO_SERVICE, NO_SERVICE, NO_SERVICE, NO_SERVICE);
}

// An event is being delivered at the fork, by a thread that the child does not have.
TEST_F(SubscriptionsTest, ForkedChildWaitsForNoDelivery)
{
    RunAnswering(0);
    std::promise<void> entered;
    std::promise<void> leave;
    client_.RegisterGameCallback(std::make_unique<EventFunction>([&](auto&) {
                                     entered.set_value();
                                     leave.get_future().wait();
                                     return 0;
                                 }),
                                 1);
    std::thread delivery([this] { CallBack(7, {}); });
    entered.get_future().wait();
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20);
        const bool isRefused =
            client_.RegisterGameCallback(nullptr, 2) == NO_SERVICE && client_.UnRegisterGameCallback(1) == NO_SERVICE;
        ::_exit(isRefused ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    leave.set_value();
    delivery.join();
}

TEST(SubscriptionsEnd, DestructorReleasesTheObjectsAndSendsNothing)
{
    const sptr<FakeAbilityManager> manager = FakeAbilityManager::Install();
    const auto service = MakeRef<FakeRemoteObject>();
    manager->SetRunning(service);
    std::vector<std::string> gone;
    const auto noting = [&gone](const char* name) {
        const std::shared_ptr<void> life(nullptr, [&gone, name](void*) { gone.emplace_back(name); });
        return [life](auto&) { return 0; };
    };
    {
        VeltraClientProxy proxy;
        proxy.LoadSystemAbilitySuccess(service);
        EXPECT_EQ(service->DeathRecipients(), 1u);
        proxy.RegisterGameCallback(std::make_unique<EventFunction>(noting("event")), 1);
        proxy.StartGetGpuPerfInfo(0, std::make_unique<GpuFunction>(noting("gpu")));
        proxy.QueryAppResourceInfos({"app"}, std::make_unique<ResourceInfoFunction>(noting("resource")));
    }
    EXPECT_EQ(gone, (std::vector<std::string>{"resource", "gpu", "event"}));
    EXPECT_EQ(service->Requests().size(), 3u);
    EXPECT_EQ(service->DeathRecipients(), 0u);
    EXPECT_EQ(service->GetStrongCount(), 2);  // the test and the manager
    FakeAbilityManager::Remove();
}

}  // namespace
}  // namespace TAVO::Veltra
