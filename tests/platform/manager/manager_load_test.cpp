// SPDX-License-Identifier: Apache-2.0
// A load starts the service once, however many ask, and every asker gets one answer.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "platform/manager/ability_client.h"
#include "platform/manager/manager_fixture.h"
#include "tavo/message_parcel.h"

namespace ManagerTest {
namespace {

using TestSupport::Child;
using TestSupport::WaitFor;

using ManagerLoad = ManagerFixture;

TEST_F(ManagerLoad, ServiceIsStartedOnceForAllCallers)
{
    WriteAbility(ID, "when-told");
    Child manager = StartManager();
    std::vector<std::future<std::string>> askers(100);
    for (std::future<std::string>& asker : askers) {
        asker = std::async(std::launch::async, Load, ID);
    }
    std::vector<Child> clients;
    for (int i = 0; i < 10; ++i) {
        clients.push_back(StartClient());
        clients.back().Pipe().Send("load 4711");
    }
    NotifyServices();
    std::vector<std::string> answers;
    for (std::future<std::string>& asker : askers) {
        answers.push_back(asker.get());
    }
    for (Child& client : clients) {
        answers.push_back(client.Pipe().Receive().value_or(""));
    }
    answers.push_back(Load(ID));  // a running service is the answer at once
    ASSERT_EQ(Started().size(), 1u);
    EXPECT_EQ(answers, std::vector<std::string>(111, "loaded " + std::to_string(Started()[0])));
}

// A load waits only if its start may still succeed. A repaired program is found without another load.
TEST_F(ManagerLoad, LoadsAreRefusedUntilTheProgramIsRepaired)
{
    const struct {
        const char* make;  // a command; the program's path is in P
        bool isStarted;    // the first load waits for a process
    } programs[] = {
        {"true", false},
        {"echo > $P", false},
        {"mkdir $P", false},
        {"echo '#!/no/such/interpreter' > $P; chmod +x $P", false},
        {"echo 'no program' > $P; chmod +x $P", false},
        {"printf '#!/bin/sh\nexit 1\n' > $P; chmod +x $P", true},
        {"printf '#!/bin/sh\nkill -9 $$\n' > $P; chmod +x $P", true},
        {"printf '#!/bin/sh\nsleep 170 >/dev/null 2>&1 &\necho $! >> $TEST_NOTES\n' > $P; chmod +x $P", true},
    };
    const std::string refused = Status(TAVO::ABILITY_CANNOT_START);
    int id = 0;
    for (const auto& program : programs) {
        const std::string text = std::to_string(++id);
        WriteAbilityFile(text + ".json", R"({"id": )" + text + R"(, "program": "p)" + text +
                                             R"(", "arguments": ["serve", ")" + text + R"("]})");
        ::setenv("P", (AbilityPath() + "/p" + text).c_str(), 1);
        ASSERT_EQ(std::system(program.make), 0);
    }
    Child manager = StartManager();
    id = 0;
    for (const auto& program : programs) {
        SCOPED_TRACE(program.make);
        EXPECT_EQ(Load(++id), program.isStarted ? "failed" : refused);
        EXPECT_EQ(Load(id), refused);
        EXPECT_EQ(Check(id), "null");
    }
    for (const TAVO::AbilityDescription& ability : Manager()->DescribeAbilities()) {
        EXPECT_EQ(ability.fault.find(ability.program), 0u) << ability.fault;
        EXPECT_NE(ability.fault.find("; "), std::string::npos) << "no remedy: " << ability.fault;
    }
    for (const pid_t forked : Started()) {
        EXPECT_TRUE(WaitUntilDead(forked)) << "a process of a start that failed";
    }
    for (id = 1; id <= static_cast<int>(std::size(programs)); ++id) {
        const std::string path = AbilityPath() + "/p" + std::to_string(id);
        std::filesystem::remove(path);
        std::filesystem::create_symlink(TestSupport::ProgramPath("manager_test_service"), path);
    }
    for (id = 1; id <= static_cast<int>(std::size(programs)); ++id) {
        SCOPED_TRACE(programs[id - 1].make);
        EXPECT_TRUE(WaitFor([id] { return PidIn(Check(id)) != 0; }));
        EXPECT_EQ(Load(id), "loaded " + std::to_string(PidIn(Check(id))));
    }
    for (const TAVO::AbilityDescription& ability : Manager()->DescribeAbilities()) {
        EXPECT_EQ(ability.fault, "");
    }
    EXPECT_EQ(Load(99), Status(TAVO::ABILITY_UNKNOWN));
}

// The manager may hear of a death milliseconds after its client. It must not answer with the dead service then.
TEST_F(ManagerLoad, EndingServiceIsNotReturned)
{
    class Notice : public TAVO::IRemoteObject::DeathRecipient {
    public:
        void OnRemoteDied(const TAVO::wptr<TAVO::IRemoteObject>&) override { died.set_value(); }
        std::promise<void> died;
    };
    WriteAbility(ID, "end-slowly");
    Child manager = StartManager();
    Child client = StartClient();
    const int first = PidIn(client.Ask("load 4711"));
    ASSERT_TRUE(WaitFor([this] { return Started().size() == 2; }));
    const auto object = Manager()->CheckAbility(ID);
    ASSERT_NE(object, nullptr);
    const TAVO::sptr<Notice> notice(new Notice);
    ASSERT_TRUE(object->AddDeathRecipient(notice));
    ::kill(first, SIGKILL);
    notice->died.get_future().wait();
    const int second = PidIn(Load(ID));
    EXPECT_NE(second, 0);
    EXPECT_NE(second, first);
}

