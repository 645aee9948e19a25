// SPDX-License-Identifier: Apache-2.0
#include "transport/heap_trim.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "support/process.h"
#include "transport/this_process.h"

namespace TransportTest {
namespace {

using namespace TAVO::Transport;

Instance InstanceOf(int peer)
{
    Instance instance;
    instance.bytes[0] = static_cast<uint8_t>(peer);
    instance.bytes[1] = 1;
    return instance;
}

// Fragments of a heap: freed, but for the last one, which keeps the rest from being returned.
struct Fragments {
    static constexpr size_t BYTES = 4096;
    static constexpr size_t TOTAL = size_t{16} << 20;

    Fragments()
    {
        while (blocks.size() < TOTAL / BYTES) {
            blocks.push_back(std::make_unique<std::vector<char>>(BYTES));
        }
        blocks.erase(blocks.begin(), blocks.end() - 1);
    }

    std::vector<std::unique_ptr<std::vector<char>>> blocks;
};

struct Case {
    const char* name;
    int peers;
    int left;
    bool isReturned;
};

class HeapTrimmed : public testing::TestWithParam<Case> {};

TEST_P(HeapTrimmed, MemoryIsReturnedWhenManySessionsHaveEnded)
{
    SessionTable table(ThisProcess::Get());
    HeapTrim trim(table);
    std::vector<std::shared_ptr<Session>> sessions;
    for (int peer = 0; peer < GetParam().peers; ++peer) {
        sessions.push_back(table.Ensure(InstanceOf(peer)).session);
    }
    const Clock::time_point start = Clock::now();
    trim.OnTick(start);
    EXPECT_EQ(trim.TickMilliseconds(), -1);
    const Fragments fragments;
    for (int peer = GetParam().left; peer < GetParam().peers; ++peer) {
        table.Remove(sessions[static_cast<size_t>(peer)]);
    }
    const size_t before = TestSupport::ResidentBytes(::getpid());
    trim.OnTick(start);
    trim.OnTick(start + std::chrono::milliseconds(999));
    EXPECT_GT(TestSupport::ResidentBytes(::getpid()) + Fragments::TOTAL / 2, before) << "while sessions may still end";
    EXPECT_EQ(trim.TickMilliseconds(), GetParam().isReturned ? 1000 : -1);
    trim.OnTick(start + std::chrono::milliseconds(1000));
    const bool isReturned = TestSupport::ResidentBytes(::getpid()) + Fragments::TOTAL / 2 < before;
    EXPECT_EQ(isReturned, GetParam().isReturned);
    EXPECT_EQ(trim.TickMilliseconds(), -1);
}

INSTANTIATE_TEST_SUITE_P(, HeapTrimmed,
                         testing::Values(Case{"AllOfMany", 64, 0, true}, Case{"HalfOfMany", 200, 100, true},
                                         Case{"LessThanHalf", 200, 101, false}, Case{"Few", 63, 0, false}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace TransportTest
