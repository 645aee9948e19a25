// SPDX-License-Identifier: Apache-2.0
// Another user's process is refused in both directions, also where the runtime directory's mode fails to keep it out.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/transport/raw_callee.h"
#include "transport/transport.h"

namespace TransportTest {
namespace {

using TestSupport::PrivateRuntimeDir;

constexpr uid_t OTHER_USER = 65534;

class OtherUser : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only the superuser can start a process of another user";
        }
    }
    PrivateRuntimeDir dir_;
};

// The directory's mode keeps other users out; it is changed here to reach the check of the connection.
TEST_F(OtherUser, ConnectionOfAnotherUserIsClosedWithoutAnAnswer)
{
    Child hub = StartPeer("hub");
    Child intruder = Child::Fork([this](LinePipe& parent) {
        const RawPeer raw(dir_.Path());  // has the directory open from before the change of user
        if (::setgid(OTHER_USER) != 0 || ::setuid(OTHER_USER) != 0) {
            return 1;
        }
        parent.Send(raw.Connect("manager").IsOpen() ? "connected" : "kept out");
        parent.Receive();
        for (const uint16_t kind : {RawHello::CONTROL, RawHello::CALL, RawHello::ONE_WAY}) {
            RawSocket connection = raw.Connect("manager");
            if (!connection.IsOpen()) {
                return 2;
            }
            RawHello hello;
            hello.kind = kind;
            hello.instance = raw.Instance();
            connection.Send(hello.Encode());
            if (connection.Receive(1) || !connection.WaitForEnd()) {
                return 3;
            }
        }
        return 0;
    });
    EXPECT_EQ(intruder.Pipe().Receive(), "kept out");
    ASSERT_EQ(::chmod(dir_.Path().c_str(), 0711), 0);
    ASSERT_EQ(::chmod((dir_.Path() + "/manager").c_str(), 0777), 0);
    ASSERT_TRUE(intruder.Pipe().Send("go"));
    EXPECT_EQ(intruder.WaitForExit(), "exit 0");
    ASSERT_EQ(::chmod(dir_.Path().c_str(), 0700), 0);
    EXPECT_EQ(Echo(ConnectToHub()), TAVO::IPC_OK);
}

TEST_F(OtherUser, ManagerOfAnotherUserIsRefused)
{
    Child impostor = Child::Fork([this](LinePipe& parent) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (::chdir(dir_.Path().c_str()) != 0) {
            return 1;
        }
        std::string("manager").copy(address.sun_path, sizeof(address.sun_path) - 1);
        // Who listens is what the kernel vouches for.
        if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
            ::setuid(OTHER_USER) != 0 || ::listen(fd, SOMAXCONN) != 0) {
            return 2;
        }
        parent.Send("listening");
        const RawSocket connection(::accept(fd, nullptr, nullptr));
        uint8_t byte = 0;
        const ssize_t got = ::recv(connection.Fd(), &byte, 1, 0);
        parent.Send(got == 0 ? "received nothing" : "received something");
        return 0;
    });
    ASSERT_EQ(impostor.Pipe().Receive(), "listening");
    EXPECT_EQ(TAVO::Transport::ConnectManager(TestSupport::Clock::now() + std::chrono::seconds(20)), nullptr);
    EXPECT_EQ(impostor.Pipe().Receive(), "received nothing");
}

}  // namespace
}  // namespace TransportTest
