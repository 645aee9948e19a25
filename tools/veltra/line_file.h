// SPDX-License-Identifier: Apache-2.0
// A file that is written a line at a time.
#ifndef VELTRA_TOOLS_LINE_FILE_H
#define VELTRA_TOOLS_LINE_FILE_H

#include <string>

namespace VeltraTool {

// Each line reaches the kernel whole, before Write returns. ToolError when the file cannot be made or written.
class LineFile {
public:
    // Replaces the file, which is then readable for this user only: what games send is private. "-": standard output.
    explicit LineFile(const std::string& path);
    ~LineFile();
    LineFile(const LineFile&) = delete;
    LineFile& operator=(const LineFile&) = delete;

    void Write(std::string line) const;

private:
    [[noreturn]] void Fail() const;

    const std::string name_;
    int file_ = -1;
};

}  // namespace VeltraTool

#endif
