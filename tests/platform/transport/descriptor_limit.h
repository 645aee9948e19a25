// SPDX-License-Identifier: Apache-2.0
// Processes that run out of descriptors, and what they use of the processor then.
#ifndef VELTRA_TESTS_TRANSPORT_DESCRIPTOR_LIMIT_H
#define VELTRA_TESTS_TRANSPORT_DESCRIPTOR_LIMIT_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "support/process.h"

namespace TransportTest {

constexpr rlim_t FEW = 64;
inline void LimitDescriptors(pid_t pid, rlim_t count)
{
    rlimit limit{};
    ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, nullptr, &limit), 0);
    limit.rlim_cur = std::min(count, limit.rlim_max);
    ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, &limit, nullptr), 0);
}

// While it lives, this process can open nothing.
class NoDescriptorLeft {
public:
    NoDescriptorLeft()
    {
        LimitDescriptors(::getpid(), FEW);
        for (int fd = 0; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            taken_.push_back(fd);
        }
    }
    ~NoDescriptorLeft()
    {
        for (const int fd : taken_) {
            ::close(fd);
        }
        LimitDescriptors(::getpid(), RLIM_INFINITY);
    }
    NoDescriptorLeft(const NoDescriptorLeft&) = delete;
    NoDescriptorLeft& operator=(const NoDescriptorLeft&) = delete;

private:
    std::vector<int> taken_;
};

// Runs `body`, in which a process may not use much of the processor: spinning takes all of one, and a good part of it on
// a machine that is busy.
template <typename Body>
void ExpectIdle(pid_t pid, Body body)
{
    const auto start = TestSupport::Clock::now();
    const auto used = TestSupport::ProcessorTime(pid);
    body();
    const auto passed = TestSupport::Clock::now() - start;
    ASSERT_GE(passed, std::chrono::seconds(1)) << "too short to tell";
    EXPECT_LT(TestSupport::ProcessorTime(pid) - used, passed / 5) << "it spins";
}

}  // namespace TransportTest

#endif
