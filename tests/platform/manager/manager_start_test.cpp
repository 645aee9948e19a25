// SPDX-License-Identifier: Apache-2.0
// A manager starts in a place that it can trust and that is free, or says in one line why it does not.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "platform/manager/ability_client.h"
#include "platform/manager/manager_fixture.h"

namespace ManagerTest {
namespace {

namespace fs = std::filesystem;
using TestSupport::Child;

class ManagerStart : public ManagerFixture {
protected:
    // Its only line of stderr, when it refuses to start as it should.
    std::string Refusal(Child manager)
    {
        const std::string line = manager.Pipe().Receive().value_or("");
        EXPECT_EQ(manager.Pipe().Receive(), std::nullopt) << "a second line";
        EXPECT_EQ(manager.WaitForExit(), "exit 2");
        return line;
    }
};

TEST_F(ManagerStart, RefusesAFullFileSystemWithOneLine)
{
    const std::string path = RuntimePath() + "/full";
    fs::create_directory(path);
    Child manager = Child::Start({"/bin/sh", "-c",
                                  "unshare -rm sh -c 'mount -t tmpfs -o mode=0700,nr_inodes=1 none \"$1\" || exit 99; "
                                  "exec \"$0\" --runtime-dir \"$1\" 2>&1' \"$1\" \"$2\"",
                                  "sh", TestSupport::ProgramPath("tavo_manager"), path});
    const std::string line = manager.Pipe().Receive().value_or("");
    const std::string end = manager.WaitForExit();
    if (end != "exit 2" && end != "exit 0") {
        GTEST_SKIP() << "needs a mount of its own: " << end;
    }
    EXPECT_EQ(end, "exit 2");
    EXPECT_NE(line.find("No space left"), std::string::npos) << line;
}

TEST_F(ManagerStart, RefusesADirectoryOrAFileThatItCannotTrust)
{
    const std::string open = RuntimePath() + "/open";
    fs::create_directory(open);
    std::string line = Refusal(LaunchManager({"--runtime-dir", open}));
    EXPECT_NE(line.find(open), std::string::npos) << line;
    EXPECT_NE(line.find("mode"), std::string::npos) << line;
    line = Refusal(LaunchManager({"--abilities", RuntimePath() + "/none"}));
    EXPECT_NE(line.find("/none: No such file"), std::string::npos) << line;
}

TEST_F(ManagerStart, AnInvalidAbilityFileDisablesThatAbilityAndNoOther)
{
    WriteAbility(ID, "serve");
    WriteAbilityFile("8.json", R"({"id": 8, "program": "/bin/true", "argument": []})");
    Child manager = LaunchManager({"--abilities", AbilityPath()});
    const std::string line = manager.Pipe().Receive().value_or("");
    EXPECT_NE(line.find(AbilityPath() + "/8.json: unknown key \"argument\""), std::string::npos) << line;
    ASSERT_TRUE(TestSupport::WaitFor([] { return Manager() != nullptr; }));
    EXPECT_EQ(Load(8), Status(TAVO::ABILITY_CANNOT_START));
    EXPECT_NE(PidIn(Load(ID)), 0);
}

TEST_F(ManagerStart, AnEmptyAbilityFolderLeavesAWarning)
{
    Child manager = LaunchManager({"--abilities", AbilityPath()});
    const std::string line = manager.Pipe().Receive().value_or("");
    EXPECT_NE(line.find("ability folder " + AbilityPath() + " has no ability file"), std::string::npos) << line;
}

TEST_F(ManagerStart, WithoutArgumentsTheFilesOfTheUserOverrideTheInstalledOnes)
{
    const std::string folder = RuntimePath() + "/config/tavo/abilities";
    fs::create_directories(folder);
    std::ofstream(folder + "/mine.json") << R"({"id": 4711, "program": "/bin/false"})";
    ::setenv("XDG_CONFIG_HOME", (RuntimePath() + "/config").c_str(), 1);
    Child manager = Child::Start({"tavo_manager"});
    ASSERT_TRUE(TestSupport::WaitFor([] { return Manager() != nullptr; }));
    std::string programs;
    for (const TAVO::AbilityDescription& ability : Manager()->DescribeAbilities()) {
        programs += std::to_string(ability.id) + " " + ability.program + "\n";
    }
    EXPECT_NE(programs.find("4711 /bin/false\n"), std::string::npos) << programs;
}

// A launcher may ignore SIGCHLD and leave descriptors open without close-on-exec.
TEST_F(ManagerStart, ServicesInheritNothingThatTheLauncherLeftBehind)
{
    const std::string program = RuntimePath() + "/list";
    std::ofstream(program)
        << "#!/bin/sh\nfor fd in /proc/$$/fd/*; do readlink $fd; done > " << RuntimePath()
        << "/descriptors\nwhile read -r line; do case $line in SigBlk*) echo \"$line\";; esac; done"
        << " < /proc/$$/status >> " << RuntimePath()
        << "/descriptors\nexit 3\n";  // No other program: while the shell starts one it blocks signals.
    fs::permissions(program, fs::perms::owner_all);
    WriteAbilityFile("1.json", R"({"id": 1, "program": ")" + program + R"("})");
    std::ofstream{RuntimePath() + "/secret"};
    // Not sh, which may leave SIGCHLD alone.
    Child manager =
        Child::Start({"/bin/bash", "-c", "trap '' CHLD; exec \"$0\" --abilities \"$1\" 2>&1 7<\"$2\" 8<\"$2\"",
                      TestSupport::ProgramPath("tavo_manager"), AbilityPath(), RuntimePath() + "/secret"});
    ASSERT_TRUE(TestSupport::WaitFor([] { return Manager() != nullptr; }));
    Load(1);
    const std::string line = manager.Pipe().Receive().value_or("");
    EXPECT_NE(line.find(program + " ended with exit status 3 before it registered"), std::string::npos) << line;
    std::ifstream file(RuntimePath() + "/descriptors");
    const std::string descriptors{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_NE(descriptors.find("/dev/null"), std::string::npos) << "stdin";
    EXPECT_EQ(descriptors.find("secret"), std::string::npos) << descriptors;
    EXPECT_NE(descriptors.find("SigBlk:\t0000000000000000"), std::string::npos) << descriptors;
}

TEST_F(ManagerStart, SecondManagerIsRefusedAndADeadOneIsReplaced)
{
    EXPECT_EQ(Manager(), nullptr);  // no socket
    Child first = StartManager();
    const std::string line = Refusal(LaunchManager());
    const std::string why = "another manager is running there (process " + std::to_string(first.Pid()) + ")";
    EXPECT_NE(line.find(why), std::string::npos) << line;
    EXPECT_NE(Manager(), nullptr) << "the second one disturbed the first";
    Crash(first);
    EXPECT_TRUE(TestSupport::WaitFor([] { return Manager() == nullptr; }));  // a socket without a listener
    EXPECT_EQ(Check(ID), "no manager");
    Child second = StartManager();
    EXPECT_EQ(Check(ID), "null");
}

TEST(ManagerStartLong, WorksWhereThePathIsLongerThanASocketAddress)
{
    const char* parent = std::getenv("TAVO_RUNTIME_DIR");
    const std::string deep = std::string(parent != nullptr ? parent : "/tmp") + "/" + std::string(120, 'd');
    ::setenv("TAVO_RUNTIME_DIR", deep.c_str(), 1);
    const TestSupport::PrivateRuntimeDir dir;
    Child manager = Child::Start({"tavo_manager"});
    EXPECT_TRUE(TestSupport::WaitFor([] { return Manager() != nullptr; }));
    EXPECT_EQ(Check(1), "null");
}

TEST_F(ManagerStart, SigtermRemovesTheSocket)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        Child manager = StartManager();
        EXPECT_TRUE(fs::exists(RuntimePath() + "/manager"));
        ::kill(manager.Pid(), signal);
        EXPECT_EQ(manager.WaitForExit(), "exit 0");
        EXPECT_FALSE(fs::exists(RuntimePath() + "/manager"));
    }
}

// A socket as a process leaves it that was killed.
void LeaveSocket(const std::string& path)
{
    fs::create_directories(fs::path(path).parent_path());
    fs::permissions(fs::path(path).parent_path(), fs::perms::owner_all);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = fs::relative(path);  // short enough
    name.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ::close(socket);
}

TEST_F(ManagerStart, RemovesTheSocketsOfTheDeadAndNothingElse)
{
    fs::current_path(RuntimePath());
    const std::string stale = RuntimePath() + "/p/0123456789abcdef0123456789abcdef";
    const std::string unpublished = stale + ".new";  // by a process that was killed before it could rename it
    const std::string fresh = RuntimePath() + "/p/0123456789abcdef0123456789abcde0.new";
    const std::string foreign = RuntimePath() + "/p/0123456789abcdef0123456789abcde";
    const std::string file = RuntimePath() + "/p/0123456789abcdef0123456789abcdee";
    for (const std::string& socket : {stale, unpublished, fresh, foreign}) {
        LeaveSocket(socket);
    }
    const timespec hourAgo[2] = {{::time(nullptr) - 3600, 0}, {::time(nullptr) - 3600, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, unpublished.c_str(), hourAgo, 0), 0);
    std::ofstream{file};
    WriteAbility(ID, "serve");
    Child manager = StartManager();
    EXPECT_FALSE(fs::exists(stale));
    EXPECT_FALSE(fs::exists(unpublished));
    EXPECT_TRUE(fs::exists(fresh)) << "its process may be about to rename it";
    EXPECT_TRUE(fs::exists(foreign));
    EXPECT_TRUE(fs::exists(file));

    // The end of a client starts a new search; sockets of living processes stay.
    Child client = StartClient();
    const int pid = PidIn(client.Ask("load 4711"));
    EXPECT_EQ(std::vector<pid_t>{pid}, Started());
    EXPECT_EQ(PidIn(client.Ask("check 4711")), pid);
    LeaveSocket(stale);
    client.Kill();
    EXPECT_TRUE(TestSupport::WaitFor([&stale] { return !fs::exists(stale); }));
    EXPECT_EQ(PidIn(Check(ID)), pid);
}

}  // namespace
}  // namespace ManagerTest