// The manager finds the end of the process and the next load at the same time: that load must not wait for a process
// that has ended, whichever of the two is handled first.
TEST_F(ManagerLoad, LoadDoesNotWaitForAStartThatHasFailed)
{
    constexpr int ROUNDS = 10;
    for (int id = 1; id <= ROUNDS; ++id) {
        WriteAbility(id, "when-told");
    }
    Child manager = StartManager();
    Child client = StartClient();
    for (int id = 1; id <= ROUNDS; ++id) {
        SCOPED_TRACE(id);
        EXPECT_EQ(client.Ask("check " + std::to_string(id)), "null");
        std::future<std::string> first = BeginLoad(id);
        const size_t position = static_cast<size_t>(id) - 1;
        ASSERT_TRUE(WaitFor([this, position] { return Started().size() == 2 * position + 1; }));
        manager.Stop();
        client.Pipe().Send("load " + std::to_string(id));
        ::kill(Started().back(), SIGKILL);
        EXPECT_TRUE(WaitUntilDead(Started().back()));
        manager.Continue();
        EXPECT_EQ(first.get(), "failed");
        EXPECT_EQ(client.Pipe().Receive(), Status(TAVO::ABILITY_CANNOT_START));
        NotifyServices();  // of the manager's own retry
        EXPECT_TRUE(WaitFor([this, id] { return Check(id) == "object " + std::to_string(Started().back()); }));
    }
}

TEST_F(ManagerLoad, WaitingLoadsOfOneClientAreLimited)
{
    constexpr size_t LIMIT = 256;
    WriteAbility(ID, "when-told");
    Child manager = StartManager();
    std::vector<std::future<std::string>> loads;
    for (size_t load = 0; load < LIMIT; ++load) {
        loads.push_back(BeginLoad(ID));
    }
    EXPECT_EQ(Load(ID), Status(TAVO::ABILITY_REFUSED));
    NotifyServices();
    for (std::future<std::string>& load : loads) {
        EXPECT_EQ(load.get(), "loaded " + std::to_string(Started().at(0)));
    }
}

TEST_F(ManagerLoad, ServiceThatDoesNotRegisterIsEndedAndItsLoadsFail)
{
    WriteAbility(ID, "when-told");
    Child manager = StartManager();
    const auto begin = TestSupport::Clock::now();
    EXPECT_EQ(Load(ID), "failed");
    EXPECT_GE(TestSupport::Clock::now() - begin, std::chrono::seconds(20));
    ASSERT_FALSE(Started().empty());
    EXPECT_TRUE(WaitUntilDead(Started().front()));
}

TEST_F(ManagerLoad, ClientsAreNotifiedOfChanges)
{
    WriteAbility(ID, "serve", true);
    Child manager = StartManager();
    Child service = StartExternal();
    EXPECT_EQ(Check(ID), "object " + std::to_string(service.Pid()));
    EXPECT_EQ(service.Ask("remove 4711"), Status(TAVO::ABILITY_OK));
    // The service stays alive, so only the manager's notice can end the remembered answer.
    EXPECT_TRUE(WaitFor([] { return Check(ID) == "null"; }));
    EXPECT_EQ(service.Ask("remove 4711"), Status(TAVO::ABILITY_NOT_RUNNING));

    // A question that finds the service gone has to pass that on, whatever it is answered itself.
    EXPECT_EQ(Add(ID), Status(TAVO::ABILITY_OK));
    EXPECT_EQ(service.Ask("check 4711"), "object " + std::to_string(::getpid()));
    std::ifstream(RuntimePath() + "/4711.lock").close();  // drops the lock, by which the manager takes us for dead
    EXPECT_EQ(Remove(ID), Status(TAVO::ABILITY_NOT_RUNNING));
    EXPECT_TRUE(WaitFor([&service] { return service.Ask("check 4711") == "null"; }));
}

TEST_F(ManagerLoad, DescribesEveryAbilityByAscendingId)
{
    WriteAbility(20, "serve");
    WriteAbility(10, "serve");
    Child manager = StartManager();
    ::kill(PidIn(Load(10)), SIGKILL);
    EXPECT_TRUE(WaitFor([] { return Check(10) == "null"; }));
    const int pid = PidIn(Load(20));
    const auto now = [] {
        return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
    };
    int64_t before = 0;
    std::string text;
    for (const TAVO::AbilityDescription& ability : Manager()->DescribeAbilities()) {
        EXPECT_TRUE(before < ability.startedAt && ability.startedAt < now()) << ability.id << " was started first";
        before = ability.startedAt;
        text += std::to_string(ability.id) + (ability.running ? " running " : " not running ") +
                (ability.startable ? "startable " : "external ") + std::to_string(ability.pid) + " starts " +
                std::to_string(ability.starts) + " " + ability.program + "\n";
    }
    const std::string program = TestSupport::ProgramPath("manager_test_service");
    EXPECT_EQ(text, "10 not running startable 0 starts 1 " + program + "\n20 running startable " + std::to_string(pid) +
                        " starts 1 " + program + "\n");
}

