// SPDX-License-Identifier: Apache-2.0
// This process as the hub, and a peer process whose object it calls.
#ifndef VELTRA_TESTS_TRANSPORT_PEER_FIXTURE_H
#define VELTRA_TESTS_TRANSPORT_PEER_FIXTURE_H

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <numeric>
#include <string>

#include "platform/transport/test_object.h"
#include "support/threads.h"

namespace TransportTest {

using TestSupport::Threads;

inline std::vector<int32_t> Counting(int32_t from, int32_t count)
{
    std::vector<int32_t> numbers(static_cast<size_t>(count));
    std::iota(numbers.begin(), numbers.end(), from);
    return numbers;
}

// Whether process `pid` maps shared memory of a lane that has this size.
inline bool MapsLaneMemory(pid_t pid, size_t size)
{
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        size_t from = 0;
        size_t end = 0;
        if (line.find("/memfd:tavo-lane") != std::string::npos &&
            std::sscanf(line.c_str(), "%zx-%zx", &from, &end) == 2 && end - from == size) {
            return true;
        }
    }
    return false;
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

    TestSupport::PrivateRuntimeDir dir_;
    sptr<TestObject> root_;
    TestSupport::Child peer_;
    sptr<IRemoteObject> object_;
};

}  // namespace TransportTest

#endif
