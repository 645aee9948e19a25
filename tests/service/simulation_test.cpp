// SPDX-License-Identifier: Apache-2.0
// Commands change what is simulated as they say, in time, and their faults end.
#include "scenario/simulation.h"

#include <json/value.h>

#include <string>

#include <gtest/gtest.h>

#include "scenario/simulation_command.h"
#include "support/process.h"

namespace TAVO::Veltra {
namespace {

TEST(Simulation, IsDescribedAsOverOnceItsFaultsAre)
{
    Simulation simulation{ServiceClock(100)};
    PerformCommand(R"({"do": "fault", "kind": "refuse", "for": 3})", simulation);
    EXPECT_TRUE(TestSupport::WaitFor([&simulation] { return !DescribeSimulation(simulation)["active"].asBool(); }));
    EXPECT_GE(simulation.Clock().Now(), 3);
}

}  // namespace
}  // namespace TAVO::Veltra
