// SPDX-License-Identifier: Apache-2.0
// The page of a busy call lane with one end by hand: what it may do, and that nothing it writes harms more than the lane.
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>

#include "platform/transport/hub_fixture.h"
#include "support/raw_page.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TestSupport::RawBox;
using TestSupport::RawPage;
using TestSupport::ReadAt;
using TestSupport::WaitFor;

// ---- The hub serves; this process calls so often that it is offered a page

class OfferedPage : public HubFixture {
protected:
    void SetUp() override
    {
        HubFixture::SetUp();
        lane_ = raw_->OpenLane();
        std::optional<RawRecord> offer;
        while (!offer && last_ < 32 * 100) {  // a slow machine may take longer than a busy caller does
            ASSERT_TRUE(EchoOften());
            offer = raw_->AwaitRecord(RawRecord::RING, std::chrono::milliseconds(last_ < 64 ? 0 : 200));
        }
        ASSERT_TRUE(offer);
        EXPECT_EQ(offer->a, raw_->LastLane());
        EXPECT_EQ(offer->flags, 0u);
        fd_ = offer->b;
        page_.emplace(hub_.Pid(), fd_);
        ASSERT_TRUE(page_->IsOpen());
    }

    static RawFrame EchoRequest(uint64_t number)
    {
        return RequestFor(TestCode::ECHO, 0, number).Int32(static_cast<int32_t>(number));
    }
    // Through the socket.
    bool Echo()
    {
        const RawFrame request = EchoRequest(++last_);
        const auto reply = lane_.Send(request.Encode()) ? lane_.ReceiveFrame() : std::nullopt;
        return reply && reply->number == request.number && reply->data == request.data;
    }
    bool EchoOften()
    {
        int count = 0;
        while (count < 32 && Echo()) {
            ++count;
        }
        return count == 32;
    }
    // The hub waits at the page for a moment after a request that was announced there.
    bool AwaitAttended()
    {
        page_->replies.State() = RawBox::ABSENT;
        page_->requests.Set(RawBox::SOCKET);
        const bool isEchoed = Echo();
        page_->replies.State() = RawBox::ASLEEP;
        return isEchoed && WaitFor([this] { return page_->requests.IsAttended(); }, 20ms);
    }
    // Puts the frame of the next number into the page; `size` and `state` may be impossible.
    template <typename Frame>
    bool Put(const Frame& frame, std::optional<uint32_t> size = std::nullopt, uint32_t state = RawBox::FULL)
    {
        return WaitFor([&] {
            if (!AwaitAttended()) {
                return false;
            }
            const Bytes bytes = frame(last_ + 1);
            return page_->requests.Put(bytes, size.value_or(static_cast<uint32_t>(bytes.size())), state);
        });
    }
    bool HubHasDescriptor() const
    {
        std::error_code error;
        const auto file = "/proc/" + std::to_string(hub_.Pid()) + "/fd/" + std::to_string(fd_);
        return std::filesystem::read_symlink(file, error).string().starts_with("/memfd:");
    }

    RawSocket lane_;
    uint64_t last_ = 0;  // request on the lane
    uint64_t fd_ = 0;
    std::optional<RawPage> page_;
};

TEST_F(OfferedPage, RequestInThePageIsAnsweredInThePage)
{
    EXPECT_TRUE(HubHasDescriptor());
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(Put([](uint64_t next) { return EchoRequest(next).Encode(); }));
        EXPECT_FALSE(HubHasDescriptor());
        EXPECT_EQ(page_->replies.Take(), EchoReply(EchoRequest(++last_)).Encode());
    }
}

TEST_F(OfferedPage, DescriptorOfAnIgnoredOfferIsClosed)
{
    EXPECT_TRUE(WaitFor([this] { return EchoOften() && !HubHasDescriptor(); }));
}

// How a frame of at most 8 bytes of data can be wrong.
struct Spoiled {
    const char* name;
    std::function<Bytes(RawFrame frame)> bytes;
    std::optional<uint32_t> size = std::nullopt;
    uint32_t state = RawBox::FULL;
};

void PrintTo(const Spoiled& row, std::ostream* out)
{
    *out << row.name;
}

Bytes Valid(const RawFrame& frame)
{
    return frame.Encode();
}

const Spoiled SPOILED[] = {
    {"nothing", Valid, 0},
    {"part_of_a_header", Valid, 31},
    {"part_of_the_data", Valid, 35},
    {"more_than_the_header_announces", Valid, 44},
    {"two_frames",
     [](RawFrame frame) {
         Bytes bytes = frame.Encode();
         ++frame.number;
         const Bytes second = frame.Encode();
         bytes.insert(bytes.end(), second.begin(), second.end());
         return bytes;
     }},
    {"impossible_header", [](const auto&) { return Bytes(32, 0xff); }},
    {"data_beyond_the_page", [](RawFrame frame) { return frame.dataBytes = 64 * 1024, frame.Encode(); }, UINT32_MAX},
    {"number_of_an_earlier_one", [](RawFrame frame) { return --frame.number, frame.Encode(); }},
    {"number_of_a_later_one", [](RawFrame frame) { return ++frame.number, frame.Encode(); }},
    {"other_kind", [](RawFrame frame) { return frame.kind ^= RawFrame::REQUEST ^ RawFrame::REPLY, frame.Encode(); }},
    {"unknown_state", Valid, std::nullopt, 77},
    {"closed", Valid, std::nullopt, RawBox::CLOSED},
};

