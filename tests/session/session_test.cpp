// SPDX-License-Identifier: Apache-2.0
// A session against the real manager and service, which is killed, stopped, late or missing.
#include "veltra_session.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <mutex>
#include <thread>

#include "system/system_fixture.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;
using namespace std::chrono_literals;

class SessionTest : public SystemFixture {
protected:
    // The next event for which `isWanted` holds, however many come before.
    template <typename Wanted>
    static bool WaitForEvent(Session& session, Wanted isWanted)
    {
        const Clock::time_point deadline = Clock::now() + TestSupport::TIMEOUT;
        bool isFound = false;
        while (!isFound && Clock::now() < deadline) {
            session.Dispatch([&](const SessionEvent& event) { isFound = isFound || isWanted(event); }, 1s);
        }
        return isFound;
    }

    static bool IsDevice(const SessionEvent& event) { return event.kind == SessionEvent::Kind::DEVICE; }

    static bool Reaches(const Session& session, ServiceState state)
    {
        return WaitFor([&] { return session.Status().state == state; });
    }
};

TEST_F(SessionTest, HasTheStateEventsAndBatchesOfAServiceThatItStarts)
{
    StartStory();
    SessionOptions options;
    options.gpuInterval = 50ms;
    Session session(options);
    EXPECT_TRUE(WaitForEvent(session, IsDevice));
    EXPECT_TRUE(WaitForEvent(session, [](const SessionEvent& event) { return event.samples.size() == 4; }));
    EXPECT_TRUE(WaitFor([&] { return session.Latest().number > 2; }));
    const DeviceSnapshot snapshot = session.Latest();
    EXPECT_EQ(snapshot.temperature->value, 50);
    EXPECT_STREQ(snapshot.levelFrom->text, "scenario");
    EXPECT_FALSE(snapshot.batteryPercent);
    EXPECT_LT(snapshot.Age(), SOON);
    EXPECT_NE(session.Details().document.find("\"temperature\""), std::string::npos);
}

TEST_F(SessionTest, SubscribesAgainAfterTheDeathOfTheServiceWithOneEvent)
{
    StartStory();
    SessionOptions options;
    options.gameName = "com.example.session";
    options.gpuInterval = 50ms;
    Session session(options);
    ASSERT_TRUE(
        WaitForEvent(session, [](const SessionEvent& event) { return event.state == ServiceState::CONNECTED; }));
    session.Dispatch([](const SessionEvent&) {});
    ::kill(ServicePid(), SIGKILL);
    const Clock::time_point killed = Clock::now();
    std::string states;
    const auto note = [&](const SessionEvent& event) {
        if (event.kind == SessionEvent::Kind::SERVICE) {
            states += event.state == ServiceState::STARTING ? "lost " : "back ";
        }
        return states == "lost back ";
    };
    EXPECT_TRUE(WaitForEvent(session, note)) << states;
    // CONNECTED comes after the subscriptions. They take a second at most, on a machine that does nothing else.
    EXPECT_LT(Clock::now() - killed, SOON);
    EXPECT_TRUE(WaitForEvent(session, IsDevice));
    EXPECT_TRUE(WaitForEvent(session, [](const SessionEvent& event) { return !event.samples.empty(); }));
    EXPECT_EQ(session.Status().connections, 2u);
    GameState state;
    EXPECT_EQ(client_.QueryGameState(state), 0);
    EXPECT_EQ(state.bundleName, "com.example.session") << "the new service does not know the game";
}

TEST_F(SessionTest, ItsEndEndsItsSubscriptions)
{
    StartManager();
    Child service = StartTestService();
    SessionOptions options;
    options.gpuInterval = 50ms;
    auto session = std::make_unique<Session>(options);
    EXPECT_TRUE(WaitFor([&] { return service.Ask("push gpu") == "0 0"; }));  // which is the later one of the two
    session.reset();
    EXPECT_EQ(service.Ask("push events"), "no such object");
    EXPECT_EQ(service.Ask("push gpu"), "no such object");
}

