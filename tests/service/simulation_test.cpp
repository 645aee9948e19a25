// SPDX-License-Identifier: Apache-2.0
// Commands change what is simulated as they say, in time, and their faults end.
#include "scenario/simulation.h"

#include <json/value.h>

#include <atomic>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "scenario/simulation_command.h"
#include "support/process.h"
#include "support/threads.h"

namespace TAVO::Veltra {
namespace {

TEST(Simulation, IsDescribedAsOverOnceItsFaultsAre)
{
    Simulation simulation{ServiceClock(100)};
    PerformCommand(R"({"do": "fault", "kind": "refuse", "for": 3})", simulation);
    EXPECT_TRUE(TestSupport::WaitFor([&simulation] { return !DescribeSimulation(simulation)["active"].asBool(); }));
    EXPECT_GE(simulation.Clock().Now(), 3);
}

TEST(Simulation, ASeekSkipsADeathThatIsOverThen)
{
    Simulation simulation{ServiceClock()};
    PerformCommand(R"({"do": "load", "scenario": {"faults": [{"kind": "die", "at": 5, "for": 1}]}})", simulation);
    const std::pair<const char*, bool> rows[] = {{"0", true}, {"5.5", true}, {"6", false}, {"100", false}, {"4", true}};
    for (const auto& [seconds, isToDie] : rows) {
        PerformCommand(R"({"do": "seek", "seconds": )" + std::string(seconds) + "}", simulation);
        EXPECT_EQ(std::isfinite(simulation.Current()->DeathTime()), isToDie) << seconds;
    }
}

TEST(Simulation, ASeekSkipsEventsBeforeItsTimeOnly)
{
    using Texts = std::vector<std::string>;
    Simulation simulation{ServiceClock()};
    PerformCommand(R"({"do": "load", "scenario": {"events": [{"at": 0, "text": "first"}, {"at": 10, "text": "skipped"},
                       {"at": 20, "text": "here"}, {"at": 2000, "text": "later"}]}})",
                   simulation);
    PerformCommand(R"({"do": "pause"})", simulation);
    const std::pair<const char*, Texts> rows[] = {{"20", {"here"}}, {"20.5", {}}, {"0", {"first"}}};
    for (const auto& [seconds, texts] : rows) {
        PerformCommand(R"({"do": "seek", "seconds": )" + std::string(seconds) + "}", simulation);
        EXPECT_EQ(simulation.TakeTexts(simulation.Clock().Now()), texts) << seconds;
        EXPECT_EQ(simulation.TakeTexts(simulation.Clock().Now()), Texts()) << seconds;
    }
}

TEST(Simulation, ACommandToDieDoesNotReturn)
{
    Simulation simulation{ServiceClock()};
    PerformCommand(R"({"do": "fault", "kind": "die", "at": 1000})", simulation);
    PerformCommand(R"({"do": "fault", "kind": "die", "operation": "CallAuth"})", simulation);
    TestSupport::Child child = TestSupport::Child::Fork([&simulation](TestSupport::LinePipe&) {
        PerformCommand(R"({"do": "fault", "kind": "die"})", simulation);
        return 0;
    });
    EXPECT_EQ(child.WaitForExit(), "signal 9");
}

// Requests whose callers have given up would occupy all workers.
TEST(Simulation, NoRequestIsHeldBackForLong)
{
    for (const char* kind : {"hang", "lateReply"}) {
        SCOPED_TRACE(kind);
        Simulation simulation(ServiceClock(2), 0.05);
        PerformCommand(R"({"do": "fault", "seconds": 3600, "kind": ")" + std::string(kind) + "\"}", simulation);
        MessageParcel reply;
        EXPECT_EQ(simulation.Before(ServerCode::CALL_AUTH), 0);
        simulation.After(ServerCode::CALL_AUTH, reply);
        EXPECT_GE(simulation.Clock().Now(), 0.1);
    }
}

TEST(Simulation, NoOtherCommandShortensALateReply)
{
    Simulation simulation{ServiceClock(100)};
    PerformCommand(R"({"do": "fault", "kind": "lateReply", "seconds": 30})", simulation);
    std::atomic<bool> isSent{false};
    TestSupport::Threads tool(1, [&](size_t) {
        while (!isSent) {
            PerformCommand(R"({"do": "set", "values": {"tempLevel": 1}})", simulation);
        }
    });
    MessageParcel reply;
    const double begin = simulation.Clock().Now();
    simulation.After(ServerCode::CALL_AUTH, reply);
    isSent = true;
    tool.Join();
    EXPECT_GE(simulation.Clock().Now() - begin, 30);
}

}  // namespace
}  // namespace TAVO::Veltra
