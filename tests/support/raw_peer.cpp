// SPDX-License-Identifier: Apache-2.0
// Hellos, records and frames put together byte by byte, valid unless a test says otherwise.
#include "support/raw_peer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <system_error>
#include <utility>

namespace TestSupport {
namespace {

constexpr uint32_t REFERENCE_MAGIC = 0x4a424f2a;
constexpr size_t SLOT = 4;
constexpr size_t TABLE_ENTRY_SIZE = 32;

void FillSlot(Bytes& bytes)
{
    bytes.resize((bytes.size() + SLOT - 1) / SLOT * SLOT);
}

bool PollUntil(int fd, short events, Clock::time_point deadline)
{
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd entry{fd, events, 0};
        const int ready = ::poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}

sockaddr_un AddressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

std::vector<RawReference> DecodeTable(const Bytes& table, size_t count)
{
    std::vector<RawReference> references;
    size_t at = 0;
    while (references.size() < count && at + TABLE_ENTRY_SIZE <= table.size()) {
        RawReference reference;
        reference.offset = ReadAt<uint32_t>(table, at);
        const size_t units = ReadAt<uint32_t>(table, at + 4);
        reference.instance = ReadAt<RawInstance>(table, at + 8);
        reference.serial = ReadAt<uint64_t>(table, at + 24);
        at += TABLE_ENTRY_SIZE;
        for (size_t unit = 0; unit < units && at + 2 * unit + 2 <= table.size(); ++unit) {
            reference.descriptor.push_back(ReadAt<char16_t>(table, at + 2 * unit));
        }
        at += (units * 2 + SLOT - 1) / SLOT * SLOT;
        references.push_back(reference);
    }
    return references;
}

}  // namespace

std::string ToHex(const RawInstance& instance)
{
    std::string text;
    for (const uint8_t byte : instance) {
        text.push_back("0123456789abcdef"[byte >> 4]);
        text.push_back("0123456789abcdef"[byte & 15]);
    }
    return text;
}

Bytes RawHello::Encode() const
{
    Bytes bytes;
    Append(bytes, magic);
    Append(bytes, version);
    Append(bytes, kind);
    Append(bytes, instance);
    Append(bytes, lane);
    return bytes;
}

RawHello RawHello::Decode(const Bytes& bytes)
{
    return {ReadAt<uint32_t>(bytes, 0), ReadAt<uint16_t>(bytes, 4), ReadAt<uint16_t>(bytes, 6),
            ReadAt<RawInstance>(bytes, 8), ReadAt<uint64_t>(bytes, 24)};
}

Bytes RawRecord::Encode() const
{
    Bytes bytes;
    Append(bytes, type);
    Append(bytes, flags);
    Append(bytes, a);
    Append(bytes, b);
    return bytes;
}

RawRecord RawRecord::Decode(const Bytes& bytes)
{
    return {ReadAt<uint32_t>(bytes, 0), ReadAt<uint32_t>(bytes, 4), ReadAt<uint64_t>(bytes, 8),
            ReadAt<uint64_t>(bytes, 16)};
}

RawFrame& RawFrame::Int32(int32_t value)
{
    Append(data, value);
    return *this;
}

RawFrame& RawFrame::Uint64(uint64_t value)
{
    Append(data, value);
    return *this;
}

RawFrame& RawFrame::String(std::string_view text)
{
    Append(data, static_cast<int32_t>(text.size()));
    data.insert(data.end(), text.begin(), text.end());
    data.push_back(0);
    FillSlot(data);
    return *this;
}

RawFrame& RawFrame::Reference(const RawInstance& owner, uint64_t objectSerial, std::u16string_view descriptor)
{
    RawReference reference;
    reference.offset = static_cast<uint32_t>(data.size());
    reference.instance = owner;
    reference.serial = objectSerial;
    reference.descriptor = descriptor;
    Append(data, REFERENCE_MAGIC);
    Append(data, static_cast<uint32_t>(references.size()));
    references.push_back(reference);
    return *this;
}

Bytes RawFrame::Encode() const
{
    Bytes table;
    for (const RawReference& reference : references) {
        Append(table, reference.offset);
        Append(table, reference.announcedUnits.value_or(static_cast<uint32_t>(reference.descriptor.size())));
        Append(table, reference.instance);
        Append(table, reference.serial);
        for (const char16_t unit : reference.descriptor) {
            Append(table, unit);
        }
        FillSlot(table);
    }
    Bytes bytes;
    Append(bytes, dataBytes.value_or(static_cast<uint32_t>(data.size())));
    Append(bytes, tableBytes.value_or(static_cast<uint32_t>(table.size())));
    Append(bytes, codeOrStatus);
    Append(bytes, kind);
    Append(bytes, referenceCount.value_or(static_cast<uint16_t>(references.size())));
    Append(bytes, number);
    Append(bytes, serial);
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.insert(bytes.end(), table.begin(), table.end());
    return bytes;
}

RawSocket::RawSocket(RawSocket&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

RawSocket& RawSocket::operator=(RawSocket&& other) noexcept
{
    std::swap(fd_, other.fd_);
    return *this;
}

void RawSocket::Close()
{
    if (fd_ >= 0) {
        ::close(std::exchange(fd_, -1));
    }
}

bool RawSocket::Send(const Bytes& bytes, Clock::duration patience)
{
    const Clock::time_point deadline = Clock::now() + patience;
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t put = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put >= 0) {
            sent += static_cast<size_t>(put);
        } else if (errno == EAGAIN) {
            if (!PollUntil(fd_, POLLOUT, deadline)) {
                return false;
            }
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool RawSocket::SendByteByByte(const Bytes& bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [this](uint8_t byte) { return Send(Bytes{byte}); });
}

bool RawSocket::SendWithDescriptors(const Bytes& bytes, size_t count)
{
    const std::vector<int> descriptors(count, STDERR_FILENO);
    std::vector<uint8_t> control(CMSG_SPACE(count * sizeof(int)));
    iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(count * sizeof(int));
    std::memcpy(CMSG_DATA(header), descriptors.data(), count * sizeof(int));
    return ::sendmsg(fd_, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::optional<Bytes> RawSocket::Receive(size_t size, Clock::duration patience)
{
    const Clock::time_point deadline = Clock::now() + patience;
    Bytes bytes;
    while (bytes.size() < size) {
        uint8_t buffer[65536];
        if (!PollUntil(fd_, POLLIN, deadline)) {
            return std::nullopt;
        }
        const ssize_t got = ::recv(fd_, buffer, std::min(sizeof(buffer), size - bytes.size()), MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            return std::nullopt;
        }
        bytes.insert(bytes.end(), buffer, buffer + std::max<ssize_t>(got, 0));
    }
    return bytes;
}

std::optional<RawHello> RawSocket::ReceiveHello()
{
    const std::optional<Bytes> bytes = Receive(RawHello::SIZE);
    return bytes ? std::optional(RawHello::Decode(*bytes)) : std::nullopt;
}

std::optional<RawRecord> RawSocket::ReceiveRecord(Clock::duration patience)
{
    const std::optional<Bytes> bytes = Receive(RawRecord::SIZE, patience);
    return bytes ? std::optional(RawRecord::Decode(*bytes)) : std::nullopt;
}

std::optional<RawFrame> RawSocket::ReceiveFrame(Clock::duration patience)
{
    const std::optional<Bytes> header = Receive(RawFrame::HEADER_SIZE, patience);
    if (!header) {
        return std::nullopt;
    }
    RawFrame frame;
    frame.codeOrStatus = ReadAt<uint32_t>(*header, 8);
    frame.kind = ReadAt<uint16_t>(*header, 12);
    frame.number = ReadAt<uint64_t>(*header, 16);
    frame.serial = ReadAt<uint64_t>(*header, 24);
    const std::optional<Bytes> data = Receive(ReadAt<uint32_t>(*header, 0), patience);
    const std::optional<Bytes> table = Receive(ReadAt<uint32_t>(*header, 4), patience);
    if (!data || !table) {
        return std::nullopt;
    }
    frame.data = *data;
    frame.references = DecodeTable(*table, ReadAt<uint16_t>(*header, 14));
    return frame;
}

bool RawSocket::WaitForEnd(Clock::duration patience)
{
    const Clock::time_point deadline = Clock::now() + patience;
    uint8_t buffer[65536];
    while (PollUntil(fd_, POLLIN, deadline)) {
        const ssize_t got = ::recv(fd_, buffer, sizeof(buffer), MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            return true;
        }
    }
    return false;
}

bool RawSocket::IsQuiet() const
{
    uint8_t byte = 0;
    return ::recv(fd_, &byte, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN;
}

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

RawSocket RawPeer::Accept(RawHello& hello, Clock::duration patience)
{
    if (!PollUntil(listener_.Fd(), POLLIN, Clock::now() + patience)) {
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

std::optional<RawRecord> RawPeer::AwaitRecord(uint32_t type, Clock::duration patience)
{
    for (;;) {
        const std::optional<RawRecord> record = control_.ReceiveRecord(patience);
        if (!record || record->type == type) {
            return record;
        }
    }
}

}  // namespace TestSupport
