// SPDX-License-Identifier: Apache-2.0
// A folder that a test fills itself, removed at its end.
#ifndef VELTRA_TESTS_SUPPORT_SCRATCH_DIR_H
#define VELTRA_TESTS_SUPPORT_SCRATCH_DIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace TAVO::Veltra {

class ScratchDir {
public:
    ScratchDir()
    {
        std::string name = (std::filesystem::temp_directory_path() / "veltra_test_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no scratch folder");
        }
        path_ = name;
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string Path() const { return path_.string(); }
    // The place of a file or link to be; its folder exists.
    std::filesystem::path Place(const std::string& name) const
    {
        std::filesystem::create_directories((path_ / name).parent_path());
        return path_ / name;
    }
    // The path of the file.
    std::string Write(const std::string& name, const std::string& text) const
    {
        std::ofstream(Place(name), std::ios::binary) << text;
        return Place(name).string();
    }

private:
    std::filesystem::path path_;
};

}  // namespace TAVO::Veltra

#endif
