// SPDX-License-Identifier: Apache-2.0
// Subscribers receive what changed, in time, and nothing else.
#include "push/pusher.h"

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ipc/igpu_counter_native_callback.h"
#include "probes/machine_source.h"
#include "scenario/simulated_device.h"
#include "scenario/simulation.h"
#include "service/fake_clock.h"
#include "service/push_receiver.h"
#include "support/process.h"
#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

constexpr double NEVER = std::numeric_limits<double>::infinity();

std::string Event(const std::string& text, int32_t level, int32_t margin, int32_t trend = 0)
{
    return Push(IGpNapiEventCallback::GetDescriptor(), {text, level, 0, 0, 0, 0, 0, 0, margin, trend, 0});
}

// A machine with one sensor, and a pusher that reads it.
class PusherTest : public testing::Test {
protected:
    PusherTest() { SetTemperature(60); }

    void SetTemperature(int degrees)
    {
        root_.Write("sys/class/hwmon/hwmon0/name", "coretemp");
        root_.Write("sys/class/hwmon/hwmon0/temp1_max", "80000");
        root_.Write("sys/class/hwmon/hwmon0/temp1_input", std::to_string(degrees) + "000");
    }
    static MachineSettings With(const FakeClock& clock)
    {
        MachineSettings settings;
        settings.now = clock.Now();
        return settings;
    }
    void Play(const std::string& scenario)
    {
        root_.Write("scenario.json", scenario);
        simulation_.Start(std::make_shared<Scenario>(Scenario::Load(root_.Path() + "/scenario.json", 0)));
    }
    void Subscribe(Subject subject, uint64_t client, const PushReceiver& receiver, double interval = 0, double due = 0)
    {
        sptr<IRemoteObject> replaced;
        EXPECT_TRUE(subscriptions_->Add(subject, {client, receiver.Object(), interval, due, 0}, replaced));
    }
    // What the receiver has got once everything has gone out.
    std::vector<std::string> Tick(double now, const PushReceiver& receiver)
    {
        clock_.Set(std::chrono::milliseconds(std::lround(now * 1000)));
        pusher_->Tick(now);
        EXPECT_TRUE(TestSupport::WaitFor([this] { return pool_.IsIdle(); }));
        return receiver.WaitFor(0);
    }

    FakeClock clock_;
    const ScratchDir root_;
    const DeviceState device_{std::make_unique<MachineSource>(root_.Path(), With(clock_))};
    const sptr<Subscriptions> subscriptions_{new Subscriptions()};
    Simulation simulation_{ServiceClock()};  // outlives the deliveries of the pool
    WatchHub hub_{{}};
    const PushDesk desk_{simulation_, hub_};
    DeliveryPool pool_;
    SimulatedCounters gpu_{simulation_, [] { return nullptr; }};
    std::unique_ptr<Pusher> pusher_ = std::make_unique<Pusher>(device_, gpu_, simulation_, *subscriptions_, pool_,
                                                               desk_, [] { return Pusher::Periods(); });
};

TEST_F(PusherTest, NewSubscriberGetsTheStateAtOnceThenChangesAndByTheTimer)
{
    PushReceiver receiver;
    EXPECT_EQ(pusher_->Tick(0), NEVER);
    Subscribe(Subject::EVENTS, 1, receiver);
    std::vector<std::string> expected = {Event("deviceState", 2, 20)};
    EXPECT_EQ(Tick(0.5, receiver), expected);
    EXPECT_EQ(Tick(1.5, receiver), expected) << "nothing has changed";
    SetTemperature(69);
    EXPECT_EQ(Tick(2.0, receiver), expected) << "the device is looked at too often";
    EXPECT_EQ(pusher_->Tick(2.4), 2.5);
    expected.push_back(Event("deviceState", 2, 11));
    EXPECT_EQ(Tick(2.5, receiver), expected);
    EXPECT_EQ(Tick(12.4, receiver), expected);
    EXPECT_EQ(Tick(12.5, receiver).size(), 3U) << "ten seconds without a word";
    EXPECT_EQ(Tick(13, receiver).size(), 3U);
    PushReceiver late;
    Subscribe(Subject::EVENTS, 2, late);
    EXPECT_EQ(Tick(13.5, late), std::vector<std::string>{expected.back()});
    EXPECT_EQ(receiver.Count(), 3U) << "told of another's subscription";

    subscriptions_->Remove(Subject::EVENTS, 2);
    subscriptions_->Remove(Subject::EVENTS, 1);
    EXPECT_EQ(pusher_->Tick(30), NEVER);
    EXPECT_TRUE(pool_.IsIdle());
}

