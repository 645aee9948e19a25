// SPDX-License-Identifier: Apache-2.0
// First the choice of a sink by the words of TAVO_LOG, then the two ways to write a line: to a descriptor, or as a
// datagram to the journal. Each line is one system call, so that lines of threads and processes do not mix: files are
// opened with O_APPEND, and a pipe takes up to 4096 bytes (PIPE_BUF) whole or not at all. Nothing waits for a reader:
// writes use RWF_NOWAIT or MSG_DONTWAIT, and a full sink loses the line. Neither a reader that ended nor the limit of
// file sizes ends this process by a signal. Nothing here takes a lock of the platform's, so that logging works in a
// forked child.
#include "base/scrivo_sink.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/scrivo_format.h"

namespace TAVO {

namespace {

constexpr size_t MAX_PIPE_LINE_BYTES = 4096;
constexpr size_t MAX_PATH_BYTES = 4096;

constexpr struct {
    std::string_view name;
    int level;
    char letter;
    int priority;  // syslog's
} LEVELS[] = {
    {"debug", SCRIVO_DEBUG, 'D', 7}, {"info", SCRIVO_INFO, 'I', 6},   {"warn", SCRIVO_WARN, 'W', 4},
    {"error", SCRIVO_ERROR, 'E', 3}, {"fatal", SCRIVO_FATAL, 'F', 2}, {"off", SCRIVO_OFF, '-', 7},
};

// The row of a level; one out of range counts as the nearest.
const auto& LevelRow(int level) noexcept
{
    const int clamped = level < SCRIVO_DEBUG ? SCRIVO_DEBUG : level > SCRIVO_FATAL ? SCRIVO_FATAL : level;
    return LEVELS[clamped - SCRIVO_DEBUG];
}

// The reader of a pipe may have ended, or a file be as large as the process may make it (RLIMIT_FSIZE): the write is
// then an error and not the end of this process.
class SignalGuard {
public:
    SignalGuard() noexcept
    {
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        sigemptyset(&raised_);
        for (const int signal : {SIGPIPE, SIGXFSZ}) {
            if (sigismember(&pending, signal) == 0) {  // one that was pending before is not ours to consume
                sigaddset(&raised_, signal);
            }
        }
        pthread_sigmask(SIG_BLOCK, &raised_, &saved_);
    }
    ~SignalGuard()
    {
        const timespec now{};
        while (sigtimedwait(&raised_, nullptr, &now) < 0 && errno == EINTR) {}
        pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

private:
    sigset_t raised_;
    sigset_t saved_;
};

// Deliberate: UTC, computed here. The C library's conversions take a lock that a fork may leave closed.
void AppendTime(TextBuffer& line) noexcept
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::chrono::seconds seconds(now.tv_sec);
    const auto days = std::chrono::floor<std::chrono::days>(seconds);
    const std::chrono::year_month_day date{std::chrono::sys_days(days)};
    const std::chrono::hh_mm_ss time(seconds - days);
    char text[64];
    std::snprintf(text, sizeof(text), "%02u-%02u %02ld:%02ld:%02ld.%03ld %d %d ", static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<long>(time.hours().count()),
                  static_cast<long>(time.minutes().count()), static_cast<long>(time.seconds().count()),
                  now.tv_nsec / 1'000'000, getpid(), gettid());
    line.Append(text);
}

// "domain/tag: text" as far as it fits.
void AppendMessage(TextBuffer& line, const ScrivoLine& content) noexcept
{
    char domain[16];
    std::snprintf(domain, sizeof(domain), "%X/", content.domain);
    line.Append(domain);
    line.AppendEscaped(content.tag == nullptr ? "" : content.tag);
    line.Append(": ");
    line.AppendEscaped(content.text);
}

// Writes at once or not at all; -1 with EAGAIN when that would wait.
ssize_t WriteNow(int fd, std::string_view bytes) noexcept
{
    iovec part{const_cast<char*>(bytes.data()), bytes.size()};
    // O_NONBLOCK on stderr would change it for every process that shares the open file; this flag applies to one call.
    ssize_t written = pwritev2(fd, &part, 1, -1, RWF_NOWAIT);
    if (written < 0 && (errno == EOPNOTSUPP || errno == ENOSYS)) {  // a terminal, an old kernel
        pollfd ready{fd, POLLOUT, 0};
        // For terminals and old kernels. Another process may fill the sink in between, so this is the lesser guarantee.
        if (poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0) {
            errno = EAGAIN;
            return -1;
        }
        written = write(fd, bytes.data(), bytes.size());
    }
    return written;
}

// Calls `attempt` until it is not interrupted.
template <typename Attempt>
int Retry(Attempt attempt) noexcept
{
    ssize_t written = -1;
    do {
        written = attempt();
    } while (written < 0 && errno == EINTR);
    return static_cast<int>(written);
}

// A program that was started without its standard descriptors will open them and write other things there.
int AboveStderr(int fd) noexcept
{
    if (fd < 0 || fd > STDERR_FILENO) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return moved;
}

int OpenLogFile(std::string_view path) noexcept
{
    char name[MAX_PATH_BYTES];
    if (path.size() >= sizeof(name)) {
        return -1;
    }
    name[path.copy(name, path.size())] = '\0';
    // O_NONBLOCK: a named pipe without a reader must not hold the caller up.
    return AboveStderr(open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600));
}

// One word of TAVO_LOG.
struct Word {
    enum Kind { UNKNOWN, STDERR, PATH, LEVEL } kind;
    std::string_view text;
    int16_t level;
};

// Removes the first word from `rest`.
Word NextWord(std::string_view& rest) noexcept
{
    const std::string_view text = rest.substr(0, rest.find(','));
    rest.remove_prefix(text.size() < rest.size() ? text.size() + 1 : text.size());
    for (const auto& row : LEVELS) {
        if (text == row.name) {
            return {Word::LEVEL, text, static_cast<int16_t>(row.level)};
        }
    }
    const bool isPath = text.find('/') != std::string_view::npos;
    return {text == "stderr" ? Word::STDERR : isPath ? Word::PATH : Word::UNKNOWN, text, 0};
}

void WriteReport(std::string_view word, const char* what) noexcept
{
    char name[256];
    name[word.copy(name, sizeof(name) - 1)] = '\0';
    TextBuffer line(MAX_PIPE_LINE_BYTES);
    line.Append("TAVO_LOG: \"");
    line.AppendEscaped(name);
    line.Append("\" ");
    line.Append(what);
    const std::string_view bytes = line.EndLine();
    const SignalGuard guard;
    Retry([bytes] { return WriteNow(STDERR_FILENO, bytes); });
}

ScrivoSink DefaultSink(int16_t level, bool isDaemon) noexcept
{
    if (isDaemon || isatty(STDERR_FILENO) == 1) {
        return {SinkKind::DESCRIPTOR, level, STDERR_FILENO};
    }
    struct stat journal {};
    if (stat(JOURNAL_SOCKET, &journal) != 0 || !S_ISSOCK(journal.st_mode)) {
        // No terminal and no journal: a game started by a launcher has nowhere to log to.
        return {SinkKind::NOWHERE, SCRIVO_OFF, -1};
    }
    return {SinkKind::JOURNAL, level, AboveStderr(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))};
}

}  // namespace

