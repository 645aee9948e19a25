// SPDX-License-Identifier: Apache-2.0
// A place is taken exactly as long as the process lives that took it.
#include "manager/client/process_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

#include "manager/daemon/start_record.h"
#include "support/process.h"

namespace {

using namespace TAVO;
using namespace TAVO::Manager;
using TestSupport::Child;
using TestSupport::LinePipe;

class ProcessLockTest : public ::testing::Test {
protected:
    // A process that takes the lock when told to and holds it until its pipe ends.
    Child StartHolder()
    {
        return Child::Fork([this](LinePipe& parent) {
            ProcessLock lock;
            parent.Hear();
            parent.Say(lock.Take(dir.Fd(), "7.lock") ? "taken" : "failed");
            parent.Hear();
            return 0;
        });
    }

    TestSupport::PrivateRuntimeDir folder;
    std::string error;
    Transport::RuntimeDir dir = Transport::RuntimeDir::Open(folder.Path(), false, error);
};

TEST_F(ProcessLockTest, OneProcessHoldsItUntilItEndsAndAskingTakesNothing)
{
    EXPECT_EQ(ProcessLock::Holder(dir.Fd(), "7.lock"), ProcessLock::NOBODY);
    Child holder = StartHolder();
    EXPECT_EQ(holder.Ask("take"), "taken");
    EXPECT_EQ(ProcessLock::Holder(dir.Fd(), "7.lock"), holder.Pid());
    EXPECT_FALSE(ProcessLock::IsFree(dir.Fd(), "7.lock"));
    EXPECT_EQ(ProcessLock::Holder(dir.Fd(), "8.lock"), ProcessLock::NOBODY);
    EXPECT_FALSE(ProcessLock::IsFree(dir.Fd(), "8.lock")) << "what cannot be looked at is not known to be free";

    ProcessLock lock;
    EXPECT_FALSE(lock.Take(dir.Fd(), "7.lock"));
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_FALSE(lock.IsHeld());

    holder.Kill();
    EXPECT_EQ(holder.WaitForExit(), "signal 9");
    EXPECT_EQ(ProcessLock::Holder(dir.Fd(), "7.lock"), ProcessLock::NOBODY);
    EXPECT_TRUE(ProcessLock::IsFree(dir.Fd(), "7.lock"));
    EXPECT_TRUE(lock.Take(dir.Fd(), "7.lock"));
}

TEST_F(ProcessLockTest, AForkedChildDoesNotKeepTheLockOfItsDeadParent)
{
    Child holder = Child::Fork([this](LinePipe& parent) {
        ProcessLock lock;
        parent.Hear();
        parent.Say(lock.Take(dir.Fd(), "7.lock") && ::fork() >= 0 ? "taken" : "failed");
        parent.Hear();  // Both of them, until the test lets go of the pipe.
        return 0;
    });
    EXPECT_EQ(holder.Ask("take"), "taken");
    EXPECT_EQ(ProcessLock::Holder(dir.Fd(), "7.lock"), holder.Pid());
    holder.Kill();
    EXPECT_EQ(holder.WaitForExit(), "signal 9");
    EXPECT_EQ(ProcessLock::Holder(dir.Fd(), "7.lock"), ProcessLock::NOBODY);
}

TEST_F(ProcessLockTest, ALinkInItsPlaceIsNotFollowed)
{
    ASSERT_EQ(::symlinkat("elsewhere", dir.Fd(), "7.lock"), 0);
    ProcessLock lock;
    EXPECT_FALSE(lock.Take(dir.Fd(), "7.lock"));
    EXPECT_NE(::faccessat(dir.Fd(), "elsewhere", F_OK, 0), 0);
}

TEST_F(ProcessLockTest, WithoutADescriptorNobodyCanTellWhoHoldsIt)
{
    const int dirFd = dir.Fd();  // before: a sanitizer takes descriptors to check what objects are
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const pid_t holder = ProcessLock::Holder(dirFd, "7.lock");
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(holder, ProcessLock::CANNOT_TELL);
}

TEST_F(ProcessLockTest, ARecordedStartIsKnownWhileThatVeryProcessLives)
{
    EXPECT_EQ(RecordedProcess(dir, 7), 0);
    Child child = StartHolder();
    ASSERT_TRUE(WriteStartRecord(dir, 7, child.Pid()));
    EXPECT_EQ(RecordedProcess(dir, 7), child.Pid());
    EXPECT_EQ(RecordedProcess(dir, 8), 0);

    // The same pid with another start is another process.
    std::ofstream(folder.Path() + "/7.started") << child.Pid() << " 1 and longer than the record that replaces it\n";
    EXPECT_EQ(RecordedProcess(dir, 7), 0);

    ASSERT_TRUE(WriteStartRecord(dir, 7, child.Pid()));
    EXPECT_EQ(RecordedProcess(dir, 7), child.Pid());
    child.Kill();
    EXPECT_EQ(child.WaitForExit(), "signal 9");
    EXPECT_EQ(RecordedProcess(dir, 7), 0);

    for (const char* text : {"", "x", "12", "-1 5", "0 0", "99999999999999999999 1"}) {
        SCOPED_TRACE(text);
        std::ofstream(folder.Path() + "/7.started") << text;
        EXPECT_EQ(RecordedProcess(dir, 7), 0);
    }
}

}  // namespace
