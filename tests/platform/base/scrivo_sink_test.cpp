// SPDX-License-Identifier: Apache-2.0
// Lines on their way out: none torn, none forged, none waited for.
#include "base/scrivo_sink.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/process.h"

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
        close(ends_[1]);
    }
    int Writer() const { return ends_[1]; }
    void CloseReader() { close(std::exchange(ends_[0], -1)); }

    // What can be read at once.
    std::string Read()
    {
        fcntl(ends_[0], F_SETFL, O_NONBLOCK);
        std::string all;
        char bytes[4096];
        for (ssize_t got = 0; (got = read(ends_[0], bytes, sizeof(bytes))) > 0;) {
            all.append(bytes, static_cast<size_t>(got));
        }
        return all;
    }

private:
    int ends_[2] = {-1, -1};
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
    std::string end;
    std::string out;
    std::string err;
};

// Runs the logging program to its end; its output is read afterwards only. `setting` is TAVO_LOG's, null for none.
ChildResult RunChild(const char* action, const char* setting)
{
    Pipe out;
    Pipe err;
    TestSupport::Child child = TestSupport::Child::Fork([&](TestSupport::LinePipe&) {
        dup2(out.Writer(), STDOUT_FILENO);
        dup2(err.Writer(), STDERR_FILENO);
        setting != nullptr ? setenv("TAVO_LOG", setting, 1) : unsetenv("TAVO_LOG");
        std::vector<std::string> command = TestSupport::ProgramCommand("base_log_child");
        command.emplace_back(action);
        std::vector<char*> arguments;
        for (std::string& word : command) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        return execv(arguments[0], arguments.data());
    });
    return {child.WaitForExit(), out.Read(), err.Read()};
}

class ScrivoSinkTest : public testing::Test {
protected:
    Pipe pipe_;
    const TestSupport::PrivateRuntimeDir folder_;  // any private folder does
    const std::string path_ = folder_.Path() + "/log";
};

TEST_F(ScrivoSinkTest, CarriesTimeAndOriginAndCannotForgeALineOrSteerATerminal)
{
    const int written = WriteScrivoLine(pipe_.Writer(), {SCRIVO_WARN, 0xD00470A, "T\nx",
                                                         "a\nb\r\x1b[2J\x7f\xc2\x9b"
                                                         "0m \xef\xbc\x8c\xc3\xa9"});
    const std::string line = pipe_.Read();
    EXPECT_EQ(line.size(), static_cast<size_t>(written));
    EXPECT_THAT(line.substr(0, line.find('/') + 1), MatchesRegex(PREFIX + "W D00470A/"));
    EXPECT_THAT(line, EndsWith(" " + std::to_string(getpid()) + " " + std::to_string(gettid()) +
                               " W D00470A/T\\nx: a\\nb\\x0d\\x1b[2J\\x7f\\xc2\x9b"
                               "0m \xef\xbc\x8c\xc3\xa9\n"));
}

TEST_F(ScrivoSinkTest, LongLinesAreCutForPipesOnly)
{
    const std::string text(60'000, 'x');
    EXPECT_EQ(WriteScrivoLine(pipe_.Writer(), {SCRIVO_INFO, 1, "T", text.c_str()}), 4096);
    EXPECT_THAT(pipe_.Read(), EndsWith("x\n"));
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    EXPECT_GT(WriteScrivoLine(fd, {SCRIVO_INFO, 1, "T", text.c_str()}), 60'000);
    close(fd);
    EXPECT_THAT(Content(path_), EndsWith(text + "\n"));
}

TEST_F(ScrivoSinkTest, PipeWithoutAReaderIsAnErrorAndNoSignal)
{
    sigset_t sigpipe;
    sigemptyset(&sigpipe);
    sigaddset(&sigpipe, SIGPIPE);
    pipe_.CloseReader();
    for (const bool wasPending : {false, true}) {
        if (wasPending) {  // the program's own signal stays
            pthread_sigmask(SIG_BLOCK, &sigpipe, nullptr);
            pthread_kill(pthread_self(), SIGPIPE);
        }
        EXPECT_EQ(WriteScrivoLine(pipe_.Writer(), {SCRIVO_INFO, 1, "T", "text"}), -1);
        sigset_t blocked;
        sigset_t pending;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        sigpending(&pending);
        EXPECT_EQ(sigismember(&blocked, SIGPIPE), wasPending ? 1 : 0);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), wasPending ? 1 : 0);
    }
}

