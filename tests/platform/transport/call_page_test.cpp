// SPDX-License-Identifier: Apache-2.0
// The page of a busy call lane: calls through it are what calls through the socket are.
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <thread>

#include "platform/transport/peer_fixture.h"
#include "support/raw_message.h"
#include "support/raw_page.h"
#include "transport/call_page.h"
#include "transport/lane_page.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using namespace std::chrono_literals;
using TAVO::Transport::CallBox;
using TAVO::Transport::CallPage;
using TAVO::Transport::FrameReader;
using TAVO::Transport::Instance;
using TAVO::Transport::LanePage;
using TAVO::Transport::MessageKind;
using TAVO::Transport::Spin;
using TestSupport::Bytes;
using TestSupport::RawBox;
using TestSupport::RawFrame;
using TestSupport::RawPage;
using TestSupport::WaitFor;

// ---- Two real processes

class BusyLane : public PeerFixture {
protected:
    void SetUp() override
    {
        PeerFixture::SetUp();
        const auto hasPage = [this] {
            for (int32_t i = 0; i < 32; ++i) {
                EXPECT_EQ(Echo(object_, i), TAVO::IPC_OK);
            }
            return MapsLaneMemory(::getpid(), RawPage::SIZE) && MapsLaneMemory(peer_.Pid(), RawPage::SIZE);
        };
        ASSERT_TRUE(WaitFor(hasPage));
    }

    // The request comes back whole.
    void EchoWords(int32_t count)
    {
        Call echo(object_, TestCode::ECHO);
        for (int32_t i = 0; i < count; ++i) {
            echo.Int(i ^ count);
        }
        ASSERT_EQ(echo.Send(), TAVO::IPC_OK);
        ASSERT_EQ(echo.reply.GetDataSize(), static_cast<size_t>(4 * count));
        for (int32_t i = 0; i < count; ++i) {
            ASSERT_EQ(echo.reply.ReadInt32(), i ^ count);
        }
    }
    // Only the request is large.
    void NoteWithWords(int32_t count)
    {
        Call note(object_, TestCode::NOTE);
        note.Int(notes_++);
        for (int32_t i = 0; i < count; ++i) {
            note.Int(i);
        }
        EXPECT_EQ(note.Send(), TAVO::IPC_OK);
    }

    int32_t notes_ = 0;
};

TEST_F(BusyLane, MessagesOfAllKindsArriveInAllOrders)
{
    constexpr int32_t MOST_WORDS = (RawBox::MOST_BYTES - RawFrame::HEADER_SIZE) / 4;
    for (int i = 0; i < 600; ++i) {  // as many as do not fit into the page
        NoteWithWords(0);
    }
    const std::function<void()> operations[] = {
        [this] { EchoWords(0); },
        [this] { EchoWords(2); },
        [this] { EchoWords(MOST_WORDS); },
        [this] { EchoWords(MOST_WORDS + 1); },
        [this] { EchoWords(100000); },
        [this] { NoteWithWords(2000); },
        [this] { EXPECT_EQ(NotesThere(), Counting(0, notes_)); },
        [this] { EXPECT_EQ(Echo(MakeIn(object_)), TAVO::IPC_OK); },
        [this] {
            EXPECT_EQ(KeepIn(object_, "ours", root_), TAVO::IPC_OK);
            EXPECT_EQ(CallKept(object_, "ours"), TAVO::IPC_OK);
        },
    };
    for (const auto& first : operations) {
        for (const auto& second : operations) {
            first();
            second();
        }
    }
    EXPECT_TRUE(WaitFor([this] { return Call(object_, TestCode::LIVE).SendForInt() == 1; })) << "made objects are left";
}

