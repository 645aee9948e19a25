// SPDX-License-Identifier: Apache-2.0
// Reads the small text files in which a machine reports its state, below a root folder and never outside it.
#ifndef VELTRA_SERVICE_ROOT_FILES_H
#define VELTRA_SERVICE_ROOT_FILES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/unique_fd.h"

namespace TAVO::Veltra {

// Paths are relative to the root. Links are followed as if the root were "/", so none leads out of it. What is missing,
// not a regular file, unreadable or nonsense is absent. Any thread; a read lasts as long as the driver behind it takes.
class RootFiles {
public:
    static constexpr size_t MAX_TEXT_BYTES = 4096;
    static constexpr size_t MAX_NAME_BYTES = 64;
    static constexpr size_t MAX_NUMBERS = 256;  // entries taken from one folder, unless more are asked for

    explicit RootFiles(const std::string& rootDir);

    bool IsOpen() const { return root_.IsOpen(); }

    // The beginning of a file, at most MAX_TEXT_BYTES.
    std::optional<std::string> ReadText(const std::string& path) const;
    // The first line as a name for people: printable ASCII, other bytes as '?', at most MAX_NAME_BYTES; never empty.
    std::optional<std::string> ReadName(const std::string& path) const;
    // A file that holds one decimal number and nothing else, within [least, most].
    std::optional<int64_t> ReadNumber(const std::string& path, int64_t least, int64_t most) const;
    // The numbers N, ascending, of the entries `prefix`N`suffix` of a folder, at most `most`.
    std::vector<int> Numbers(const std::string& dir, std::string_view prefix, std::string_view suffix = {},
                             size_t most = MAX_NUMBERS) const;

    // The names of all entries of a folder, ascending, at most MAX_NUMBERS; none that begins with a dot or has bytes
    // other than printable ASCII, which no driver uses and a terminal may obey.
    std::vector<std::string> Names(const std::string& dir) const;

private:
    // Calls `take` with the name of each entry until it returns false.
    template <typename Take>
    void ForEachEntry(const std::string& dir, Take take) const;
    UniqueFd Open(const std::string& path, int flags) const;

    const UniqueFd root_;
};

}  // namespace TAVO::Veltra

#endif
