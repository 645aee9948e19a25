// SPDX-License-Identifier: Apache-2.0
// An ability file is understood whole or refused with a line that helps.
#include "manager/daemon/ability_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/process.h"

namespace {

using namespace TAVO::Manager;

class AbilityFileTest : public ::testing::Test {
protected:
    void Write(const std::string& name, const std::string& text) { std::ofstream(dir.Path() + "/" + name) << text; }

    TestSupport::PrivateRuntimeDir dir;  // any private folder does
    AbilityFiles files;
    std::string error;
};

TEST_F(AbilityFileTest, AllKeysAreReadAndOtherFilesAreNot)
{
    Write("full.json", R"({"id": 66006, "program": "../bin/server", "arguments": ["--root", "/a b"],
                           "environment": {"A": "1=2", "B": ""}, "external": true})");
    Write("short.json", R"({"id": 7, "program": "/usr/bin/true"})");
    Write("short.json.bak", "{");
    ASSERT_TRUE(ReadAbilityFolder(dir.Path(), files, error)) << error;
    ASSERT_EQ(files.size(), 2u);
    const AbilityFile& full = files[66006];
    EXPECT_EQ(full.program, std::filesystem::path(dir.Path()).parent_path() / "bin/server");
    EXPECT_EQ(full.arguments, (std::vector<std::string>{"--root", "/a b"}));
    EXPECT_EQ(full.environment, (std::map<std::string, std::string>{{"A", "1=2"}, {"B", ""}}));
    EXPECT_TRUE(full.external);
    EXPECT_EQ(files[7].program, "/usr/bin/true");
    EXPECT_FALSE(files[7].external);
}

TEST_F(AbilityFileTest, AFaultNamesTheFileAndWhatIsWrong)
{
    const std::vector<std::pair<std::string, std::string>> faults{
        {"", "not valid JSON"},
        {R"({"id": 1, "program": "x")", "not valid JSON"},
        {R"({"id": 1, "program": "x"} {})", "not valid JSON"},
        {R"({"id": 1, "id": 2, "program": "x"})", "not valid JSON"},
        {std::string(1000, '['), "Exceeded stackLimit"},
        {R"([1])", "one JSON object"},
        {R"({"program": "x"})", "\"id\" must be"},
        {R"({"id": 0, "program": "x"})", "\"id\" must be"},
        {R"({"id": 4294967296, "program": "x"})", "\"id\" must be"},
        {R"({"id": "1", "program": "x"})", "\"id\" must be"},
        {R"({"id": 1})", "\"program\" is missing"},
        {R"({"id": 1, "program": ""})", "\"program\" is missing"},
        {R"({"id": 1, "program": 3})", "\"program\" must be a text"},
        {R"({"id": 1, "program": "a\u0000b"})", "\"program\" must be a text"},
        {R"({"id": 1, "program": "x", "arguments": "y"})", "\"arguments\" must be"},
        {R"({"id": 1, "program": "x", "arguments": [1]})", "\"arguments\""},
        {R"({"id": 1, "program": "x", "environment": ["A=1"]})", "\"environment\" must be"},
        {R"({"id": 1, "program": "x", "environment": {"A=": "1"}})", "\"environment\" has a name"},
        {R"({"id": 1, "program": "x", "environment": {"A": 1}})", "\"environment\" A must be"},
        {R"({"id": 1, "program": "x", "external": 1})", "\"external\" must be"},
        {R"({"id": 1, "program": "x", "argumnets": []})", "unknown key \"argumnets\""},
    };
    for (const auto& [text, why] : faults) {
        SCOPED_TRACE(text);
        Write("bad.json", text);
        files.clear();
        EXPECT_FALSE(ReadAbilityFolder(dir.Path(), files, error));
        EXPECT_NE(error.find(dir.Path() + "/bad.json: "), std::string::npos) << error;
        EXPECT_NE(error.find(why), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
}

TEST_F(AbilityFileTest, ASecondFileForTheSameIdAndAMissingFolderAreFaults)
{
    Write("a.json", R"({"id": 7, "program": "x"})");
    Write("b.json", R"({"id": 7, "program": "y"})");
    EXPECT_FALSE(ReadAbilityFolder(dir.Path(), files, error));
    EXPECT_NE(error.find("b.json: id 7 is described by another file"), std::string::npos) << error;
    EXPECT_FALSE(ReadAbilityFolder(dir.Path() + "/none", files, error));
    EXPECT_NE(error.find("none: No such file"), std::string::npos) << error;
}

}  // namespace