TEST_F(BusyLane, CallerThatSleepsAtThePageSeesTheDeathOfTheCallee)
{
    std::thread killer([this] {
        EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");
        peer_.Kill();
    });
    const auto start = TestSupport::Clock::now();
    EXPECT_EQ(Call(object_, TestCode::WAIT).Send(60), TAVO::IPC_DEAD_OBJECT);
    EXPECT_LT(TestSupport::Clock::now() - start, 20s);
    killer.join();
}

TEST_F(BusyLane, ThreadMayCallWhenItsThreadLocalObjectsAreDestroyed)
{
    struct AtEnd {
        std::function<void()> run;
        ~AtEnd() { run(); }
    };
    std::thread caller([this] {
        EXPECT_EQ(peer_.Ask("await-waiting 1"), "waiting");  // The lane of the main thread is in use.
        // Constructed before the calls, so destroyed after all that they leave to the thread.
        thread_local const AtEnd atEnd{[this] {
            peer_.Kill();
            EXPECT_TRUE(WaitFor([this] { return !object_->IsAlive(); }));
            EXPECT_TRUE(WaitFor([] { return !MapsLaneMemory(::getpid(), RawPage::SIZE); })) << "the lane is left";
            TAVO::Transport::ExpectCall();
            EXPECT_EQ(Echo(object_, 0), TAVO::IPC_DEAD_OBJECT);
        }};
        for (int32_t i = 0; i < 100; ++i) {
            EXPECT_EQ(Echo(object_, i), TAVO::IPC_OK);
        }
    });
    EXPECT_EQ(Call(object_, TestCode::WAIT).Send(60), TAVO::IPC_DEAD_OBJECT);
    caller.join();
}

// ---- One page, without processes

// The caller gives up after the server has found the request, and before the server has read it.
TEST(CallPage, RequestThatIsWithdrawnWhileItIsReadIsNotTaken)
{
    const Instance self;
    LanePage served;
    uint64_t number = 0;
    while (!served.OnRequest(++number, self, 1) && number < 1000) {}
    const auto called = CallPage::Open(::getpid(), static_cast<uint64_t>(served.Fd()), self, 1);
    ASSERT_NE(called, nullptr);
    const Bytes frame = RawFrame{}.Encode();
    ASSERT_FALSE(called->Requests().Put(frame.data(), frame.size())) << "nobody attends";
    served.OnRequest(++number, self, 1);
    ASSERT_NE(served.InUse(), nullptr);
    for (const bool isWithdrawn : {false, true}) {
        FrameReader reader(false, MessageKind::REQUEST, nullptr);
        ASSERT_TRUE(served.InUse()->Requests().Attend());
        ASSERT_TRUE(called->Requests().Put(frame.data(), frame.size()));
        if (isWithdrawn) {
            called->Close();
        }
        EXPECT_EQ(served.Take(reader), isWithdrawn ? FrameReader::State::MORE : FrameReader::State::COMPLETE);
    }
}

// One end: frames of one number go through its boxes, or through a socket as the box decides.
class BoxEnd {
public:
    BoxEnd(CallBox& in, CallBox& out, int fd) : in_(in), out_(out), fd_(fd), random_(static_cast<unsigned>(fd)) {}

    bool Attend() { return in_.Attend(); }
    bool Send(uint64_t number)
    {
        Frame frame;
        frame.fill(number);
        const auto* const bytes = reinterpret_cast<const uint8_t*>(&frame);
        // At any moment of what the receiver does meanwhile.
        const auto start = Clock::now() + std::chrono::nanoseconds(random_() % 5000);
        while (Clock::now() < start) {
            if (random_() % 8 == 0) {
                out_.Alert();
            }
        }
        return out_.Put(bytes, sizeof(frame)) || ::send(fd_, bytes, sizeof(frame), MSG_NOSIGNAL) == sizeof(frame);
    }
    // 0: no frame arrived in time, or a spoiled one.
    uint64_t Receive(bool attends)
    {
        Frame frame{};
        if (attends && Wait() == CallBox::FULL) {
            const auto [from, end] = in_.Frame();
            std::memcpy(&frame, from, std::min(sizeof(frame), static_cast<size_t>(end - from)));
            return in_.Release() && frame.front() == frame.back() ? frame.front() : 0;
        }
        if (!TestSupport::PollUntil(fd_, POLLIN, Clock::now() + TestSupport::TIMEOUT) ||
            ::recv(fd_, &frame, sizeof(frame), MSG_WAITALL) != sizeof(frame)) {
            return 0;
        }
        in_.ReleaseSocket();
        return frame.front();
    }

private:
    using Clock = TestSupport::Clock;
    using Frame = std::array<uint64_t, RawBox::MOST_BYTES / sizeof(uint64_t)>;