ScrivoSink OpenScrivoSink(const char* settings, bool isDaemon) noexcept
{
    int16_t level = SCRIVO_WARN;
    bool isStderr = false;
    std::string_view path;
    std::string_view rest(settings == nullptr ? "" : settings);
    while (!rest.empty()) {
        const Word word = NextWord(rest);
        isStderr = isStderr || word.kind == Word::STDERR;
        path = word.kind == Word::PATH ? word.text : path;
        level = word.kind == Word::LEVEL ? word.level : level;
    }
    if (level == SCRIVO_OFF) {
        return {SinkKind::NOWHERE, SCRIVO_OFF, -1};
    }
    if (!path.empty()) {
        return {SinkKind::DESCRIPTOR, level, OpenLogFile(path)};
    }
    return isStderr ? ScrivoSink{SinkKind::DESCRIPTOR, level, STDERR_FILENO} : DefaultSink(level, isDaemon);
}

std::string_view ScrivoUnknownWord(std::string_view settings)
{
    for (std::string_view rest = settings; !rest.empty();) {
        const Word word = NextWord(rest);
        if (word.kind == Word::UNKNOWN && !word.text.empty()) {
            return word.text;
        }
    }
    return {};
}

void ReportScrivoSettings(const char* settings, const ScrivoSink& sink) noexcept
{
    const int reason = errno;
    std::string_view path;
    std::string_view rest(settings == nullptr ? "" : settings);
    while (!rest.empty()) {
        const Word word = NextWord(rest);
        path = word.kind == Word::PATH ? word.text : path;
        if (word.kind == Word::UNKNOWN && !word.text.empty()) {
            WriteReport(word.text,
                        "is not understood and ignored; use debug, info, warn, error, off, stderr, or a path with "
                        "a slash");
        }
    }
    if (sink.kind == SinkKind::DESCRIPTOR && sink.fd < 0) {
        TextBuffer text(MAX_PIPE_LINE_BYTES);
        text.Append("cannot be opened, so nothing is logged: ");
        text.Append(strerrordesc_np(reason));
        WriteReport(path, text.Text());
    }
}

void CloseScrivoSink(const ScrivoSink& sink) noexcept
{
    if (sink.fd > STDERR_FILENO) {
        close(sink.fd);
    }
}

int WriteScrivoLine(int fd, const ScrivoLine& line) noexcept
{
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return -1;
    }
    // Asked for each line: stderr may be redirected while the process runs.
    const bool isFile = S_ISREG(status.st_mode);
    TextBuffer buffer(isFile ? TextBuffer::MAX_TEXT_BYTES : MAX_PIPE_LINE_BYTES);
    AppendTime(buffer);
    const char level[] = {LevelRow(line.level).letter, ' ', '\0'};
    buffer.Append(level);
    AppendMessage(buffer, line);
    const std::string_view bytes = buffer.EndLine();
    const SignalGuard guard;
    if (isFile) {
        return Retry([&] { return write(fd, bytes.data(), bytes.size()); });
    }
    return Retry([&] { return WriteNow(fd, bytes); });
}

int SendScrivoLine(int fd, const char* path, const ScrivoLine& line) noexcept
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);

    TextBuffer buffer;
    char fields[64];
    std::snprintf(fields, sizeof(fields), "PRIORITY=%d\nTID=%d\nSYSLOG_IDENTIFIER=", LevelRow(line.level).priority,
                  gettid());
    buffer.Append(fields);
    buffer.AppendEscaped(program_invocation_short_name);
    buffer.Append("\nMESSAGE=");
    AppendMessage(buffer, line);
    const std::string_view bytes = buffer.EndLine();
    return Retry([&] {
        return sendto(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    });
}

}  // namespace TAVO
