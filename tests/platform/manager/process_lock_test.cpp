// SPDX-License-Identifier: Apache-2.0
// A place is taken exactly as long as the process lives that took it.
#include "manager/client/process_lock.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <fstream>

#include "manager/daemon/start_record.h"
#include "platform/manager/place_fixture.h"

namespace {

using namespace TAVO::Manager;
using ProcessLockTest = PlaceFixture;

TEST_F(ProcessLockTest, OneProcessHoldsItUntilItEndsAndAskingTakesNothing)
{
    EXPECT_EQ(Holder(), ProcessLock::NOBODY);
    EXPECT_FALSE(ProcessLock::IsFree(dir.Fd(), name)) << "what cannot be looked at is not known to be free";
    for (const bool hasChild : {false, true}) {  // which does not keep the lock of its dead parent
        SCOPED_TRACE(hasChild);
        TestSupport::Child holder = StartHolder(hasChild);
        EXPECT_EQ(Holder(), holder.Pid());
        EXPECT_FALSE(ProcessLock::IsFree(dir.Fd(), name));
        ProcessLock lock;
        EXPECT_FALSE(lock.Take(dir.Fd(), name));
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_FALSE(lock.IsHeld());
        Kill(holder);
        EXPECT_EQ(Holder(), ProcessLock::NOBODY);
        EXPECT_TRUE(ProcessLock::IsFree(dir.Fd(), name));
        EXPECT_TRUE(lock.Take(dir.Fd(), name));
    }
}

TEST_F(ProcessLockTest, ALinkInItsPlaceIsNotFollowed)
{
    ASSERT_EQ(::symlinkat("elsewhere", dir.Fd(), name.c_str()), 0);
    ProcessLock lock;
    EXPECT_FALSE(lock.Take(dir.Fd(), name));
    EXPECT_NE(::faccessat(dir.Fd(), "elsewhere", F_OK, 0), 0);
}

TEST_F(ProcessLockTest, WithoutADescriptorNobodyCanTellWhoHoldsIt)
{
    const int dirFd = dir.Fd();  // before: a sanitizer takes descriptors to check what objects are
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const pid_t holder = ProcessLock::Holder(dirFd, name);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(holder, ProcessLock::CANNOT_TELL);
}

TEST_F(ProcessLockTest, ARecordedStartIsKnownWhileThatVeryProcessLives)
{
    EXPECT_EQ(RecordedProcess(dir, ID), 0);
    TestSupport::Child child = StartHolder();
    const std::string pid = std::to_string(child.Pid());
    // The same pid with another start is another process.
    for (const std::string& text :
         {pid + " 1 and longer than the record that replaces it\n", std::string(), std::string("x"), pid,
          std::string("-1 5"), std::string("0 0"), std::string("99999999999999999999 1")}) {
        SCOPED_TRACE(text);
        std::ofstream(folder.Path() + "/7.started") << text;
        EXPECT_EQ(RecordedProcess(dir, ID), 0);
        ASSERT_TRUE(WriteStartRecord(dir, ID, child.Pid()));
        EXPECT_EQ(RecordedProcess(dir, ID), child.Pid());
        EXPECT_EQ(RecordedProcess(dir, ID + 1), 0);
    }
    Kill(child);
    EXPECT_EQ(RecordedProcess(dir, ID), 0);
}

}  // namespace
