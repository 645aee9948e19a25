// SPDX-License-Identifier: Apache-2.0
// Memory that runs out while something arrives, or is made to receive it.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/failing_memory.h"
#include "tavo/message_parcel.h"
#include "tavo/read_vector_from_parcel.h"
#include "veltra_records.h"

namespace TAVO::Veltra {
namespace {

// Lets each allocation of the decoding fail, one run after the other.
template <typename Record>
void ExpectListSurvivesMissingMemory(const Record& record)
{
    const std::vector<Record> list(3, record);
    Parcel parcel;
    ASSERT_TRUE(WriteVectorToParcel(parcel, list));
    long nth = 0;
    for (bool isRead = false; !isRead; ++nth) {
        SCOPED_TRACE(nth);
        ASSERT_TRUE(parcel.SetReadPosition(0));
        std::vector<Record> out;
        TestSupport::FailAllocation(nth + 1);
        isRead = ReadVectorFromParcel(parcel, out);
        TestSupport::FailAllocation(0);
        ASSERT_NE(isRead, TestSupport::HasAllocationFailed());
        EXPECT_EQ(out.size() == list.size(), isRead);
        for (const Record& element : out) {
            MessageParcel whole;
            MessageParcel expected;
            ASSERT_TRUE(element.Marshalling(whole) && record.Marshalling(expected));
            EXPECT_TRUE(std::equal(whole.GetData(), whole.GetData() + whole.GetDataSize(), expected.GetData(),
                                   expected.GetData() + expected.GetDataSize()));
        }
    }
    EXPECT_GT(nth, 1);
}

TEST(MissingMemory, ListDoesNotDecode)
{
    AppResourceInfo resource;
    resource.text1 = resource.text4 = std::string(100, 'x');  // longer than a string keeps within itself
    ExpectListSurvivesMissingMemory(resource);
    ExpectListSurvivesMissingMemory(GpuPerfInfo());
}

}  // namespace
}  // namespace TAVO::Veltra