TEST_F(ScrivoSinkTest, FileAtItsLimitIsAnErrorAndNoSignal)
{
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const rlimit none{0, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    EXPECT_EQ(WriteScrivoLine(fd, {SCRIVO_INFO, 1, "T", "text"}), -1);
    close(fd);
}

TEST_F(ScrivoSinkTest, DatagramToTheJournalHoldsTheFieldsAndAFullQueueIsAnError)
{
    const char* const path = "journal";
    ASSERT_EQ(chdir(folder_.Path().c_str()), 0) << "a socket address is short";
    const int receiver = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const ScrivoLine line{SCRIVO_ERROR, 0xD00470A, "Tag", "two\nlines"};
    EXPECT_EQ(SendScrivoLine(sender, path, line), -1) << "nobody listens";

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(path).copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_GT(SendScrivoLine(sender, path, line), 0);
    char datagram[4096];
    const ssize_t size = recv(receiver, datagram, sizeof(datagram), 0);
    ASSERT_GT(size, 0);
    EXPECT_THAT(Lines({datagram, static_cast<size_t>(size)}),
                ElementsAre("PRIORITY=3", "TID=" + std::to_string(gettid()),
                            std::string("SYSLOG_IDENTIFIER=") + program_invocation_short_name,
                            "MESSAGE=D00470A/Tag: two\\nlines"));
    while (SendScrivoLine(sender, path, line) > 0) {}
    close(receiver);
    close(sender);
}

TEST_F(ScrivoSinkTest, FileReceivesTheConfiguredLevelsFromBeforeMainToAfterIt)
{
    const ChildResult result = RunChild("levels", ("error," + path_).c_str());
    EXPECT_EQ(result.end, "exit 0");
    EXPECT_EQ(result.out, "0 lost\n");
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(Lines(Content(path_)),
                ElementsAre(EndsWith("E D00470A/Child: error"), EndsWith("F D00470A/Child: fatal")));
    struct stat status {};
    ASSERT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);

    EXPECT_EQ(RunChild("levels", (path_ + ",warn").c_str()).end, "exit 0");
    EXPECT_THAT(Lines(Content(path_)),
                ElementsAre(EndsWith("error"), EndsWith("fatal"), EndsWith("before main"), EndsWith("warn"),
                            EndsWith("error"), EndsWith("fatal"), EndsWith("after main")))
        << "appended, not overwritten";
}

TEST_F(ScrivoSinkTest, SettingsChooseSinkAndLevel)
{
    const struct {
        const char* action;
        const char* setting;
        size_t lines;  // on stderr
        const char* out;
        const char* report;  // in the first line
    } rows[] = {
        {"levels", "stderr", 5, "0 lost\n", ""},
        {"levels", "stderr,debug", 7, "0 lost\n", ""},
        {"levels", "debug,std\nerr,stderr,", 8, "0 lost\n", "TAVO_LOG: \"std\\nerr\" is not understood"},
        {"levels", "off,stderr", 0, "0 lost\n", ""},
        {"levels", nullptr, 0, nullptr, ""},  // not a terminal: whether the journal takes them depends on the machine
        {"levels", "/no/such/folder/log", 1, "4 lost\n", "\"/no/such/folder/log\" cannot be opened"},
        {"daemon", nullptr, 4, nullptr, "W D00470A/Child: warn"},
        {"daemon", "info", 5, nullptr, "I D00470A/Child: info"},  // "before main" went elsewhere
        {"daemon", "off", 0, "0 lost\n", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.setting == nullptr ? "(unset)" : row.setting);
        const ChildResult result = RunChild(row.action, row.setting);
        EXPECT_EQ(result.end, "exit 0");
        EXPECT_NE(result.err.substr(0, result.err.find('\n')).find(row.report), std::string::npos) << result.err;
        EXPECT_EQ(Lines(result.err).size(), row.lines) << result.err;
        EXPECT_EQ(result.out, row.out == nullptr ? result.out : row.out);
    }
}

TEST_F(ScrivoSinkTest, WarningsThatRepeatAreCountedAndSummedUpAtTheExit)
{
    EXPECT_EQ(RunChild("repeat", path_.c_str()).end, "exit 0");
    EXPECT_THAT(Lines(Content(path_)),
                ElementsAre(EndsWith("before main"), EndsWith("one"), EndsWith("two"), EndsWith("after main"),
                            EndsWith("W D00470A/Child: one (repeated 999 times)"),
                            EndsWith("E D00470A/Child: two (repeated 999 times)")));
}

TEST_F(ScrivoSinkTest, FullPipeReceivesWholeLinesAndTheOthersAreCounted)
{
    const ChildResult result = RunChild("flood", "stderr,info");
    EXPECT_EQ(result.end, "exit 0");
    EXPECT_GT(Lines(result.err).size(), 100u);
    EXPECT_THAT(Lines(result.err),
                testing::Each(MatchesRegex(PREFIX + "[WI] D00470A/Child: (x{150}|before main|after main)")));
}

}  // namespace
}  // namespace TAVO