// The trip point is 80, so level 3 begins at 70 degrees.
TEST_F(PusherTest, JitterAroundAStepSendsNoEvents)
{
    PushReceiver receiver;
    SetTemperature(69);
    Subscribe(Subject::EVENTS, 1, receiver);
    std::vector<std::string> expected = {Event("deviceState", 2, 11)};
    EXPECT_EQ(Tick(0, receiver), expected);
    for (int second = 1; second < 10; ++second) {
        SetTemperature(69 + second % 2);
        EXPECT_EQ(Tick(second, receiver), expected) << second;
    }
}

// A drift that never exceeds the step between two readings is reported once it has added up.
TEST_F(PusherTest, ASlowDriftIsReported)
{
    PushReceiver receiver;
    Subscribe(Subject::EVENTS, 1, receiver);
    EXPECT_EQ(Tick(0, receiver).size(), 1U);
    SetTemperature(61);
    EXPECT_EQ(Tick(1, receiver).size(), 1U);
    SetTemperature(62);
    EXPECT_EQ(Tick(2, receiver).size(), 2U);
}

TEST_F(PusherTest, UnknownDeviceIsReportedAsUnknown)
{
    PushReceiver receiver;
    std::filesystem::remove_all(root_.Place("sys"));
    Subscribe(Subject::EVENTS, 1, receiver);
    EXPECT_EQ(Tick(0, receiver),
              std::vector<std::string>{Event("deviceState", -1, std::numeric_limits<int32_t>::min())});
}

TEST_F(PusherTest, StatesMissedByASlowSubscriberAreCountedAndTextsAreNotMissed)
{
    PushReceiver receiver;
    receiver.Block();
    Subscribe(Subject::EVENTS, 1, receiver);
    pusher_->Tick(0);
    ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    for (const double now : {10.0, 20.0, 30.0}) {
        pusher_->Tick(now);
    }
    EXPECT_TRUE(simulation_.AddText("first") && simulation_.AddText("second"));
    pusher_->Tick(31);
    receiver.Unblock();
    ASSERT_TRUE(TestSupport::WaitFor([this] { return pool_.IsIdle(); }));
    const std::vector<std::string> events = receiver.WaitFor(3);
    ASSERT_EQ(events.size(), 3U) << "texts of one moment replace each other";
    // The temperature has stayed for a while by then or it has not: the trend is left out of the comparison.
    EXPECT_EQ(events[1].substr(events[1].size() - 4), Bytes(Items{3}));
    EXPECT_EQ(events[2].substr(events[2].size() - 4), Bytes(Items{0}));
}

TEST_F(PusherTest, ScenarioEventsReachTheClientsRegisteredAtTheirTime)
{
    Play(R"({"events": [{"at": 1, "text": "early"}, {"at": 7, "text": "late"}, {"at": 7.25, "text": "later"}]})");
    PushReceiver receiver;
    EXPECT_EQ(pusher_->Tick(0), NEVER);
    Subscribe(Subject::EVENTS, 1, receiver);
    const std::vector<std::string> state = {Event("deviceState", 2, 20)};
    EXPECT_EQ(Tick(2, receiver), state) << "told what happened before it listened";
    EXPECT_EQ(Tick(6, receiver), state);
    EXPECT_EQ(pusher_->Tick(6.5), 7);
    EXPECT_EQ(Tick(7, receiver).back(), Event("late", 2, 20));
    EXPECT_EQ(Tick(7.1, receiver).size(), 2U) << "told twice";
    EXPECT_EQ(Tick(8, receiver).back(), Event("later", 2, 20));
}

