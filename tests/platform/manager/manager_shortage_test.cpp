// SPDX-License-Identifier: Apache-2.0
// A process with no descriptors or threads left retries later and loses nothing.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "platform/manager/ability_client.h"
#include "platform/manager/manager_fixture.h"
#include "support/raw_peer.h"

namespace ManagerTest {
namespace {

using TestSupport::Child;
using TestSupport::WaitFor;

using ManagerShortage = ManagerFixture;

// What a client remembers of its checks stays right only if it is notified of changes.
TEST_F(ManagerShortage, NoticeOfAChangeThatCannotBeSentIsSentAgain)
{
    WriteAbility(ID, "serve", true);
    Child manager = StartManager();
    Child service = StartExternal();
    const std::string object = "object " + std::to_string(service.Pid());
    ASSERT_EQ(Check(ID), object);
    rlimit before{};
    ASSERT_EQ(::prlimit(manager.Pid(), RLIMIT_NOFILE, nullptr, &before), 0);
    const rlimit none{3, before.rlim_max};
    ASSERT_EQ(::prlimit(manager.Pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    EXPECT_EQ(service.Ask("remove " + std::to_string(ID)), "status 0");
    EXPECT_EQ(Check(ID), object) << "there was a connection for notices already";
    ASSERT_EQ(::prlimit(manager.Pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    EXPECT_TRUE(WaitFor([] { return Check(ID) == "null"; }));
}

// Otherwise the client keeps the references in its messages, until it has passed as many as it may.
TEST_F(ManagerShortage, EachRefusedLaneIsReportedClosed)
{
    Child manager = StartManager();
    TestSupport::RawPeer client(RuntimePath());
    ASSERT_TRUE(client.OpenSession());
    const rlim_t count = TestSupport::CountDescriptors(manager.Pid()) + 5;
    const rlimit few{count, count};
    ASSERT_EQ(::prlimit(manager.Pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    TestSupport::RawHello hello{.kind = TestSupport::RawHello::CALL, .instance = client.Instance()};
    for (hello.lane = 1; hello.lane <= 200; ++hello.lane) {
        // The hello arrives before the manager refuses the connection, or fails.
        if (client.Connect("manager").Send(hello.Encode())) {
            const auto closed = client.AwaitRecord(TestSupport::RawRecord::LANE_CLOSED);
            ASSERT_TRUE(closed && closed->a == hello.lane && closed->b == 0) << hello.lane;
        }
    }
}

// Otherwise its lock would block every load forever.
TEST_F(ManagerShortage, AServiceThatCanStartNoThreadStillRegistersAgain)
{
    WriteAbility(ID, "serve", true);
    Child manager = StartManager();
    Child service = StartExternal();
    EXPECT_EQ(PidIn(Check(ID)), service.Pid());  // so that it has a worker thread
    // Less address space than the stack of a thread needs, and enough for all else.
    size_t pages = 0;
    std::ifstream("/proc/" + std::to_string(service.Pid()) + "/statm") >> pages;
    ASSERT_GT(pages, 0u);
    const rlim_t size = pages * static_cast<size_t>(::sysconf(_SC_PAGESIZE)) + 4 * 1024 * 1024;
    const rlimit limit{size, size};
    ASSERT_EQ(::prlimit(service.Pid(), RLIMIT_AS, &limit, nullptr), 0);
    Crash(manager);
    manager = StartManager();
    EXPECT_TRUE(WaitFor([&service] { return Check(ID) == "object " + std::to_string(service.Pid()); }));
}

}  // namespace
}  // namespace ManagerTest