    // Leaves at once, after about the time that a frame takes, or never.
    uint32_t Wait()
    {
        const std::chrono::microseconds stays[] = {-1us, 3us, 10us, 30us, TestSupport::TIMEOUT};
        const auto stay = stays[random_() % std::size(stays)];
        Spin spin(static_cast<int>(random_() % 50));
        return in_.Wait(&spin, Clock::now() + stay).state;
    }

    CallBox& in_;
    CallBox& out_;
    const int fd_;
    std::minstd_rand random_;
};

TEST(CallPage, IsOpenedOnlyForItsLane)
{
    const Instance self{{1}};
    const Instance other{{2}};
    const auto page = CallPage::Create(self, 1);
    ASSERT_NE(page, nullptr);
    const auto fd = static_cast<uint64_t>(page->Fd());
    EXPECT_EQ(CallPage::Open(::getpid(), fd, other, 1), nullptr);
    EXPECT_EQ(CallPage::Open(::getpid(), fd, self, 2), nullptr);
    EXPECT_NE(CallPage::Open(::getpid(), fd, self, 1), nullptr);
}

// Keeps the calling thread off the processors of the other end, so that the two run at the same time.
void StayOnProcessors(int remainder)
{
    cpu_set_t all;
    cpu_set_t own;
    CPU_ZERO(&own);
    ::sched_getaffinity(0, sizeof(all), &all);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &all) && cpu % 2 == remainder) {
            CPU_SET(cpu, &own);
        }
    }
    ::sched_setaffinity(0, sizeof(own), &own);
}

TEST(CallPage, NothingIsLostWhileReceiversComeAndGo)
{
    constexpr uint64_t ROUNDS = 200000;  // or as many as a busy machine does in time
    const Instance self;
    const auto served = CallPage::Create(self, 1);
    ASSERT_NE(served, nullptr);
    const auto called = CallPage::Open(::getpid(), static_cast<uint64_t>(served->Fd()), self, 1);
    ASSERT_NE(called, nullptr);
    int fds[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
    uint64_t lastServed = 0;
    std::thread serving([&] {
        StayOnProcessors(0);
        BoxEnd end(served->Requests(), served->Replies(), fds[0]);
        while (end.Receive(end.Attend()) == lastServed + 1 && end.Send(lastServed + 1)) {
            ++lastServed;
        }
    });
    StayOnProcessors(1);
    BoxEnd end(called->Replies(), called->Requests(), fds[1]);
    const auto stop = TestSupport::Clock::now() + 10s;
    uint64_t last = 0;
    for (bool isRight = true; isRight && last != ROUNDS && TestSupport::Clock::now() < stop; ++last) {
        const bool attends = end.Attend();
        isRight = end.Send(last + 1) && end.Receive(attends) == last + 1;
        EXPECT_TRUE(isRight);
    }
    called->Close();
    ::shutdown(fds[1], SHUT_RDWR);
    serving.join();
    EXPECT_EQ(lastServed, last);
    EXPECT_LT(TestSupport::Clock::now(), stop + 10s) << "a receiver was not woken up";
    ::close(fds[0]);
    ::close(fds[1]);
}

}  // namespace
}  // namespace TransportTest
