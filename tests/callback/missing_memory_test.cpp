// SPDX-License-Identifier: Apache-2.0
// Memory that runs out while something arrives, or is made to receive it.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "callback/game_event_callback.h"
#include "support/failing_memory.h"
#include "support/game_callbacks.h"
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

TEST(MissingMemory, CallbackIsRefusedAndTheOthersStay)
{
    GameEventCallback endpoint;
    std::string calls;
    const auto callback = [&calls](const char* name) {
        return std::make_unique<EventFunction>([&calls, name](auto&) {
            calls += name;
            return 0;
        });
    };
    EXPECT_EQ(endpoint.AddCallback(callback("first"), 1), 0);
    auto second = callback("second");
    TestSupport::FailAllocation(1);
    const int32_t result = endpoint.AddCallback(std::move(second), 2);
    TestSupport::FailAllocation(0);
    EXPECT_EQ(result, 1010310014);
    endpoint.OnGameCallbackEvent({});
    EXPECT_EQ(calls, "first");
}

}  // namespace
}  // namespace TAVO::Veltra
