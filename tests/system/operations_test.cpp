// SPDX-License-Identifier: Apache-2.0
// The first call starts the service, and every operation comes back with what the service says about this machine.
#include <limits>

#include "ipc/server_codes.h"
#include "support/event_values.h"
#include "system/system_fixture.h"
#include "tavo/ipc_object_stub.h"
#include "tavo/message_parcel.h"
#include "tavo/system_ability_manager_client.h"

namespace SystemTest {
namespace {

using namespace TAVO::Veltra;

// The service's own codes, as its documentation has them.
constexpr int32_t BAD_REQUEST = 1010310101;

// What is kept for a client goes with its process, so the objects that it brings have to be its own.
TEST_F(SystemFixture, CallbackObjectOfAThirdProcessIsRefused)
{
    constexpr int32_t OTHER_ID = 7;
    const auto manager = [] { return TAVO::SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager(); };
    WriteAbilityFile("7.json", R"({"id": 7, "program": "none", "external": true})");
    Child other = Child::Fork([&manager](TestSupport::LinePipe& parent) {
        parent.Receive();
        const TAVO::sptr<TAVO::IRemoteObject> object(new TAVO::IPCObjectStub(u"zem.game.perf.iGpNapiEventCallback"));
        parent.Send(std::to_string(manager()->AddAbility(OTHER_ID, object)));
        parent.Receive();
        return 0;
    });
    StartManager();
    EXPECT_EQ(other.Ask("register"), "0");
    EXPECT_EQ(client_.CallAuth("start"), 0);
    const auto subscribe = [&manager](const TAVO::sptr<TAVO::IRemoteObject>& object) {
        TAVO::MessageParcel data;
        TAVO::MessageParcel reply;
        TAVO::MessageOption option;
        data.WriteInterfaceToken(u"zem.game.perf.iVeltraServerInterface");
        data.WriteRemoteObject(object);
        const auto service = manager()->CheckAbility(VELTRA_SERVER_SA_ID);
        EXPECT_EQ(service->SendRequest(static_cast<uint32_t>(ServerCode::REGISTER_CALL_BACK), data, reply, option), 0);
        return reply.ReadInt32();
    };
    EXPECT_EQ(subscribe(manager()->CheckAbility(OTHER_ID)), BAD_REQUEST);
    EXPECT_EQ(subscribe(new TAVO::IPCObjectStub(u"zem.game.perf.iGpNapiEventCallback")), 0);
}

// The answers follow the machine's files, through service, transport, library and the smallest of programs.
TEST_F(SystemFixture, DeviceStateComesFromTheFilesOfTheMachine)
{
    WriteRealAbility("desktop");
    StartManager();
    Child example = Child::Start({"veltra_minimal"});
    EXPECT_EQ(example.Pipe().Receive(), "temperature level 0, GPU load level 5");
    EXPECT_EQ(example.WaitForExit(), "exit 0");

    const int32_t unknown = std::numeric_limits<int32_t>::min();
    using Values = std::vector<int32_t>;
    EXPECT_EQ(ValuesOf(client_.GetDeviceInfo({{-1, {}}})), (Values{0, 0, 0, 0, 0, 0, 0, unknown, 0, 0, 0}));
    EXPECT_EQ(ValuesOf(client_.GetDeviceInfo({{1, {{"any", "thing"}}}})), (Values{0, 0, 0, 0, 0, 0, 0, 41, 0, 0, 0}));
    EXPECT_EQ(ValuesOf(client_.GetDeviceInfo({})), (Values{0, 5, 0, 0, 0, 2, 2450, 41, 0, 0, 0}));
    EXPECT_EQ(client_.GetDeviceInfo(std::vector<QueryDeviceStateDetail>(65)).resultCode, BAD_REQUEST);

    EXPECT_EQ(Starts(), 1);
}

// The first program succeeds on a machine that does not know how hot it is.
TEST_F(SystemFixture, UnknownTemperatureLevelIsNoFailure)
{
    WriteRealAbility("virtual");
    StartManager();
    Child example = Child::Start({"veltra_minimal"});
    EXPECT_EQ(example.Pipe().Receive(), "temperature level unknown on this machine: no temperature sensor");
    EXPECT_EQ(example.WaitForExit(), "exit 0");
}

TEST(Programs, ProgramsPrintTheirUsage)
{
    for (const std::string program : {"tavo_manager", "veltra_server"}) {
        Child help = Child::Start({program, "--help"});
        EXPECT_EQ(help.Pipe().Receive().value_or("").find("usage: " + program + " ["), 0u);
        EXPECT_EQ(help.WaitForExit(), "exit 0");
        Child version = Child::Start({program, "--version"});
        const std::string line = version.Pipe().Receive().value_or("");
        EXPECT_TRUE(line.find(program + " ") == 0 && ::isdigit(line.back())) << line;
        EXPECT_EQ(version.WaitForExit(), "exit 0");
        for (const char* wrong : {"--no-such-option", "word"}) {
            Child refused = Child::Start(
                {"/bin/sh", "-c", "exec \"$0\" \"$1\" 2>&1 >/dev/null", TestSupport::ProgramPath(program), wrong});
            const std::string why = refused.Pipe().Receive().value_or("");
            EXPECT_NE(why.find(wrong + (wrong[0] == '-' ? 2 : 0)), std::string::npos) << why;
            EXPECT_EQ(refused.WaitForExit(), "exit 2");
        }
    }
}

}  // namespace
}  // namespace SystemTest
