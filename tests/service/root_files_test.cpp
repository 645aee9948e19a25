// SPDX-License-Identifier: Apache-2.0
// Files of a root are not trusted: whatever they contain, reads are bounded, never block and never leave the root.
#include "probes/root_files.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/scratch_dir.h"

namespace TAVO::Veltra {
namespace {

TEST(RootFiles, OnlyAWholeNumberWithinItsBoundsIsANumber)
{
    const ScratchDir root;
    const RootFiles files(root.Path());
    const auto read = [&](const char* text) {
        root.Write("number", text);
        return files.ReadNumber("number", -40, 100);
    };
    EXPECT_EQ(read("42\n"), 42);
    EXPECT_EQ(read("-40"), -40);
    EXPECT_EQ(read("100 \t\r\n"), 100);
    for (const char* text : {"101\n", "-41\n", "", "\n", " 42\n", "+42\n", "4 2\n", "42C\n", "0x10\n", "1e1\n",
                             "99999999999999999999\n"}) {
        EXPECT_EQ(read(text), std::nullopt) << text;
    }
    EXPECT_EQ(files.ReadNumber("missing", -40, 100), std::nullopt);
}

TEST(RootFiles, NamesArePrintableAndShort)
{
    const ScratchDir root;
    const RootFiles files(root.Path());
    root.Write("name", "core\x1b[31m\xff temp \nsecond line\n");
    EXPECT_EQ(files.ReadName("name"), "core?[31m? temp");
    root.Write("name", std::string(5000, 'x'));
    EXPECT_EQ(files.ReadName("name"), std::string(RootFiles::MAX_NAME_BYTES, 'x'));
    root.Write("name", "\n");
    EXPECT_EQ(files.ReadName("name"), std::nullopt);
    for (const char* folder : {"BAT0", "BAT\x1b[2J", "BAT\n", "B\xc3\xa4T", ".BAT"}) {
        root.Write(std::string("supplies/") + folder + "/type", "Battery");
    }
    EXPECT_EQ(files.Names("supplies"), std::vector<std::string>{"BAT0"});
}

TEST(RootFiles, LongFilesAreCutAndOddOnesAreAbsent)
{
    const ScratchDir root;
    const RootFiles files(root.Path());
    root.Write("long", std::string(1 << 20, 'x'));
    EXPECT_EQ(files.ReadText("long"), std::string(RootFiles::MAX_TEXT_BYTES, 'x'));
    ASSERT_EQ(mkfifo(root.Place("pipe").c_str(), 0600), 0);
    EXPECT_EQ(files.ReadText("pipe"), std::nullopt);  // and does not wait for a writer
    std::filesystem::create_directory(root.Place("folder"));
    EXPECT_EQ(files.ReadText("folder"), std::nullopt);
    EXPECT_EQ(files.ReadText(""), std::nullopt);
}

TEST(RootFiles, LinksStayBelowTheRoot)
{
    const ScratchDir outside;
    outside.Write("secret", "outside");
    const ScratchDir root;
    root.Write("devices/zone/temp", "inside");
    std::filesystem::create_directory_symlink("../../devices/zone", root.Place("class/thermal/zone"));
    std::filesystem::create_directory_symlink("/devices/zone", root.Place("class/thermal/absolute"));
    std::filesystem::create_symlink(outside.Path() + "/secret", root.Place("absolute"));
    std::filesystem::create_symlink("../../../../../../.." + outside.Path() + "/secret", root.Place("upwards"));
    std::filesystem::create_symlink("loop", root.Place("loop"));
    const RootFiles files(root.Path());
    EXPECT_EQ(files.ReadText("class/thermal/zone/temp"), "inside");
    EXPECT_EQ(files.ReadText("class/thermal/absolute/temp"), "inside");
    for (const char* path : {"absolute", "upwards", "loop"}) {
        EXPECT_EQ(files.ReadText(path), std::nullopt) << path;
    }
    const std::string upwards = "../" + std::filesystem::path(outside.Path()).filename().string() + "/secret";
    EXPECT_EQ(files.ReadText(upwards), std::nullopt);
}

TEST(RootFiles, NumbersAreThoseOfMatchingEntriesAscendingAndBounded)
{
    const ScratchDir root;
    for (const char* name : {"temp10_input", "temp2_input", "temp_input", "tempx_input", "temp1_max", "temp-1_input",
                             "temp3_input2", "xtemp4_input", "temp99999999999_input"}) {
        root.Write(std::string("chip/") + name, "1");
    }
    const RootFiles files(root.Path());
    EXPECT_EQ(files.Numbers("chip", "temp", "_input"), (std::vector<int>{2, 10}));
    EXPECT_TRUE(files.Numbers("missing", "temp").empty());
    for (int i = 0; i < 300; ++i) {
        root.Write("many/card" + std::to_string(i), "1");
    }
    EXPECT_EQ(files.Numbers("many", "card").size(), RootFiles::MAX_NUMBERS);
}

TEST(RootFiles, MissingRootHasNoValues)
{
    const RootFiles files("/nonexistent/root");
    EXPECT_FALSE(files.IsOpen());
    EXPECT_EQ(files.ReadText("proc/stat"), std::nullopt);
    EXPECT_TRUE(files.Numbers("proc", "").empty());
}

}  // namespace
}  // namespace TAVO::Veltra