// The manager would not notice the end of a third process, and could be made to wait for the owner of its object.
TEST_F(ManagerLoad, OnlyObjectsOfTheCallerAreAccepted)
{
    using Server = TAVO::ISystemAbilityManager;
    WriteAbility(ID, "serve", true);
    Child manager = StartManager();
    EXPECT_EQ(Manager()->LoadAbility(ID, nullptr), TAVO::ABILITY_BAD_REQUEST);
    EXPECT_EQ(Manager()->AddAbility(ID, nullptr), TAVO::ABILITY_BAD_REQUEST);
    Child service = StartExternal();
    const TAVO::sptr<TAVO::IRemoteObject> foreign = Manager()->CheckAbility(ID);
    EXPECT_EQ(Manager()->AddAbility(ID, foreign), TAVO::ABILITY_BAD_REQUEST);
    EXPECT_EQ(Add(ID), Status(TAVO::ABILITY_TAKEN));
    EXPECT_EQ(PidIn(Check(ID)), service.Pid());

    // The same past the checks on the client's side.
    const auto ask = [](Server::Code code, const TAVO::sptr<TAVO::IRemoteObject>& object) {
        TAVO::MessageParcel data;
        TAVO::MessageParcel reply;
        TAVO::MessageOption option;
        data.WriteInterfaceToken(Server::GetDescriptor());
        data.WriteInt32(ID);
        data.WriteRemoteObject(object);
        const int status = Manager()->AsObject()->SendRequest(code, data, reply, option);
        return status != TAVO::IPC_OK || code == Server::CHECK_ABILITY ? status : reply.ReadInt32();
    };
    EXPECT_EQ(ask(Server::CHECK_ABILITY, foreign), TAVO::IPC_BAD_MESSAGE);
    EXPECT_EQ(ask(Server::LOAD_ABILITY, foreign), TAVO::ABILITY_BAD_REQUEST);
    EXPECT_EQ(ask(Server::ADD_ABILITY, foreign), TAVO::ABILITY_BAD_REQUEST);
    const TAVO::sptr<TAVO::IRemoteObject> own(new PidService);
    EXPECT_EQ(ask(Server::CHECK_ABILITY, own), TAVO::IPC_OK);
    EXPECT_EQ(ask(Server::LOAD_ABILITY, own), TAVO::ABILITY_OK);
}

// However many clients are connected, a service can register; clients beyond the limit are refused, with the reason.
TEST_F(ManagerLoad, ClientsBeyondTheDescriptorLimitAreRefused)
{
    WriteAbility(ID, "serve");
    Child manager = Child::Start({"/bin/sh", "-c", "ulimit -n 64; exec \"$0\" --abilities \"$1\" 2>&1",
                                  TestSupport::ProgramPath("tavo_manager"), AbilityPath()});
    ASSERT_TRUE(WaitFor([this] { return std::filesystem::exists(RuntimePath() + "/manager"); }));
    std::vector<Child> clients;
    for (int i = 0; i < 40; ++i) {
        clients.push_back(StartClient());
        clients.back().Pipe().Send("load 4711");
    }
    std::map<std::string, int> answers;
    for (Child& client : clients) {
        ++answers[client.Pipe().Receive().value_or("")];
    }
    ASSERT_EQ(Started().size(), 1u);
    const int loaded = answers["loaded " + std::to_string(Started()[0])];
    EXPECT_GE(loaded, 5) << ::testing::PrintToString(answers);
    const int refused = answers["no manager"] + answers[Status(TAVO::ABILITY_UNREACHABLE)];
    EXPECT_EQ(loaded + refused, 40) << ::testing::PrintToString(answers);
    const std::string line = manager.Pipe().Receive().value_or("");
    EXPECT_NE(line.find("Raise the manager's limit of open files"), std::string::npos) << line;
    clients.clear();
    EXPECT_TRUE(WaitFor([this] { return PidIn(Check(ID)) == Started()[0]; }));
}

TEST_F(ManagerLoad, ProcessThatWasNotStartedMayNotRegister)
{
    WriteAbility(ID, "serve");
    Child manager = StartManager();
    Child impostor = StartClient();
    EXPECT_EQ(impostor.Ask("add 4711"), Status(TAVO::ABILITY_REFUSED));
    EXPECT_EQ(impostor.Ask("add 99"), Status(TAVO::ABILITY_REFUSED));
    const int pid = PidIn(Load(ID));
    EXPECT_EQ(std::vector<pid_t>{pid}, Started());
    EXPECT_EQ(impostor.Ask("add 4711"), Status(TAVO::ABILITY_TAKEN));
    EXPECT_EQ(PidIn(Check(ID)), pid);
}

}  // namespace
}  // namespace ManagerTest
