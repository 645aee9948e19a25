// SPDX-License-Identifier: Apache-2.0
#include "transport/session_table.h"

#include <gtest/gtest.h>

#include "transport/this_process.h"

namespace TransportTest {
namespace {

using namespace TAVO::Transport;

// The thread that acts on an end removes the session after another thread may have found it dead and replaced it.
TEST(SessionTable, RemovalOfADeadSessionSparesItsSuccessor)
{
    SessionTable table(ThisProcess::Get());
    Instance peer;
    peer.bytes[0] = 1;
    const auto [first, isFirstNew] = table.Ensure(peer);
    EXPECT_TRUE(isFirstNew);
    EXPECT_EQ(table.Find(peer), first);
    first->End();
    EXPECT_EQ(table.Find(peer), nullptr);
    const auto [second, isSecondNew] = table.Ensure(peer);
    EXPECT_TRUE(isSecondNew);
    EXPECT_FALSE(table.Ensure(peer).isNew);
    table.Remove(first);
    EXPECT_EQ(table.Find(peer), second);
    table.Remove(second);
    EXPECT_EQ(table.Count(), 0u);
}

}  // namespace
}  // namespace TransportTest
