// SPDX-License-Identifier: Apache-2.0
#include "veltra_result_text.h"

#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "base/service_result.h"

namespace TAVO::Veltra {
namespace {

// The table has the service's codes as numbers, since games do not see the service's headers.
TEST(ResultText, NamesEachCodeOfTheServiceAndNoneTwice)
{
    const std::pair<int32_t, const char*> codes[] = {
        {SERVICE_BAD_REQUEST, "SERVICE_BAD_REQUEST"},
        {SERVICE_NOT_SUPPORTED, "SERVICE_NOT_SUPPORTED"},
        {SERVICE_NO_SENSOR, "SERVICE_NO_SENSOR"},
        {SERVICE_DENIED, "SERVICE_DENIED"},
        {SERVICE_NO_RESOURCES, "SERVICE_NO_RESOURCES"},
        {SERVICE_NOT_SUBSCRIBED, "SERVICE_NOT_SUBSCRIBED"},
        {SERVICE_NO_GPU_COUNTERS, "SERVICE_NO_GPU_COUNTERS"},
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
