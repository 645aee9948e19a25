// SPDX-License-Identifier: Apache-2.0
// Processes that hold the place of an ability.
#ifndef VELTRA_TESTS_PLATFORM_MANAGER_PLACE_FIXTURE_H
#define VELTRA_TESTS_PLATFORM_MANAGER_PLACE_FIXTURE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "manager/client/process_lock.h"
#include "support/process.h"
#include "transport/runtime_dir.h"

class PlaceFixture : public ::testing::Test {
protected:
    static constexpr int32_t ID = 7;

    // Holds the place until its pipe ends, as a child does that it may have.
    TestSupport::Child StartHolder(bool hasChild = false)
    {
        auto holder = TestSupport::Child::Fork([this, hasChild](TestSupport::LinePipe& parent) {
            TAVO::Manager::ProcessLock lock;
            parent.Say(lock.Take(dir.Fd(), name) && (!hasChild || ::fork() >= 0) ? "taken" : "failed");
            parent.Hear();
            return 0;
        });
        EXPECT_EQ(holder.Pipe().Hear(), "taken");
        return holder;
    }
    pid_t Holder() const { return TAVO::Manager::ProcessLock::Holder(dir.Fd(), name); }
    static void Kill(TestSupport::Child& holder)
    {
        holder.Kill();
        EXPECT_EQ(holder.WaitForExit(), "signal 9");
    }

    TestSupport::PrivateRuntimeDir folder;
    std::string error;
    TAVO::Transport::RuntimeDir dir = TAVO::Transport::RuntimeDir::Open(folder.Path(), false, error);
    const std::string name = TAVO::Manager::AbilityLockName(ID);
};

#endif
