// SPDX-License-Identifier: Apache-2.0
// A runtime directory that others could write to is refused, with one line that says which and why.
#include "transport/runtime_dir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <functional>

#include "support/process.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TAVO::Transport::RuntimeDir;

struct Place {
    const char* name;
    std::function<void(const std::string& path)> make;
    bool create;
    const char* why;  // part of the line; null: accepted
};

const std::vector<Place> PLACES = {
    {"ours", [](const std::string& path) { ::mkdir(path.c_str(), 0700); }, false, nullptr},
    {"ours, to be made", [](const std::string&) {}, true, nullptr},
    {"ours, made before", [](const std::string& path) { ::mkdir(path.c_str(), 0700); }, true, nullptr},
    {"missing", [](const std::string&) {}, false, "cannot be opened"},
    {"open to all", [](const std::string& path) { ::mkdir(path.c_str(), 0755); }, true, "0700"},
    {"open to the group", [](const std::string& path) { ::mkdir(path.c_str(), 0710); }, false, "0700"},
    {"too closed to use", [](const std::string& path) { ::mkdir(path.c_str(), 0500); }, false, "0700"},
    {"a file", [](const std::string& path) { std::ofstream file(path); }, true, "no directory"},
    {"a link to a good one",
     [](const std::string& path) {
         ::mkdir((path + ".real").c_str(), 0700);
         EXPECT_EQ(::symlink((path + ".real").c_str(), path.c_str()), 0);
     },
     true, "symbolic link"},
    {"a link that leads nowhere", [](const std::string& path) { EXPECT_EQ(::symlink("nowhere", path.c_str()), 0); },
     true, "symbolic link"},
};

void ExpectRefused(const RuntimeDir& dir, const std::string& error, const std::string& path, const std::string& why)
{
    EXPECT_FALSE(dir.IsOpen());
    EXPECT_NE(error.find(path), std::string::npos) << error;
    EXPECT_NE(error.find(why), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
}

TEST(RuntimeDirectory, OnlyAPrivateDirectoryOfOursIsAccepted)
{
    const TestSupport::PrivateRuntimeDir parent;
    for (size_t row = 0; row < PLACES.size(); ++row) {
        const Place& place = PLACES[row];
        SCOPED_TRACE(place.name);
        const std::string path = parent.Path() + "/" + std::to_string(row);
        place.make(path);
        std::string error;
        const RuntimeDir dir = RuntimeDir::Open(path, place.create, error);
        if (place.why != nullptr) {
            ExpectRefused(dir, error, path, place.why);
            continue;
        }
        EXPECT_TRUE(dir.IsOpen()) << error;
        EXPECT_EQ(::fcntl(dir.Fd(), F_GETFD), FD_CLOEXEC);
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0700u);
    }
}

TEST(RuntimeDirectory, OneOfAnotherUserIsRefused)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can make a directory of another user";
    }
    const TestSupport::PrivateRuntimeDir parent;
    const std::string path = parent.Path() + "/theirs";
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
    std::string error;
    const RuntimeDir dir = RuntimeDir::Open(path, true, error);
    ExpectRefused(dir, error, path, "another user");
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

TEST(RuntimeDirectory, WithoutATrustedOneThereIsNoManager)
{
    const TestSupport::PrivateRuntimeDir dir;
    ASSERT_EQ(::chmod(dir.Path().c_str(), 0755), 0);
    EXPECT_EQ(TAVO::Transport::ConnectManager(TestSupport::Clock::now() + std::chrono::seconds(10)), nullptr);
}

}  // namespace
}  // namespace TransportTest
