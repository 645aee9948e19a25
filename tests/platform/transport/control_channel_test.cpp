// SPDX-License-Identifier: Apache-2.0
// The sending side of a control connection, on real sockets and without a session around it.
#include "transport/control_channel.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cstring>
#include <vector>

#include "os/fd.h"

namespace TransportTest {
namespace {

using TAVO::Transport::ControlChannel;
using TAVO::Transport::ControlRecord;
using TAVO::Transport::Hello;
using TAVO::Transport::Instance;
using TAVO::Transport::RecordType;
using TAVO::Transport::UniqueFd;

// A connection, watched by an epoll as the control thread does it.
struct Connection {
    Connection()
    {
        int ends[2];
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        own.Reset(ends[0]);
        peer.Reset(ends[1]);
        epoll_event event{};
        EXPECT_EQ(::epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, own.Get(), &event), 0);
    }

    void Establish(ControlChannel& channel) const { channel.Establish(own.Get(), epoll.Get(), nullptr); }

    bool ReceiveHello() const
    {
        Hello hello;
        return ::recv(peer.Get(), &hello, sizeof(hello), 0) == ssize_t{sizeof(hello)} && hello.IsValid();
    }

    std::vector<uint64_t> ReceiveSerials() const
    {
        std::vector<uint64_t> serials;
        ControlRecord record;
        while (::recv(peer.Get(), &record, sizeof(record), 0) == ssize_t{sizeof(record)}) {
            serials.push_back(record.a);
        }
        return serials;
    }

    UniqueFd epoll{::epoll_create1(0)};
    UniqueFd own;
    UniqueFd peer;
};

using Serials = std::vector<uint64_t>;

TEST(ControlChannel, SendsRecordsBehindRefusedHelloAgain)
{
    for (const bool isRefused : {false, true}) {
        SCOPED_TRACE(isRefused);
        const Connection first;
        const Connection second;
        ControlChannel channel;
        channel.Send({RecordType::ACQUIRE, 0, 7, 0});
        ASSERT_EQ(channel.SendHello(first.own.Get(), Instance{}), ControlChannel::HelloSent::SENT);
        ASSERT_TRUE(first.ReceiveHello());
        channel.Send({RecordType::ACQUIRE, 0, 8, 0});
        EXPECT_EQ(first.ReceiveSerials(), (Serials{7, 8}));
        if (isRefused) {
            channel.WithdrawHello();
        }
        const Connection& used = isRefused ? second : first;
        used.Establish(channel);
        EXPECT_EQ(used.ReceiveSerials(), isRefused ? (Serials{7, 8}) : Serials{});
        channel.Send({RecordType::ACQUIRE, 0, 9, 0});
        EXPECT_EQ(used.ReceiveSerials(), Serials{9});
    }
}

TEST(ControlChannel, YieldsToThePeerUnlessItsOwnHelloPrevails)
{
    struct Case {
        bool isHelloSent;
        bool ownPrevails;
        bool yields;
    };
    for (const Case& tried : {Case{false, true, true}, Case{true, false, true}, Case{true, true, false}}) {
        SCOPED_TRACE(testing::Message() << tried.isHelloSent << tried.ownPrevails);
        const Connection connection;
        ControlChannel channel;
        if (tried.isHelloSent) {
            channel.SendHello(connection.own.Get(), Instance{});
        }
        EXPECT_EQ(channel.YieldToPeer(tried.ownPrevails), tried.yields);
        EXPECT_EQ(channel.SendHello(connection.own.Get(), Instance{}) == ControlChannel::HelloSent::PEER_WAS_FIRST,
                  tried.yields);
    }
}

TEST(ControlChannel, ShutsDownConnectionWhosePeerDoesNotRead)
{
    const Connection connection;
    ControlChannel channel;
    connection.Establish(channel);
    constexpr size_t RECORDS = 2 * ControlChannel::MAX_UNSENT_BYTES / sizeof(ControlRecord);
    for (uint64_t serial = 1; serial <= RECORDS; ++serial) {
        channel.Send({RecordType::ACQUIRE, 0, serial, 0});
    }
    const Serials received = connection.ReceiveSerials();
    EXPECT_FALSE(received.empty());
    EXPECT_EQ(received.back(), received.size()) << "a record is missing";
    char byte = 0;
    EXPECT_EQ(::recv(connection.peer.Get(), &byte, 1, 0), 0) << "the connection still stands";
}

}  // namespace
}  // namespace TransportTest
