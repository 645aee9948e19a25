// SPDX-License-Identifier: Apache-2.0
// The table knows the games of living processes, and no others.
#include "game_table.h"

#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/process.h"

namespace TAVO::Veltra {
namespace {

using TestSupport::Child;

// A process that waits to be killed.
Child Player()
{
    return Child::Fork([](TestSupport::LinePipe& parent) {
        parent.Receive(std::chrono::hours(1));
        return 0;
    });
}

void End(Child& player)
{
    player.Kill();
    EXPECT_EQ(player.WaitForExit(), "signal 9");
}

CallingPeer Peer(uint64_t session, pid_t pid = getpid())
{
    return {pid, getuid(), session};
}

void ExpectState(const GameState& actual, int32_t state, const std::string& bundleName)
{
    EXPECT_EQ(actual.state, state);
    EXPECT_EQ(actual.bundleName, bundleName);
}

TEST(GameTable, AnswersWithOnesOwnGameElseWithTheLastReported)
{
    GameTable games;
    ExpectState(games.Query(Peer(1)), GameTable::STATE_NO_GAME, "");
    EXPECT_TRUE(games.Report(Peer(1), 0, "com.one"));
    EXPECT_TRUE(games.Report(Peer(2), 1, "com.two"));
    ExpectState(games.Query(Peer(1)), 0, "com.one");
    ExpectState(games.Query(Peer(3)), 1, "com.two");
    EXPECT_TRUE(games.Report(Peer(1), 5, ""));  // keeps its name, and is the last one now
    ExpectState(games.Query(Peer(3)), 5, "com.one");
    EXPECT_EQ(games.BundleNames(), (std::set<std::string>{"com.one", "com.two"}));
    EXPECT_TRUE(games.Report(Peer(1), GameTable::STATE_NO_GAME, "com.one"));
    ExpectState(games.Query(Peer(1)), 1, "com.two");
    EXPECT_EQ(games.BundleNames(), (std::set<std::string>{"com.two"}));
}

TEST(GameTable, ForgetsAGameWhenItsProcessEnds)
{
    GameTable games;
    Child first = Player();
    Child second = Player();
    const pid_t pid = first.Pid();
    ASSERT_TRUE(games.Report(Peer(1, pid), 0, "com.first"));
    ASSERT_TRUE(games.Report(Peer(2, second.Pid()), 1, "com.second"));
    End(second);
    ExpectState(games.Query(Peer(3)), 0, "com.first");
    EXPECT_EQ(games.BundleNames(), (std::set<std::string>{"com.first"}));
    End(first);
    ExpectState(games.Query(Peer(3)), GameTable::STATE_NO_GAME, "");
    // A report that arrives after its sender's end is removed at the next query.
    EXPECT_FALSE(games.Report(Peer(4, pid), 0, "com.late"));
    ExpectState(games.Query(Peer(3)), GameTable::STATE_NO_GAME, "");
}

TEST(GameTable, IsBoundedAndForgetsTheLongestSilent)
{
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_max < GameTable::MAX_GAMES + 64) {
        GTEST_SKIP() << "the hard limit of descriptors is " << limit.rlim_max;
    }
    GameTable games;
    for (uint64_t session = 1; session <= GameTable::MAX_GAMES; ++session) {
        ASSERT_TRUE(games.Report(Peer(session), 0, std::to_string(session)));
    }
    ASSERT_TRUE(games.Report(Peer(1), 0, ""));  // no longer the silent one
    ASSERT_TRUE(games.Report(Peer(5000), 0, "new"));
    const std::set<std::string> names = games.BundleNames();
    EXPECT_EQ(names.size(), GameTable::MAX_GAMES);
    EXPECT_EQ(names.count("1"), 1U);
    EXPECT_EQ(names.count("2"), 0U);
    EXPECT_EQ(names.count("new"), 1U);
}

}  // namespace
}  // namespace TAVO::Veltra
