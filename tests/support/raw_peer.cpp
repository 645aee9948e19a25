// SPDX-License-Identifier: Apache-2.0
#include "support/raw_peer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <system_error>

namespace TestSupport {
namespace {

sockaddr_un AddressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

}  // namespace

RawPeer::RawPeer(const std::string& runtimeDir)
{
    std::random_device random;
    std::generate(instance_.begin(), instance_.end(), [&random] { return static_cast<uint8_t>(random()); });
    dirFd_ = ::open(runtimeDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

RawPeer::~RawPeer()
{
    if (!listenName_.empty()) {
        ::unlinkat(dirFd_, listenName_.c_str(), 0);
    }
    ::close(dirFd_);
}

// Short enough for a socket address however long the path of the directory is.
std::string RawPeer::Address(const std::string& name) const
{
    return "/proc/self/fd/" + std::to_string(dirFd_) + "/" + name;
}

void RawPeer::Listen(bool asManager)
{
    ::mkdirat(dirFd_, "p", 0700);
    listenName_ = asManager ? "manager" : "p/" + ToHex(instance_);
    listener_ = RawSocket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressOf(Address(listenName_));
    if (::bind(listener_.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener_.Fd(), SOMAXCONN) != 0) {
        throw std::system_error(errno, std::generic_category(), listenName_);
    }
}

RawSocket RawPeer::Accept(RawHello& hello, Clock::duration timeout)
{
    if (!listener_.AwaitReadable(timeout)) {
        return RawSocket();
    }
    RawSocket socket(::accept4(listener_.Fd(), nullptr, nullptr, SOCK_CLOEXEC));
    const std::optional<RawHello> received = socket.ReceiveHello();
    if (!received) {
        return RawSocket();
    }
    hello = *received;
    return socket;
}

RawSocket RawPeer::Connect(const std::string& name) const
{
    RawSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = AddressOf(Address(name));
    if (::connect(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        socket.Close();
    }
    return socket;
}

bool RawPeer::OpenSession(const std::string& name)
{
    targetName_ = name;
    control_ = Connect(name);
    RawHello hello;
    hello.instance = instance_;
    if (!control_.IsOpen() || !control_.Send(hello.Encode())) {
        return false;
    }
    const std::optional<RawHello> answer = control_.ReceiveHello();
    if (!answer || answer->lane != 0) {
        return false;
    }
    target_ = answer->instance;
    return true;
}

RawSocket RawPeer::OpenLane(uint16_t kind)
{
    RawSocket lane = Connect(targetName_);
    RawHello hello;
    hello.kind = kind;
    hello.instance = instance_;
    hello.lane = ++lastLane_;
    lane.Send(hello.Encode());
    return lane;
}

std::optional<RawFrame> RawPeer::CallOnce(const RawFrame& request)
{
    RawSocket lane = OpenLane();
    return lane.Send(request.Encode()) ? lane.ReceiveFrame() : std::nullopt;
}

bool RawPeer::Ping()
{
    RawRecord ping;
    ping.a = ++lastPing_;
    if (!control_.Send(ping.Encode())) {
        return false;
    }
    const std::optional<RawRecord> pong = AwaitRecord(RawRecord::PONG);
    return pong && pong->a == lastPing_;
}

std::optional<RawRecord> RawPeer::AwaitRecord(uint32_t type, Clock::duration timeout)
{
    for (;;) {
        const std::optional<RawRecord> record = control_.ReceiveRecord(timeout);
        if (!record || record->type == type) {
            return record;
        }
    }
}

}  // namespace TestSupport
