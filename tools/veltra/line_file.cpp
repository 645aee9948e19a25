// SPDX-License-Identifier: Apache-2.0
// One write for each line, retried when it is partial: a recorder that is killed leaves whole lines, apart from the
// last one at most.
#include "line_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "exit_code.h"

namespace VeltraTool {

LineFile::LineFile(const std::string& path) : name_(path == "-" ? "standard output" : path)
{
    // A copy of stdout, so that the destructor may close it. Mode 0600: a recording has what games send.
    file_ = path == "-" ? ::dup(STDOUT_FILENO) : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file_ < 0) {
        Fail();
    }
    // A file that existed has kept its mode. Devices such as /dev/null stay as they are, and so does what stdout leads
    // to. Deliberate: a failure is ignored, since some file systems have no modes.
    struct stat status {};
    if (path != "-" && ::fstat(file_, &status) == 0 && S_ISREG(status.st_mode)) {
        ::fchmod(file_, 0600);
    }
}

LineFile::~LineFile()
{
    ::close(file_);
}

void LineFile::Write(std::string line) const
{
    line += '\n';
    for (size_t written = 0; written < line.size();) {
        const ssize_t count = ::write(file_, line.data() + written, line.size() - written);
        if (count < 0 && errno != EINTR) {
            Fail();
        }
        written += count > 0 ? static_cast<size_t>(count) : 0;
    }
}

void LineFile::Fail() const
{
    throw ToolError(EXIT_NO, name_ + " cannot be written: " + std::strerror(errno),
                    "choose another file, or make room");
}

}  // namespace VeltraTool
