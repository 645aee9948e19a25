// SPDX-License-Identifier: Apache-2.0
// A root folder that a test fills itself, removed at its end; and the recorded ones.
#ifndef VELTRA_TESTS_SCRATCH_ROOT_H
#define VELTRA_TESTS_SCRATCH_ROOT_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace TAVO::Veltra {

inline std::string RecordedRoot(const std::string& machine)
{
    return VELTRA_TEST_ROOTS "/" + machine;
}

class ScratchRoot {
public:
    ScratchRoot()
    {
        std::string name = (std::filesystem::temp_directory_path() / "veltra_root_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no scratch folder");
        }
        path_ = name;
    }
    ~ScratchRoot()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    std::string Path() const { return path_.string(); }
    // The place of a file or link to be; its folder exists.
    std::filesystem::path Place(const std::string& name) const
    {
        std::filesystem::create_directories((path_ / name).parent_path());
        return path_ / name;
    }
    void Write(const std::string& name, const std::string& text) const
    {
        std::ofstream(Place(name), std::ios::binary) << text;
    }

private:
    std::filesystem::path path_;
};

}  // namespace TAVO::Veltra

#endif
