// SPDX-License-Identifier: Apache-2.0
// Lines on their way out: none torn, none forged, none waited for.
#include "base/scrivo_sink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;

namespace TAVO {
namespace {

const std::string PREFIX = "[0-9][0-9]-[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\.[0-9]{3} [0-9]+ [0-9]+ ";

class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0); }
    ~Pipe()
    {
        CloseReader();
        CloseWriter();
    }
    int Reader() const { return ends_[0]; }
    int Writer() const { return ends_[1]; }
    void CloseReader() { Close(ends_[0]); }
    void CloseWriter() { Close(ends_[1]); }

    // What can be read at once.
    std::string Read()
    {
        fcntl(Reader(), F_SETFL, O_NONBLOCK);
        std::string all;
        char bytes[4096];
        for (ssize_t got = 0; (got = read(Reader(), bytes, sizeof(bytes))) > 0;) {
            all.append(bytes, static_cast<size_t>(got));
        }
        return all;
    }

private:
    static void Close(int& fd)
    {
        if (fd >= 0) {
            close(fd);
        }
        fd = -1;
    }
    int ends_[2] = {-1, -1};
};

class Folder {
public:
    Folder()
    {
        std::string name = testing::TempDir() + "scrivoXXXXXX";
        path_ = mkdtemp(name.data());
    }
    ~Folder() { std::filesystem::remove_all(path_); }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

std::string Content(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

struct ChildResult {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs the logging program to its end; its output is read afterwards only. `setting` is TAVO_LOG's, null for none.
ChildResult RunChild(std::string action, const char* setting)
{
    Pipe out;
    Pipe err;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, out.Writer(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, err.Writer(), STDERR_FILENO);
    std::string program = VELTRA_BIN_DIR "/base_log_child";
    char* arguments[] = {program.data(), action.data(), nullptr};
    std::string variable = setting == nullptr ? "OTHER=1" : "TAVO_LOG=" + std::string(setting);
    char* environment[] = {variable.data(), nullptr};
    pid_t child = -1;
    EXPECT_EQ(posix_spawn(&child, program.c_str(), &files, nullptr, arguments, environment), 0);
    posix_spawn_file_actions_destroy(&files);
    ChildResult result;
    EXPECT_EQ(waitpid(child, &result.status, 0), child);
    result.out = out.Read();
    result.err = err.Read();
    return result;
}

TEST(ScrivoLineTest, CarriesTimeOriginAndText)
{
    Pipe pipe;
    const int written = WriteScrivoLine(pipe.Writer(), {SCRIVO_WARN, 0xD00470A, "VeltraPerf", "hello"});
    const std::string line = pipe.Read();
    EXPECT_EQ(line.size(), static_cast<size_t>(written));
    EXPECT_THAT(line, MatchesRegex(PREFIX + "W D00470A/VeltraPerf: hello\n"));
    EXPECT_THAT(line, testing::HasSubstr(" " + std::to_string(getpid()) + " " + std::to_string(gettid()) + " "));
}

TEST(ScrivoLineTest, TextCannotForgeALineOrSteerATerminal)
{
    Pipe pipe;
    WriteScrivoLine(pipe.Writer(), {SCRIVO_INFO, 1, "T\nx",
                                    "a\nb\r\x1b[2J\x7f\xc2\x9b"
                                    "0m \xef\xbc\x8c\xc3\xa9"});
    EXPECT_THAT(pipe.Read(), EndsWith(" I 1/T\\nx: a\\nb\\x0d\\x1b[2J\\x7f\\xc2\x9b"
                                      "0m \xef\xbc\x8c\xc3\xa9\n"));
}

TEST(ScrivoLineTest, LongLinesAreCutForPipesOnly)
{
    const std::string text(60'000, 'x');
    Pipe pipe;
    EXPECT_EQ(WriteScrivoLine(pipe.Writer(), {SCRIVO_INFO, 1, "T", text.c_str()}), 4096);
    EXPECT_THAT(pipe.Read(), EndsWith("x\n"));

    const Folder folder;
    const int fd = open((folder / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    EXPECT_GT(WriteScrivoLine(fd, {SCRIVO_INFO, 1, "T", text.c_str()}), 60'000);
    close(fd);
    EXPECT_THAT(Content(folder / "log"), EndsWith(text + "\n"));
}

TEST(ScrivoLineTest, FullPipeTakesWholeLinesAndNeverWaits)
{
    Pipe pipe;
    const ScrivoLine line{SCRIVO_INFO, 1, "T", "a line of some length"};
    int taken = 0;
    while (WriteScrivoLine(pipe.Writer(), line) > 0) {
        ++taken;
    }
    EXPECT_GT(taken, 100);
    const std::string text = pipe.Read();
    EXPECT_EQ(Lines(text).size(), static_cast<size_t>(taken));
    EXPECT_THAT(text, EndsWith("a line of some length\n"));
    EXPECT_GT(WriteScrivoLine(pipe.Writer(), line), 0);
}

TEST(ScrivoLineTest, PipeWithoutAReaderIsAnErrorAndNoSignal)
{
    for (const bool wasPending : {false, true}) {
        Pipe pipe;
        pipe.CloseReader();
        sigset_t sigpipe;
        sigemptyset(&sigpipe);
        sigaddset(&sigpipe, SIGPIPE);
        if (wasPending) {  // the program's own signal stays
            pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
            pthread_kill(pthread_self(), SIGPIPE);
        }
        EXPECT_EQ(WriteScrivoLine(pipe.Writer(), {SCRIVO_INFO, 1, "T", "text"}), -1);
        sigset_t now;
        pthread_sigmask(SIG_SETMASK, nullptr, &now);
        EXPECT_EQ(sigismember(&now, SIGPIPE), wasPending ? 1 : 0);
        sigemptyset(&now);
        sigpending(&now);
        EXPECT_EQ(sigismember(&now, SIGPIPE), wasPending ? 1 : 0);
    }
    const timespec atOnce{};
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    sigtimedwait(&sigpipe, nullptr, &atOnce);
}

TEST(ScrivoJournal, DatagramHoldsTheFieldsAndAFullQueueIsAnError)
{
    const Folder folder;
    const std::string path = folder / "journal";
    const int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const ScrivoLine line{SCRIVO_ERROR, 0xD00470A, "Tag", "two\nlines"};
    EXPECT_EQ(SendScrivoLine(sender, path.c_str(), line), -1) << "nobody listens";

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_GT(SendScrivoLine(sender, path.c_str(), line), 0);
    char datagram[4096];
    const ssize_t size = recv(receiver, datagram, sizeof(datagram), 0);
    ASSERT_GT(size, 0);
    EXPECT_THAT(Lines({datagram, static_cast<size_t>(size)}),
                ElementsAre("PRIORITY=3", "TID=" + std::to_string(gettid()),
                            std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name,
                            "MESSAGE=D00470A/Tag: two\\nlines"));

    int sent = 0;
    while (SendScrivoLine(sender, path.c_str(), line) > 0) {
        ++sent;
    }
    EXPECT_GT(sent, 0);
    close(receiver);
    close(sender);
}

TEST(ScrivoProcess, FileGetsTheLevelsAskedForFromBeforeMainToAfterIt)
{
    const Folder folder;
    const std::string path = folder / "log";
    const ChildResult result = RunChild("levels", ("error," + path).c_str());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "0 lost\n");
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(Lines(Content(path)),
                ElementsAre(EndsWith("E D00470A/Child: error"), EndsWith("F D00470A/Child: fatal")));
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);

    EXPECT_EQ(RunChild("levels", (path + ",warn").c_str()).status, 0);
    EXPECT_THAT(Lines(Content(path)),
                ElementsAre(EndsWith("error"), EndsWith("fatal"), EndsWith("before main"), EndsWith("warn"),
                            EndsWith("error"), EndsWith("fatal"), EndsWith("after main")))
        << "appended, not overwritten";
}

TEST(ScrivoProcess, SettingsChooseSinkAndLevel)
{
    const struct {
        const char* setting;
        size_t lines;  // on stderr
        const char* out;
    } rows[] = {
        {"stderr", 5, "0 lost\n"},
        {"stderr,debug", 7, "0 lost\n"},
        {"debug,unknown,stderr,", 7, "0 lost\n"},
        {"off,stderr", 0, "0 lost\n"},
        {nullptr, 0, nullptr},  // not a terminal: whether the journal takes them is the machine's business
        {"/no/such/folder/log", 0, "4 lost\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.setting == nullptr ? "(unset)" : row.setting);
        const ChildResult result = RunChild("levels", row.setting);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Lines(result.err).size(), row.lines) << result.err;
        if (row.out != nullptr) {
            EXPECT_EQ(result.out, row.out);
        }
    }
}

TEST(ScrivoProcess, FloodIntoAFullPipeLosesLinesAndCountsThem)
{
    const ChildResult result = RunChild("flood", "stderr");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(Lines(result.err),
                testing::Each(MatchesRegex(PREFIX + "[WE] D00470A/Child: (x{150}|before main|after main)")));
}

TEST(ScrivoProcess, LinesOfSeveralThreadsDoNotMix)
{
    const Folder folder;
    EXPECT_EQ(RunChild("threads", (folder / "log").c_str()).status, 0);
    const std::vector<std::string> lines = Lines(Content(folder / "log"));
    EXPECT_EQ(lines.size(), 1000u + 2);
    for (const std::string& line : lines) {
        const std::string text = line.substr(line.rfind(' ') + 1);
        EXPECT_TRUE(text == "main" || text == std::string(static_cast<size_t>(text[0] - 'a') * 700 + 1, text[0]));
    }
}

TEST(ScrivoProcess, ForkedChildLogsToo)
{
    const Folder folder;
    EXPECT_EQ(RunChild("fork", (folder / "log").c_str()).status, 0);
    EXPECT_THAT(Lines(Content(folder / "log")),
                ElementsAre(EndsWith("before main"), EndsWith("forked child"), EndsWith("after main")));
}

}  // namespace
}  // namespace TAVO
