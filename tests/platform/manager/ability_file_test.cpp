// SPDX-License-Identifier: Apache-2.0
// An invalid ability file disables its ability, with a line that names file and key; later folders override earlier ones.
#include "manager/daemon/ability_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "support/process.h"

namespace {

using namespace TAVO::Manager;

class AbilityFileTest : public ::testing::Test {
protected:
    void Write(const std::string& name, const std::string& text) { std::ofstream(dir.Path() + "/" + name) << text; }
    // The lines for the files that are not valid, one after the other.
    std::string Read(const std::string& folder)
    {
        const AbilityFolder result = ReadAbilityFolder(folder, files);
        std::string lines = result.error;
        for (const std::string& fault : result.faults) {
            lines += fault + "\n";
        }
        return lines;
    }

    TestSupport::PrivateRuntimeDir dir;  // any private folder does
    AbilityFiles files;
};

TEST_F(AbilityFileTest, AllKeysAreReadAndOtherFilesAreNot)
{
    Write("full.json", R"({"id": 66006, "program": "../bin/server", "arguments": ["--root", "/a b"],
                           "environment": {"A": "1=2", "B": ""}, "external": true})");
    Write("short.json", R"({"id": 7, "program": "/usr/bin/true"})");
    Write("short.json.bak", "{");
    const std::string link = dir.Path() + "/link";
    std::filesystem::create_directory_symlink(dir.Path(), link);
    ASSERT_EQ(Read(link), "");
    ASSERT_EQ(files.size(), 2u);
    const AbilityFile& full = files[66006];
    EXPECT_EQ(full.program, std::filesystem::canonical(dir.Path()).parent_path() / "bin/server");
    EXPECT_EQ(full.arguments, (std::vector<std::string>{"--root", "/a b"}));
    EXPECT_EQ(full.environment, (std::map<std::string, std::string>{{"A", "1=2"}, {"B", ""}}));
    EXPECT_TRUE(full.external);
    EXPECT_EQ(files[7].program, "/usr/bin/true");
    EXPECT_FALSE(files[7].external);
}

TEST_F(AbilityFileTest, AFaultNamesFileAndKeyAndDisablesThatAbilityOnly)
{
    Write("good.json", R"({"id": 9, "program": "x"})");
    const std::vector<std::pair<std::string, std::string>> faults{
        {"", "not valid JSON"},
        {R"({"id": 1, "program": "x")", "not valid JSON"},
        {R"({"id": 1, "program": "x"} {})", "not valid JSON"},
        {R"({"id": 1, "id": 2, "program": "x"})", "not valid JSON"},
        {std::string(1000, '['), "nested more than 16"},
        {R"([1])", "one JSON object"},
        {R"({"program": "x"})", "\"id\" must be"},
        {R"({"id": 0, "program": "x"})", "\"id\" must be"},
        {R"({"id": 4294967296, "program": "x"})", "\"id\" must be"},
        {R"({"id": "1", "program": "x"})", "\"id\" must be"},
        {R"({"id": 1, "external": false})", "\"program\" is missing"},
        {R"({"id": 9, "program": "y"})", "\"id\" 9 is described by 1.json too"},
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
        Write("1.json", text);
        files.clear();
        if (why.find("is missing") == std::string::npos) {
            files[1].program = "of an earlier folder";
        }
        const std::string line = Read(dir.Path());
        const bool isDuplicate = why.find("described by") != std::string::npos;
        EXPECT_NE(line.find(dir.Path() + (isDuplicate ? "/good.json: " : "/1.json: ")), std::string::npos) << line;
        EXPECT_NE(line.find(why), std::string::npos) << line;
        EXPECT_EQ(line.find('\n') + 1, line.size()) << line;
        EXPECT_EQ(files[isDuplicate ? 9 : 1].fault + "\n", line);
        EXPECT_EQ(files[isDuplicate ? 1 : 9].fault, "");
    }
    const std::string fifo = dir.Path() + "/1.json";
    std::filesystem::remove(fifo);
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(Read(dir.Path()), "ability file " + fifo + ": cannot be read\n");
    Write("good.json", R"({"id": 1, "program": "x"})");
    Read(dir.Path());
    EXPECT_NE(files[1].fault, "");
}

TEST_F(AbilityFileTest, ALaterFolderReplacesTheKeysThatItsFilesContain)
{
    Write("all.json", R"({"id": 7, "program": "p", "arguments": ["a"], "environment": {"A": "1"}, "external": true})");
    Write("other.json", R"({"id": 8, "program": "p"})");
    EXPECT_EQ(Read(dir.Path()), "");
    const AbilityFile vendor = files[7];
    const std::string later = dir.Path() + "/later";
    std::filesystem::create_directory(later);
    const struct {
        const char* text;
        void (*change)(AbilityFile& file);
    } overrides[] = {
        {R"({"id": 7, "arguments": ["b", "c"]})",
         [](AbilityFile& file) {
             file.arguments = {"b", "c"};
         }},
        {R"({"id": 7, "arguments": []})", [](AbilityFile& file) { file.arguments.clear(); }},
        {R"({"id": 7, "environment": {}})", [](AbilityFile& file) { file.environment.clear(); }},
        {R"({"id": 7, "external": false})", [](AbilityFile& file) { file.external = false; }},
        {R"({"id": 7, "program": "/q"})", [](AbilityFile& file) { file.program = "/q"; }},
    };
    for (const auto& row : overrides) {
        SCOPED_TRACE(row.text);
        files[7] = vendor;
        Write("later/any-name.json", row.text);
        EXPECT_EQ(Read(later), "");
        AbilityFile expected = vendor;
        row.change(expected);
        EXPECT_EQ(files[7].program, expected.program);
        EXPECT_EQ(files[7].arguments, expected.arguments);
        EXPECT_EQ(files[7].environment, expected.environment);
        EXPECT_EQ(files[7].external, expected.external);
        EXPECT_EQ(files[7].path, later + "/any-name.json");
        EXPECT_EQ(files[8].fault, "");
    }
    EXPECT_NE(Read(dir.Path() + "/none").find("none: No such file"), std::string::npos);
}

}  // namespace