TEST_F(SessionTest, IsMadeAndDestroyedAtOnceWithoutAManagerAndDuringALoad)
{
    WriteAbility("system_test_service", {"when-told"});
    for (const bool hasManager : {false, true}) {
        if (hasManager) {
            StartManager();
        }
        const Clock::time_point begin = Clock::now();
        {
            Session session;
            EXPECT_LT(Clock::now() - begin, 1s);
            EXPECT_TRUE(session.ReportGameEvent({}));
            EXPECT_EQ(session.Latest().number, 0u);
            EXPECT_TRUE(Reaches(session, hasManager ? ServiceState::STARTING : ServiceState::UNAVAILABLE));
            EXPECT_TRUE(!hasManager || WaitFor([this] { return Starts() == 1; }));
        }
        EXPECT_LT(Clock::now() - begin, SOON) << "it waited for the load";
    }
}

TEST_F(SessionTest, ConnectsToAServiceThatStartsLater)
{
    Session session;
    ASSERT_TRUE(Reaches(session, ServiceState::UNAVAILABLE));
    ASSERT_TRUE(session.UpdateGameInfo(1, "com.example.late", 0));
    StartStory();
    EXPECT_TRUE(Reaches(session, ServiceState::CONNECTED));
    EXPECT_TRUE(WaitFor([&] { return session.Status().reportsSent == 1; }));
    EXPECT_EQ(session.Status().reportsFailed, 0u);
}

TEST_F(SessionTest, AServiceThatHangsBlocksNeitherReportsNorTheEnd)
{
    StartStory();
    auto session = std::make_unique<Session>(SessionOptions());
    ASSERT_TRUE(WaitForEvent(*session, IsDevice));
    const pid_t service = ServicePid();
    ::kill(service, SIGSTOP);
    EXPECT_TRUE(Reaches(*session, ServiceState::NOT_ANSWERING));
    const Clock::time_point begin = Clock::now();
    for (int i = 0; i < 1000; ++i) {
        session->UpdateGameInfo(1, "com.example.hung", 0);
    }
    EXPECT_GT(session->Status().reportsRefused, 0u);
    session.reset();
    EXPECT_LT(Clock::now() - begin, SOON);
    ::kill(service, SIGCONT);
}

// Which receives no signal of the game.
TEST_F(SessionTest, TheHandlerRunsOnTheSessionsThreadAndMayEndTheSession)
{
    StartStory();
    std::mutex mutex;
    std::unique_ptr<Session> session;
    std::thread::id thread;
    sigset_t blocked{};
    SessionOptions options;
    options.handler = [&](const SessionEvent&) {
        const std::lock_guard lock(mutex);
        thread = std::this_thread::get_id();
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        session.reset();
    };
    {
        const std::lock_guard lock(mutex);
        session = std::make_unique<Session>(options);
    }
    EXPECT_TRUE(WaitFor([&] {
        const std::lock_guard lock(mutex);
        return session == nullptr;
    }));
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_TRUE(::sigismember(&blocked, SIGALRM) == 1 && ::sigismember(&blocked, SIGSEGV) == 0);
}

TEST_F(SessionTest, AHandlerThatReplacesItsSessionLeavesTheNextOneSubscribed)
{
    StartStory();
    std::mutex mutex;
    std::unique_ptr<Session> session;
    auto life = std::make_shared<int>();
    const std::weak_ptr<int> firstThread = life;  // ends with it, as the handler does
    SessionOptions options;
    options.gpuInterval = 50ms;
    options.handler = [&, next = options, life = std::move(life)](const SessionEvent&) {
        const std::lock_guard lock(mutex);
        session.reset();
        session = std::make_unique<Session>(next);
        EXPECT_TRUE(Reaches(*session, ServiceState::CONNECTED));
    };
    {
        const std::lock_guard lock(mutex);
        session = std::make_unique<Session>(std::move(options));
    }
    ASSERT_TRUE(WaitFor([&] { return firstThread.expired(); }));
    const std::lock_guard lock(mutex);
    session->Dispatch([](const SessionEvent&) {});
    int batches = 0;  // the first may have been sent before
    EXPECT_TRUE(
        WaitForEvent(*session, [&](const SessionEvent& event) { return !event.samples.empty() && ++batches > 2; }));
    EXPECT_TRUE(WaitForEvent(*session, IsDevice));
}

// Its destructor could not wait for a thread.
TEST_F(SessionTest, HasNoThreadInAForkedChild)
{
    Session session;
    ASSERT_TRUE(Reaches(session, ServiceState::UNAVAILABLE));
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20);
        auto life = std::make_shared<int>();
        const std::weak_ptr<int> handler = life;
        {
            SessionOptions options;
            options.handler = [life = std::move(life)](const SessionEvent&) {};
            Session own(std::move(options));
        }
        ::_exit(handler.expired() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace SystemTest
