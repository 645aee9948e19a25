// SPDX-License-Identifier: Apache-2.0
// Every open goes through openat2 with RESOLVE_IN_ROOT: links and ".." are resolved below the root folder, also when
// the root is a copy of another machine's files. An open never blocks and never makes a terminal the controlling one.
// Only regular files are read, in pieces up to a fixed size, since files of sysfs and procfs report no useful length.
// Every failure gives an absent value: a driver may refuse a read at any time (a device that sleeps, a sensor that is
// unplugged).
#include "probes/root_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>

namespace TAVO::Veltra {

namespace {

constexpr int MAX_NUMBER = 100000;     // of an entry such as hwmon7
constexpr int MAX_OPEN_ATTEMPTS = 32;  // the kernel gives up on ".." during a rename, and expects another attempt

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

std::string_view TrimEnd(std::string_view text)
{
    const size_t last = text.find_last_not_of(" \t\r\n");
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

bool IsPrintable(char c)
{
    return c >= ' ' && c <= '~';
}

template <typename Number>
std::optional<Number> ParseWhole(std::string_view text)
{
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

RootFiles::RootFiles(const std::string& rootDir) : root_(open(rootDir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

UniqueFd RootFiles::Open(const std::string& path, int flags) const
{
    open_how how{};
    how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
    // Magic links (/proc/self/fd/N) would lead out of the root, whatever their text.
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    for (int attempt = 0; attempt < MAX_OPEN_ATTEMPTS; ++attempt) {
        const long fd = syscall(SYS_openat2, root_.Get(), path.c_str(), &how, sizeof(how));
        if (fd >= 0) {
            return UniqueFd(static_cast<int>(fd));
        }
        // EAGAIN: a rename or mount elsewhere raced with the resolution of "..".
        if (errno != EAGAIN && errno != EINTR) {
            break;
        }
    }
    return UniqueFd();
}

std::optional<std::string> RootFiles::ReadText(const std::string& path) const
{
    const UniqueFd file = Open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);  // a pipe in its place must not block us
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    std::string text(MAX_TEXT_BYTES, '\0');
    size_t size = 0;
    while (size < text.size()) {
        const ssize_t count = read(file.Get(), text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {  // a sensor that sleeps or is broken
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        size += static_cast<size_t>(count);
    }
    text.resize(size);
    return text;
}

std::optional<std::string> RootFiles::ReadName(const std::string& path) const
{
    const std::optional<std::string> text = ReadText(path);
    if (!text) {
        return std::nullopt;
    }
    std::string name(TrimEnd(std::string_view(*text).substr(0, text->find('\n'))).substr(0, MAX_NAME_BYTES));
    std::replace_if(
        // Names appear in answers and logs; the file of another root may contain anything.
        name.begin(), name.end(), [](char c) { return !IsPrintable(c); }, '?');
    return name.empty() ? std::nullopt : std::optional(name);
}

std::optional<int64_t> RootFiles::ReadNumber(const std::string& path, int64_t least, int64_t most) const
{
    const std::optional<std::string> text = ReadText(path);
    const std::optional<int64_t> number = text ? ParseWhole<int64_t>(TrimEnd(*text)) : std::nullopt;
    return number && *number >= least && *number <= most ? number : std::nullopt;
}

template <typename Take>
void RootFiles::ForEachEntry(const std::string& dir, Take take) const
{
    UniqueFd fd = Open(dir, O_RDONLY | O_DIRECTORY);
    const Folder folder(fd.IsOpen() ? fdopendir(fd.Get()) : nullptr, closedir);
    if (folder == nullptr) {
        return;
    }
    fd.Release();  // the folder's now
    while (const dirent* entry = readdir(folder.get())) {
        if (!take(std::string_view(entry->d_name))) {
            break;
        }
    }
}

std::vector<int> RootFiles::Numbers(const std::string& dir, std::string_view prefix, std::string_view suffix,
                                    size_t most) const
{
    std::vector<int> numbers;
    ForEachEntry(dir, [&numbers, prefix, suffix, most](std::string_view name) {
        if (name.size() > prefix.size() + suffix.size() && name.starts_with(prefix) && name.ends_with(suffix)) {
            name.remove_prefix(prefix.size());
            name.remove_suffix(suffix.size());
            const std::optional<int> number = ParseWhole<int>(name);
            if (number && *number >= 0 && *number <= MAX_NUMBER) {
                numbers.push_back(*number);
            }
        }
        // A folder with more entries is none of a sane machine.
        return numbers.size() < most;
    });
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

std::vector<std::string> RootFiles::Names(const std::string& dir) const
{
    std::vector<std::string> names;
    ForEachEntry(dir, [&names](std::string_view name) {
        if (!name.starts_with('.') && std::all_of(name.begin(), name.end(), IsPrintable)) {
            names.emplace_back(name);
        }
        return names.size() < MAX_NUMBERS;
    });
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace TAVO::Veltra