TEST_F(PusherTest, FaultsSpoilWhatIsPushed)
{
    const std::string whole = Event("deviceState", 2, 20);
    MessageParcel token;
    token.WriteInterfaceToken(IGpNapiEventCallback::GetDescriptor());
    const size_t kept = token.GetDataSize();
    const Items items = {"deviceState", 2, 0, 0, 0, 0, 0, 0, 20, 0, 0};
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {R"("kind": "wrongToken")", {Push(IGpNapiEventCallback::GetDescriptor() + u"?", items)}},
        {R"("kind": "shortCallback")",
         {whole.substr(0, kept + (whole.size() - kept) / 2 / Parcel::SLOT * Parcel::SLOT)}},
        {R"("kind": "flood", "count": 3)", {whole, whole, whole}},
    };
    for (const auto& [fault, expected] : rows) {
        Play(R"({"faults": [{)" + std::string(fault) + "}]}");
        PushReceiver receiver;
        Subscribe(Subject::EVENTS, 1, receiver);
        EXPECT_EQ(Tick(0, receiver), expected) << fault;
        subscriptions_->Remove(Subject::EVENTS, 1);
    }
}

TEST_F(PusherTest, AFloodEndsWithItsFault)
{
    Play(R"({"faults": [{"kind": "flood", "count": 3}]})");
    PushReceiver receiver;
    receiver.Block();
    Subscribe(Subject::EVENTS, 1, receiver);
    pusher_->Tick(0);
    ASSERT_EQ(receiver.WaitFor(1).size(), 1U);
    simulation_.Change([](Playing& playing, double) { playing = Playing(); });
    receiver.Unblock();
    EXPECT_TRUE(TestSupport::WaitFor([this] { return pool_.IsIdle(); }));
    EXPECT_EQ(receiver.Count(), 1U);
}

TEST_F(PusherTest, GpuBatchesComeInTheirTimeUntilTheTotalIsReached)
{
    Play(R"({"gpu": {"count": 3, "intervalSeconds": 0.5, "total": 5, "counters": {"powerMilliwatts": 7000}}})");
    PushReceiver receiver(IGpuCounterNativeCallback::GetDescriptor());
    Subscribe(Subject::GPU_COUNTERS, 1, receiver, gpu_.Interval(16), 2);
    const auto sample = [](int64_t time, int64_t number) {
        const int64_t none = 0;
        return Items{1, time, number, 0, 0, 0, none, none, none, 0, 0, 0, 0, 7000, 0, 0, 1 << 9};
    };
    const auto batch = [](const Items& samples, int32_t count) {
        return Push(IGpuCounterNativeCallback::GetDescriptor(), Items{1, count} + samples);
    };
    std::vector<std::string> expected;
    EXPECT_EQ(pusher_->Tick(1.9), 2);
    EXPECT_TRUE(pool_.IsIdle());
    const int64_t second = 1000000000;
    expected.push_back(batch(sample(2 * second, 0) + sample(2 * second, 1) + sample(2 * second, 2), 3));
    EXPECT_EQ(Tick(2, receiver), expected);
    EXPECT_EQ(Tick(2.25, receiver), expected);
    expected.push_back(batch(sample(3 * second, 3) + sample(3 * second, 4), 2));
    EXPECT_EQ(Tick(3, receiver), expected);
    EXPECT_EQ(Tick(4, receiver), expected) << "more than the total";

    Play(R"({"gpu": {"intervalSeconds": 0.25, "total": 1, "counters": {"powerMilliwatts": 7000}}})");
    expected.push_back(batch(sample(4 * second + second / 8, 5), 1));
    EXPECT_EQ(Tick(4.125, receiver), expected) << "samples from before count to the total";
    EXPECT_EQ(pusher_->Tick(4.25), 4.375) << "the interval is that of the scenario before";
    EXPECT_EQ(Tick(4.375, receiver), expected) << "more than the total";
    simulation_.Change([](Playing& playing, double) { playing = Playing(); });
    EXPECT_EQ(pusher_->Tick(4.5), 4.375 + gpu_.Interval(0)) << "the interval is still that of the scenario";
}

}  // namespace
}  // namespace TAVO::Veltra
