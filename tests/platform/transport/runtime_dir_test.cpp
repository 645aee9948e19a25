// SPDX-License-Identifier: Apache-2.0
// A runtime directory that others could write to is refused, with one line that says which and why.
#include "os/runtime_dir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <iterator>
#include <string>

#include "support/log_capture.h"
#include "support/process.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TAVO::Transport::RuntimeDir;

struct Place {
    const char* name;
    const char* make;  // a command; the path is in P
    bool create;
    const char* why;  // part of the line; null: accepted
};

constexpr Place PLACES[] = {
    {"ours", "mkdir -m 0700 $P", false, nullptr},
    {"ours, to be made", "true", true, nullptr},
    {"ours, made before", "mkdir -m 0700 $P", true, nullptr},
    {"ours, which inherited the setgid bit", "mkdir -m 2700 $P", false, nullptr},
    {"missing", "true", false, "cannot be opened"},
    {"open to all", "mkdir -m 0755 $P", true, "has mode 0755"},
    {"open to the group", "mkdir -m 0710 $P", false, "0700"},
    {"too closed to use", "mkdir -m 0500 $P", false, "0700"},
    {"a file", "touch $P", true, "no directory"},
    {"a link to a good one", "mkdir -m 0700 $P.real && ln -s $P.real $P", true, "symbolic link"},
    {"a link that leads nowhere", "ln -s nowhere $P", true, "symbolic link"},
    // Which only the superuser can make.
    {"another user's", "mkdir -m 0700 $P && chown 65534:65534 $P", true, "another user"},
};

TEST(RuntimeDirectory, OnlyAPrivateDirectoryOfThisUserIsAccepted)
{
    const TestSupport::PrivateRuntimeDir parent;
    const size_t rows = std::size(PLACES) - (::geteuid() == 0 ? 0 : 1);
    for (size_t row = 0; row < rows; ++row) {
        const Place& place = PLACES[row];
        SCOPED_TRACE(place.name);
        const std::string path = parent.Path() + "/" + std::to_string(row);
        ::setenv("P", path.c_str(), 1);
        ASSERT_EQ(std::system(place.make), 0);
        std::string error;
        const RuntimeDir dir = RuntimeDir::Open(path, place.create, error);
        EXPECT_EQ(dir.IsOpen(), place.why == nullptr) << error;
        if (place.why != nullptr) {
            EXPECT_NE(error.find(path), std::string::npos) << error;
            EXPECT_NE(error.find(place.why), std::string::npos) << error;
            EXPECT_EQ(error.find('\n'), std::string::npos) << error;
            continue;
        }
        EXPECT_EQ(::fcntl(dir.Fd(), F_GETFD), FD_CLOEXEC);
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0700u);
    }
    // It would be another directory for each process that runs elsewhere.
    std::string error;
    ASSERT_EQ(::chdir(parent.Path().c_str()), 0);
    ASSERT_EQ(::mkdir("relative", 0700), 0);
    EXPECT_FALSE(RuntimeDir::Open("relative", true, error).IsOpen());
    EXPECT_NE(error.find("is a relative path"), std::string::npos) << error;
}

// The path comes from the environment, the first variable that is set and not empty.
TEST(RuntimeDirectory, IsNamedByTheEnvironment)
{
    ::setenv("TAVO_RUNTIME_DIR", "/own", 1);
    ::setenv("XDG_RUNTIME_DIR", "/session", 1);
    EXPECT_EQ(RuntimeDir::DefaultPath(), "/own");
    ::setenv("TAVO_RUNTIME_DIR", "", 1);
    EXPECT_EQ(RuntimeDir::DefaultPath(), "/session/tavo");
    ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(RuntimeDir::DefaultPath(), "/run/user/" + std::to_string(::geteuid()) + "/tavo");
}

TEST(RuntimeDirectory, ManagerIsNotContactedInAnUntrustedDirectory)
{
    const TestSupport::PrivateRuntimeDir dir;
    ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);
    const TAVO::Veltra::LogCapture log;
    EXPECT_EQ(TAVO::Transport::ConnectManager(TestSupport::Clock::now() + std::chrono::seconds(10)), nullptr);
    EXPECT_GT(log.Count("runtime directory " + dir.Path() + ": has mode 0755"), 0);
}

}  // namespace
}  // namespace TransportTest
