// SPDX-License-Identifier: Apache-2.0
// Callbacks that block, call the library or lose their subscription while they run, and services that end meanwhile.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

#include "support/log_capture.h"
#include "support/notes.h"
#include "system/system_fixture.h"
#include "tavo/ipc_threads.h"
#include "tavo/system_ability_manager_client.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

using TestSupport::Living;
using TestSupport::Notes;
using TestSupport::Noting;
using TestSupport::SharedNotes;

class CallbackLife : public SystemFixture {
protected:
    CallbackLife()
    {
        StartManager();
        service_ = StartTestService();
    }

    // A callback that says "in", waits for the test to open the gate and says "out".
    static auto Lingering(const SharedNotes& notes)
    {
        return [notes](auto&) {
            notes->Add("in");
            notes->WaitForOpening();
            notes->Add("out");
            return 0;
        };
    }

    const SharedNotes notes_ = std::make_shared<Notes>();
    Child service_;
};

// A thread that removes a callback may destroy what it uses: so it must be over by then.
TEST_F(CallbackLife, ReplacingACallbackWaitsUntilItReturns)
{
    const std::function<int32_t()> ways[] = {
        [this] { return client_.RegisterGameCallback(Noting<EventFunction>(notes_, "next"), 1); },
        [this] { return client_.UnRegisterGameCallback(1); },
    };
    for (const auto& takeAway : ways) {
        const SharedNotes notes = std::make_shared<Notes>();
        ASSERT_EQ(client_.RegisterGameCallback(Living<EventFunction>(notes, "events", Lingering(notes)), 1), 0);
        ASSERT_EQ(client_.RegisterGameCallback(Noting<EventFunction>(notes_, "beside"), 2), 0);
        service_.Pipe().Send("push events");
        EXPECT_EQ(notes->WaitFor(1).back(), "in");
        std::atomic<pid_t> remover{0};
        std::thread thread([&] {
            remover = ::gettid();
            EXPECT_EQ(takeAway(), 0);
            notes->Add("removed");
        });
        EXPECT_TRUE(WaitFor([&] { return notes->Count() > 1 || (remover != 0 && IsAsleep(remover)); }));
        notes->Open();
        thread.join();
        EXPECT_EQ(notes->WaitFor(4), (std::vector<std::string>{"in", "out", "~events", "removed"}));
        EXPECT_EQ(service_.Pipe().Receive(), "0 0");
    }
}

// The delivery holds what it calls.
TEST_F(CallbackLife, RemovedCallbackRunsToItsEnd)
{
    ASSERT_EQ(client_.StartGetGpuPerfInfo(0, Living<GpuFunction>(notes_, "gpu", Lingering(notes_))), 0);
    service_.Pipe().Send("push gpu");
    EXPECT_EQ(notes_->WaitFor(1).back(), "in");
    EXPECT_EQ(client_.StopGetGpuPerfInfo(), 0);
    notes_->Open();
    EXPECT_EQ(notes_->WaitFor(3), (std::vector<std::string>{"in", "out", "~gpu"}));
    EXPECT_EQ(service_.Pipe().Receive(), "0 0");
}

// All the pool's threads are inside callbacks, and yet a service is loaded for them.
TEST_F(CallbackLife, CallbacksMayCallWhileTheServiceIsDead)
{
    constexpr size_t CALLBACKS = TAVO::IpcThreads::DEFAULT_WORKERS;
    const auto call = [notes = notes_](auto&) {
        notes->Add("in");
        notes->WaitForOpening();
        notes->Add("result " + std::to_string(VeltraClient().CallAuth("again")));
        return 0;
    };
    for (size_t i = 0; i < CALLBACKS; ++i) {
        std::vector<std::string> slot = {"slot" + std::to_string(i)};
        ASSERT_EQ(client_.GetAppPrioritys(slot, Living<PrioritysFunction>(notes_, "prioritys", call)), 0);
        service_.Pipe().Send("push " + slot[0]);
    }
    EXPECT_EQ(notes_->WaitFor(CALLBACKS).size(), CALLBACKS);
    const auto object = ServiceObject();
    service_.Kill();
    EXPECT_EQ(service_.WaitForExit(), "signal 9");
    ASSERT_TRUE(IsKnownDead(object));
    const Clock::time_point begin = Clock::now();
    notes_->Open();
    // Each callback goes with the object that only the dead had held.
    const std::vector<std::string> notes = notes_->WaitFor(3 * CALLBACKS);
    EXPECT_LT(Clock::now() - begin, SOON);
    EXPECT_EQ(std::count(notes.begin(), notes.end(), "result 0"), static_cast<ptrdiff_t>(CALLBACKS));
    EXPECT_EQ(Starts(), 1);
}

