// SPDX-License-Identifier: Apache-2.0
#include "veltra_result_text.h"

#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "tavo/ipc_status.h"

namespace TAVO::Veltra {
namespace {

// The table has the statuses of the platform as numbers.
TEST(ResultText, NamesEachStatusOfThePlatformAndNoCodeTwice)
{
    const std::pair<int32_t, const char*> codes[] = {
        {IPC_DEAD_OBJECT, "IPC_DEAD_OBJECT"}, {IPC_TIMED_OUT, "IPC_TIMED_OUT"},
        {IPC_BROKEN, "IPC_BROKEN"},           {IPC_QUEUE_FULL, "IPC_QUEUE_FULL"},
        {IPC_TOO_LARGE, "IPC_TOO_LARGE"},     {IPC_UNKNOWN_CODE, "IPC_UNKNOWN_CODE"},
        {IPC_EXCEPTION, "IPC_EXCEPTION"},     {IPC_NO_RESOURCES, "IPC_NO_RESOURCES"},
        {IPC_UNAVAILABLE, "IPC_UNAVAILABLE"}, {IPC_BAD_MESSAGE, "IPC_BAD_MESSAGE"},
    };
    for (const auto& [code, name] : codes) {
        ASSERT_NE(FindResultText(code), nullptr) << name;
        EXPECT_STREQ(FindResultText(code)->name, name);
    }
    for (const ResultText& text : RESULT_TEXTS) {
        EXPECT_EQ(FindResultText(text.code), &text) << text.name << " has the code of another";
    }
    EXPECT_EQ(FindResultText(1), nullptr);
}

}  // namespace
}  // namespace TAVO::Veltra
