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

void MakeDirectory(const std::string& path, mode_t mode)
{
    EXPECT_EQ(::mkdir(path.c_str(), mode), 0);
}

struct Place {
    const char* name;
    std::function<void(const std::string& path)> make;
    bool create;
    const char* why;  // part of the line; null: accepted
};

const std::vector<Place> PLACES = {
    {"ours", [](const std::string& path) { MakeDirectory(path, 0700); }, false, nullptr},
    {"ours, to be made", [](const std::string&) {}, true, nullptr},
    {"ours, made before", [](const std::string& path) { MakeDirectory(path, 0700); }, true, nullptr},
    {"missing", [](const std::string&) {}, false, "cannot be opened"},
    {"open to all", [](const std::string& path) { MakeDirectory(path, 0755); }, true, "0700"},
    {"open to the group", [](const std::string& path) { MakeDirectory(path, 0710); }, false, "0700"},
    {"too closed to use", [](const std::string& path) { MakeDirectory(path, 0500); }, false, "0700"},
    {"a file", [](const std::string& path) { std::ofstream file(path); }, true, "no directory"},
    {"a link to a good one",
     [](const std::string& path) {
         MakeDirectory(path + ".real", 0700);
         EXPECT_EQ(::symlink((path + ".real").c_str(), path.c_str()), 0);
     },
     true, "symbolic link"},
    {"a link that leads nowhere", [](const std::string& path) { EXPECT_EQ(::symlink("nowhere", path.c_str()), 0); },
     true, "symbolic link"},
    {"another user's",  // which only the superuser can make
     [](const std::string& path) {
         MakeDirectory(path, 0700);
         EXPECT_EQ(::chown(path.c_str(), 65534, 65534), 0);
     },
     true, "another user"},
};

TEST(RuntimeDirectory, OnlyAPrivateDirectoryOfOursIsAccepted)
{
    const TestSupport::PrivateRuntimeDir parent;
    const size_t rows = PLACES.size() - (::geteuid() == 0 ? 0 : 1);
    for (size_t row = 0; row < rows; ++row) {
        const Place& place = PLACES[row];
        SCOPED_TRACE(place.name);
        const std::string path = parent.Path() + "/" + std::to_string(row);
        place.make(path);
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
        EXPECT_EQ(status.st_mode & 07777, 0700u);
    }
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