class BlockedCallback : public SystemFixture {
protected:
    const SharedNotes notes_ = std::make_shared<Notes>();
};

// Played by the real service, which gives each object one push at a time.
TEST_F(BlockedCallback, BlockedCallbackDelaysNoOtherKindOfEvent)
{
    StartStory();
    const auto blocked = [notes = notes_](auto&) {
        notes->Add("blocked");
        notes->WaitForOpening();
        return 0;
    };
    ASSERT_EQ(client_.RegisterGameCallback(std::make_unique<EventFunction>(blocked), 1), 0);
    EXPECT_EQ(notes_->WaitFor(1).back(), "blocked");
    std::vector<std::string> names;
    ASSERT_EQ(client_.GetAppPrioritys(names, Noting<PrioritysFunction>(notes_, "prioritys")), 0);
    EXPECT_TRUE(notes_->WaitForNote("prioritys"));
    ASSERT_EQ(client_.QueryAppResourceInfos({"any"}, Noting<ResourceInfoFunction>(notes_, "infos")), 0);
    EXPECT_TRUE(notes_->WaitForNote("infos"));
    ASSERT_EQ(client_.StartGetGpuPerfInfo(0, Noting<GpuFunction>(notes_, "gpu")), 0);
    EXPECT_TRUE(notes_->WaitForNote("gpu"));
    EXPECT_EQ(client_.CallAuth("beside"), 0);
    notes_->Open();
    EXPECT_TRUE(notes_->WaitForNote("blocked", 1)) << "events do not go on";
}

// Holds the platform's delivery thread, which runs death notices, until it is released or destroyed.
class HeldDeliveries : public TAVO::SystemAbilityLoadCallbackStub {
public:
    void OnLoadSystemAbilitySuccess(int32_t, const TAVO::sptr<TAVO::IRemoteObject>&) override
    {
        notes_->Add("held");
        notes_->WaitForOpening();
    }
    void OnLoadSystemAbilityFail(int32_t) override {}
    Notes& Gate() { return *notes_; }

private:
    const SharedNotes notes_ = std::make_shared<Notes>();
};

class LateNotice : public SystemFixture {};

// The notice of a dead service comes when its successor is in use already: it costs no call.
TEST_F(LateNotice, StaleDeathNoticeFailsNoCall)
{
    constexpr int ROUNDS = 10;
    const LogCapture log;
    WriteAbility("system_test_service", {"serve"});
    StartManager();
    const auto manager = TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    ASSERT_TRUE(manager != nullptr);
    for (int round = 1; round <= ROUNDS; ++round) {
        SCOPED_TRACE(round);
        ASSERT_TRUE(IsServedAgain());  // by a load, which adds the death recipient
        const long noticesBefore = log.Count("OnRemoteSaDead");
        const auto held = TAVO::MakeRef<HeldDeliveries>();
        ASSERT_EQ(manager->LoadAbility(66006, held), TAVO::ABILITY_OK);
        ASSERT_EQ(held->Gate().WaitFor(1).size(), 1u);
        KillService();
        Child next = StartTestService();
        EXPECT_TRUE(WaitFor([&] { return client_.CallAuth("pid") == next.Pid(); }));
        EXPECT_EQ(log.Count("OnRemoteSaDead"), noticesBefore) << "the notice was to be late";
        std::thread caller([] { EXPECT_EQ(VeltraClient().CallAuth("hang"), 0); });
        EXPECT_EQ(next.Pipe().Receive(), "hanging");
        held->Gate().Open();
        EXPECT_TRUE(WaitFor([&] { return log.Count("OnRemoteSaDead") > noticesBefore; }));
        EXPECT_EQ(client_.CallAuth("pid"), next.Pid());
        next.Pipe().Send("release");
        caller.join();
        next.Kill();
        EXPECT_EQ(next.WaitForExit(), "signal 9");
    }
}

}  // namespace
}  // namespace SystemTest