class SpoiledRequest : public OfferedPage, public ::testing::WithParamInterface<Spoiled> {};

TEST_P(SpoiledRequest, IsNotRunAndEndsItsLaneOnly)
{
    const Spoiled& row = GetParam();
    const auto frame = [&row](uint64_t next) { return row.bytes(RequestFor(TestCode::NOTE, 0, next).Int32(1)); };
    ASSERT_TRUE(Put(frame, row.size, row.state));
    EXPECT_TRUE(lane_.WaitForEnd());
    const auto notes = raw_->CallOnce(RequestFor(TestCode::NOTES));
    EXPECT_TRUE(notes && notes->data.empty());
    EXPECT_TRUE(raw_->Ping());
}

INSTANTIATE_TEST_SUITE_P(CallPage, SpoiledRequest, ::testing::ValuesIn(SPOILED));

// ---- This process calls; a raw peer offers pages and answers

// Runs `script` in a process whose object is "callee" here; it returns whether the conversation was right.
class PageOfAnother : public ::testing::Test {
protected:
    sptr<IRemoteObject> Serve(bool (*script)(RawPeer& raw))
    {
        callee_ = ForkCallee(dir_.Path(), "callee", [script](RawPeer& raw) { ::_exit(script(raw) ? 0 : 1); });
        ServeAsHub();
        EXPECT_TRUE(StartCallee(callee_));
        return World::Get().Kept("callee");
    }
    void TearDown() override { EXPECT_EQ(callee_.WaitForExit(), "exit 0"); }

    TestSupport::PrivateRuntimeDir dir_;
    Child callee_;
};

// Answers the next request of the socket, after `before` while the caller waits.
template <typename Before>
bool AnswerOne(RawSocket& lane, const Before& before)
{
    const auto request = lane.ReceiveFrame();
    return request && before() && lane.Send(EchoReply(*request).Encode());
}

// The next lane of the caller, with a page that it uses from its third call on.
struct PagedLane {
    explicit PagedLane(RawPeer& raw) : lane(raw.Accept(hello)), page(raw.Instance(), hello.lane)
    {
        isReady = AnswerOne(lane, [&] { return OfferMemory(raw, hello.lane, page.Fd()); });
        // The first call after the offer is announced in the page, and goes through the socket.
        const auto request = lane.ReceiveFrame();
        isReady = isReady && request && page.requests.State() == RawBox::SOCKET;
        page.requests.Set(RawBox::ASLEEP);
        isReady = isReady && page.replies.Put(EchoReply(*request).Encode());
    }

    RawHello hello;
    RawSocket lane;
    RawPage page;
    bool isReady;
};

// The reply to a request of the page.
RawFrame ReplyTo(const Bytes& request)
{
    RawFrame reply;
    reply.kind = RawFrame::REPLY;
    reply.number = ReadAt<uint64_t>(request, 16);
    reply.data.assign(request.begin() + RawFrame::HEADER_SIZE, request.end());
    return reply;
}

bool AnswerOnNextLane(RawPeer& raw)
{
    RawHello hello;
    RawSocket lane = raw.Accept(hello);
    return AnswerOne(lane, [] { return true; });
}

bool SpoilReplies(RawPeer& raw)
{
    for (const Spoiled& row : SPOILED) {
        PagedLane on(raw);
        const auto request = on.page.requests.Take();
        if (!on.isReady || !request) {
            return false;
        }
        const Bytes reply = row.bytes(ReplyTo(*request));
        if (!on.page.replies.Put(reply, row.size.value_or(static_cast<uint32_t>(reply.size())), row.state) ||
            !on.lane.WaitForEnd()) {
            return false;
        }
    }
    return AnswerOnNextLane(raw);
}

TEST_F(PageOfAnother, SpoiledReplyFailsItsCallOnly)
{
    const sptr<IRemoteObject> object = Serve(SpoilReplies);
    for (const Spoiled& row : SPOILED) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(Echo(object, 1), TAVO::IPC_OK);
        ASSERT_EQ(Echo(object, 2), TAVO::IPC_OK);
        ASSERT_EQ(Echo(object, 3), TAVO::IPC_BROKEN);
    }
    EXPECT_EQ(Echo(object, 4), TAVO::IPC_OK);
}

bool WithholdReply(RawPeer& raw)
{
    PagedLane on(raw);
    const auto hasState = [&on](uint32_t state) {
        return WaitFor([&on, state] { return on.page.requests.State() == state; });
    };
    return on.isReady && hasState(RawBox::FULL) && hasState(RawBox::CLOSED) && AnswerOnNextLane(raw);
}

TEST_F(PageOfAnother, CallThatTimesOutWithdrawsItsRequest)
{
    const sptr<IRemoteObject> object = Serve(WithholdReply);
    ASSERT_EQ(Echo(object, 1), TAVO::IPC_OK);
    ASSERT_EQ(Echo(object, 2), TAVO::IPC_OK);
    const auto start = TestSupport::Clock::now();
    EXPECT_EQ(Call(object, TestCode::ECHO).Int(3).Send(1), TAVO::IPC_TIMED_OUT);
    EXPECT_LT(TestSupport::Clock::now() - start, 20s);
    EXPECT_EQ(Echo(object, 4), TAVO::IPC_OK);
}

}  // namespace
}  // namespace TransportTest
