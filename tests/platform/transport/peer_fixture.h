// SPDX-License-Identifier: Apache-2.0
// This process as the hub, and a peer process whose object it calls.
#ifndef VELTRA_TESTS_TRANSPORT_PEER_FIXTURE_H
#define VELTRA_TESTS_TRANSPORT_PEER_FIXTURE_H

#include <gtest/gtest.h>

#include <numeric>
#include <thread>

#include "platform/transport/test_object.h"

namespace TransportTest {

inline std::vector<int32_t> Counting(int32_t from, int32_t count)
{
    std::vector<int32_t> numbers(static_cast<size_t>(count));
    std::iota(numbers.begin(), numbers.end(), from);
    return numbers;
}

class PeerFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        root_ = ServeAsHub();
        peer_ = StartPeer("peer");
        object_ = Kept("peer");
    }

    static sptr<IRemoteObject> Kept(const std::string& name) { return World::Get().Kept(name); }

    std::vector<int32_t> NotesThere()
    {
        Call call(object_, TestCode::NOTES);
        EXPECT_EQ(call.Send(), TAVO::IPC_OK);
        std::vector<int32_t> notes;
        for (int32_t note = 0; call.reply.ReadInt32(note);) {
            notes.push_back(note);
        }
        return notes;
    }
    bool AwaitNotesThere(size_t count)
    {
        return TestSupport::WaitFor([this, count] { return NotesThere().size() >= count; });
    }

    // Runs `body(i)` in so many threads at once; returns when all are through.
    template <typename Body>
    static void InThreads(int count, Body body)
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&body, i] { body(i); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    TestSupport::PrivateRuntimeDir dir_;
    sptr<TestObject> root_;
    TestSupport::Child peer_;
    sptr<IRemoteObject> object_;
};

}  // namespace TransportTest

#endif
