// SPDX-License-Identifier: Apache-2.0
// Requests that no good service sends, and callbacks that fail: each gets its status, and the next one works.
//
// The tests of the endpoints have every row; here are those that differ on their way between two processes.
#include <unistd.h>

#include <stdexcept>

#include "system/callback_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

const std::string EVENTS = "7 zem.game.perf.iGpNapiEventCallback";
const std::string GPU = "12 zem.game.perf.IGpuCounterNativeCallback";
const std::string PRIORITYS = "16 zem.game.perf.IResourcePreDownloadNativeCallback";
const std::string INFOS = "18 zem.game.perf.IResourcePreDownloadNativeCallback";

constexpr char TOKEN_REFUSED[] = "1010310010";
constexpr char BAD_PARCEL[] = "1010310012";
constexpr char TOO_MANY[] = "1010310023";
constexpr char UNKNOWN_CODE[] = "-100006";
constexpr char EXCEPTION[] = "-100007";

struct Row {
    const char* name;
    std::string request;
    std::string answer;
    std::string note;  // empty: nobody is called
};

class CallbackAbuse : public CallbackFixture {
protected:
    void ExpectRows(std::initializer_list<Row> rows)
    {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.request);
            const size_t before = notes_->Count();
            EXPECT_EQ(service_.Ask(std::string("push ") + row.name + ' ' + row.request), row.answer);
            const std::vector<std::string> notes = notes_->WaitFor(0);
            ASSERT_EQ(notes.size(), before + (row.note.empty() ? 0 : 1));
            EXPECT_TRUE(row.note.empty() || notes.back() == row.note) << notes.back();
        }
    }
};

TEST_F(CallbackAbuse, RequestsAreTakenOrRefusedByTheLetter)
{
    const auto note = [notes = notes_](const std::string& text) {
        notes->Add(text);
        return 4;
    };
    ASSERT_EQ(TakeEvents([note](auto& info) { return note(info.eventText + std::to_string(info.thermalMargin)); }), 0);
    ASSERT_EQ(TakeGpu([note](auto& infos) { return note(std::to_string(infos.size()) + " samples"); }), 0);
    ASSERT_EQ(TakePrioritys([note](auto& list) { return note(std::to_string(list.size()) + " texts"); }), 0);
    ASSERT_EQ(TakeInfos([note](auto& infos) { return note(std::to_string(infos.resourceInfos.size()) + " infos"); }),
              0);
    const size_t peakBefore = TestSupport::PeakResidentBytes(::getpid());
    ExpectRows({{"events", EVENTS + " 'text 1 2 3 4 5 6 7 8 9 10", "0 0", "text8"},
                {"events", EVENTS, "0 0", "0"},
                {"events", "7 -", TOKEN_REFUSED, ""},
                {"events", EVENTS + "s 'text 1", TOKEN_REFUSED, ""},
                {"events", "8" + EVENTS.substr(1) + " 'text 1", UNKNOWN_CODE, ""},
                {"gpu", GPU, BAD_PARCEL, ""},
                {"gpu", GPU + " 1 100 gpu*100", "0 4", "100 samples"},
                {"gpu", GPU + " 1 100 gpu*99", BAD_PARCEL, ""},
                {"gpu", GPU + " 1 524288 gpu*2", BAD_PARCEL, ""},
                {"gpu", GPU + " 1 2147483647 gpu*2", BAD_PARCEL, ""},
                {"prioritys", PRIORITYS + " 3 'a", "0 4", "3 texts"},
                {"prioritys", PRIORITYS + " 101 'a", TOO_MANY, ""},
                {"prioritys", INFOS + " 1 1 info*1", "0 0", ""},  // to an empty slot
                {"infos", INFOS + " 1 101 info*101", "0 4", "101 infos"},
                {"infos", INFOS + " 1 524288 info*2", BAD_PARCEL, ""}});
    // 524288 samples would be 50 MB, had room been made for what was only announced.
    EXPECT_LT(TestSupport::PeakResidentBytes(::getpid()), peakBefore + (size_t{24} << 20));
    // A list that is too long is refused though all of it is there.
    ExpectRows({{"gpu", GPU + " 1 524289 gpu*524289", BAD_PARCEL, ""},
                {"gpu", GPU + " 1 524288 gpu*524288", "0 4", "524288 samples"}});
}

TEST_F(CallbackAbuse, WhatACallbackThrowsEndsThereAndTheNextDeliveryWorks)
{
    const auto throwOnce = [notes = notes_, hasThrown = std::make_shared<bool>(false)](auto&) -> int32_t {
        if (!std::exchange(*hasThrown, true)) {
            throw std::runtime_error("a fault of the game");
        }
        notes->Add("works");
        return 4;
    };
    ASSERT_EQ(TakeEvents(throwOnce, 1), 0);
    ASSERT_EQ(client_.RegisterGameCallback(Noting<EventFunction>(notes_, "beside"), 2), 0);
    EXPECT_EQ(service_.Ask(PUSH_EVENT), "0 0");
    EXPECT_EQ(service_.Ask(PUSH_EVENT), "0 0");
    EXPECT_EQ(notes_->WaitFor(3), (std::vector<std::string>{"beside", "works", "beside"}));
    ASSERT_EQ(TakeGpu([](auto&) -> int32_t { throw 7; }), 0);
    EXPECT_EQ(service_.Ask(PUSH_GPU), EXCEPTION);
    ASSERT_EQ(TakeGpu([](auto&) { return 5; }), 0);
    EXPECT_EQ(service_.Ask(PUSH_GPU), "0 5");
}

}  // namespace
}  // namespace SystemTest
