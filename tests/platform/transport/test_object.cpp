// SPDX-License-Identifier: Apache-2.0
// What a test process does on request.
#include "platform/transport/test_object.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "os/runtime_dir.h"
#include "transport/transport.h"

namespace TransportTest {

using TestSupport::Child;
using TestSupport::Clock;
using TestSupport::TIMEOUT;

World& World::Get()
{
    static World& world = *new World;  // never destroyed: platform threads run to the end
    return world;
}

void World::Keep(const std::string& name, const sptr<IRemoteObject>& object)
{
    sptr<IRemoteObject> before = object;
    TAVO::MutexLock lock(mutex_);
    std::swap(kept_[name], before);
    lock.Unlock();  // `before` goes without the lock
}

sptr<IRemoteObject> World::Kept(const std::string& name)
{
    TAVO::MutexLock lock(mutex_);
    const auto found = kept_.find(name);
    return found != kept_.end() ? found->second : nullptr;
}

void World::WaitAtGate()
{
    TAVO::MutexLock lock(mutex_);
    const int before = opened_;
    ++waiting_;
    changed_.notify_all();
    lock.Wait(changed_, [this, before]() TAVO_REQUIRES(mutex_) { return opened_ != before; });
}

void World::OpenGate()
{
    TAVO::MutexLock lock(mutex_);
    ++opened_;
    waiting_ = 0;  // at once, so that no handler that is about to leave counts as one that waits
    changed_.notify_all();
}

bool World::AwaitWaiting(int handlers)
{
    TAVO::MutexLock lock(mutex_);
    return lock.WaitUntil(changed_, Clock::now() + TIMEOUT,
                          [this, handlers]() TAVO_REQUIRES(mutex_) { return waiting_ >= handlers; });
}

int World::Waiting()
{
    TAVO::MutexLock lock(mutex_);
    return waiting_;
}

void World::AddNote(int32_t note)
{
    TAVO::MutexLock lock(mutex_);
    notes_.push_back(note);
}

std::vector<int32_t> World::Notes()
{
    TAVO::MutexLock lock(mutex_);
    return notes_;
}

TestObject::TestObject(bool serialInvoke, std::function<void()> farewell)
    : IPCObjectStub(u"test.Object", serialInvoke), number_(++World::Get().madeObjects), farewell_(std::move(farewell))
{
    ++World::Get().liveObjects;
}

TestObject::~TestObject()
{
    if (farewell_) {
        farewell_();
    }
    --World::Get().liveObjects;
}

int TestObject::OnRemoteRequest(uint32_t code, MessageParcel& data, MessageParcel& reply, MessageOption& option)
{
    if (code == 0 || code > static_cast<uint32_t>(TestCode::HAND_ON)) {
        return IPCObjectStub::OnRemoteRequest(code, data, reply, option);
    }
    const int32_t now = ++atOnce_;
    int32_t most = mostAtOnce_;
    while (most < now && !mostAtOnce_.compare_exchange_weak(most, now)) {}
    const int status = Handle(static_cast<TestCode>(code), data, reply);
    --atOnce_;
    return status;
}

int TestObject::Handle(TestCode code, MessageParcel& data, MessageParcel& reply)
{
    World& world = World::Get();
    switch (code) {
        case TestCode::ECHO:
            return reply.SetData(data.GetData(), data.GetDataSize()) ? TAVO::IPC_OK : 1;
        case TestCode::FETCH:
            return reply.WriteRemoteObject(world.Kept(data.ReadString())) ? TAVO::IPC_OK : 1;
        case TestCode::MAKE:
            return Make(data, reply);
        case TestCode::NEST:
            return HandleNest(data, reply);
        default:
            return HandleState(code, data, reply);
    }
}

int TestObject::Make(MessageParcel& data, MessageParcel& reply)
{
    const bool isSerial = data.ReadBool();
    int32_t count = std::max(data.ReadInt32(), 1);
    while (count > 0 && reply.WriteRemoteObject(TAVO::MakeRef<TestObject>(isSerial))) {
        --count;
    }
    return count == 0 ? TAVO::IPC_OK : 1;
}

int TestObject::HandleState(TestCode code, MessageParcel& data, MessageParcel& reply)
{
    World& world = World::Get();
    std::string name;
    const bool isNamed = code == TestCode::KEEP || code == TestCode::CALL_KEPT || code == TestCode::HAND_ON;
    if (isNamed && !data.ReadString(name)) {
        return 1;
    }
    switch (code) {
        case TestCode::KEEP:
            world.Keep(name, data.ReadRemoteObject());
            break;
        case TestCode::CALL_KEPT:
            reply.WriteInt32(Call(world.Kept(name), static_cast<TestCode>(data.ReadInt32())).Send(60));
            break;
        case TestCode::HAND_ON: {
            const sptr<IRemoteObject> kept = world.Kept(name);
            reply.WriteInt32(
                KeepIn(data.ReadRemoteObject(), name, kept != nullptr ? kept : TAVO::MakeRef<TestObject>()));
            break;
        }
        case TestCode::NUMBER:
            reply.WriteInt32(number_);
            break;
        case TestCode::LIVE:
            reply.WriteInt32(world.liveObjects);
            break;
        case TestCode::MOST_AT_ONCE:
            reply.WriteInt32(mostAtOnce_);
            break;
        case TestCode::WAIT:
            world.WaitAtGate();
            break;
        case TestCode::OPEN:
            world.OpenGate();
            break;
        case TestCode::NOTE:
            world.AddNote(data.ReadInt32());
            break;
        default:  // NOTES
            for (const int32_t note : world.Notes()) {
                reply.WriteInt32(note);
            }
    }
    return TAVO::IPC_OK;
}

int TestObject::HandleNest(MessageParcel& data, MessageParcel& reply)
{
    const int32_t depth = data.ReadInt32();
    const sptr<IRemoteObject> partner = data.ReadRemoteObject();
    if (depth == 0) {
        reply.WriteInt32(0);
        return TAVO::IPC_OK;
    }
    Call below(partner, TestCode::NEST);
    const int status = below.Int(depth - 1).Object(this).Send();
    reply.WriteInt32(below.reply.ReadInt32() + 1);
    return status;
}

sptr<CountingRecipient> CountingRecipient::Of(const sptr<IRemoteObject>& object)
{
    sptr<CountingRecipient> recipient = TAVO::MakeRef<CountingRecipient>();
    object->AddDeathRecipient(recipient);
    return recipient;
}

void CountingRecipient::OnRemoteDied(const TAVO::wptr<IRemoteObject>&)
{
    if (then_) {
        then_();
    }
    ++told;
}

bool CountingRecipient::AwaitTold() const
{
    return TestSupport::WaitFor([this] { return told == 1; });
}

int Call::Send(int waitSeconds)
{
    MessageOption option(MessageOption::FLAG_SYNC, waitSeconds);
    return target_ != nullptr ? target_->SendRequest(code_, data, reply, option) : 1;
}

int Call::SendOneWay()
{
    MessageOption option(MessageOption::FLAG_ONE_WAY);
    return target_ != nullptr ? target_->SendRequest(code_, data, reply, option) : 1;
}

int32_t Call::SendForInt()
{
    int32_t value = -1;
    return Send() == TAVO::IPC_OK && reply.ReadInt32(value) ? value : -1;
}

sptr<IRemoteObject> Call::SendForObject()
{
    return Send() == TAVO::IPC_OK ? reply.ReadRemoteObject() : nullptr;
}

int Echo(const sptr<IRemoteObject>& target, int32_t value)
{
    Call echo(target, TestCode::ECHO);
    const int status = echo.Int(value).Int(~value).Send();
    const bool isSame =
        echo.reply.GetDataSize() == 8 && echo.reply.ReadInt32() == value && echo.reply.ReadInt32() == ~value;
    return status != TAVO::IPC_OK || isSame ? status : 1;
}

int HandOn(const sptr<IRemoteObject>& from, const std::string& name, const sptr<IRemoteObject>& to)
{
    return Call(from, TestCode::HAND_ON).Text(name).Object(to).SendForInt();
}

sptr<IRemoteObject> MakeIn(const sptr<IRemoteObject>& world, bool serialInvoke)
{
    return Call(world, TestCode::MAKE).Int(serialInvoke ? 1 : 0).SendForObject();
}

int KeepIn(const sptr<IRemoteObject>& world, const std::string& name, const sptr<IRemoteObject>& object)
{
    return Call(world, TestCode::KEEP).Text(name).Object(object).Send();
}

sptr<IRemoteObject> FetchFrom(const sptr<IRemoteObject>& world, const std::string& name)
{
    return Call(world, TestCode::FETCH).Text(name).SendForObject();
}

int CallKept(const sptr<IRemoteObject>& world, const std::string& name, TestCode code)
{
    Call call(world, TestCode::CALL_KEPT);
    const int status = call.Text(name).Int(static_cast<int32_t>(code)).Send(60);
    return status == TAVO::IPC_OK ? call.reply.ReadInt32() : status;
}

bool IsConnectionError(int status)
{
    return status == TAVO::IPC_DEAD_OBJECT || status == TAVO::IPC_BROKEN;
}

sptr<TestObject> ServeAsHub()
{
    using TAVO::Transport::RuntimeDir;
    std::string error;
    const RuntimeDir dir = RuntimeDir::Open(RuntimeDir::DefaultPath(), false, error);
    if (!dir.IsOpen()) {
        throw std::runtime_error(error);
    }
    ::mkdirat(dir.Fd(), "p", 0700);
    const int listenFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    dir.SocketPath("manager").copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (::bind(listenFd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listenFd, SOMAXCONN) != 0) {
        throw std::runtime_error("cannot listen in " + dir.Path());
    }
    sptr<TestObject> root = TAVO::MakeRef<TestObject>();
    TAVO::Transport::ServeAsManager(listenFd, root);
    return root;
}

sptr<IRemoteObject> ConnectToHub()
{
    return TAVO::Transport::ConnectManager(Clock::now() + TIMEOUT);
}

Child StartPeer(const std::string& name)
{
    Child child = Child::Start({"transport_peer", name});
    if (child.Pipe().Receive() != "ready") {
        throw std::runtime_error("process " + name + " does not get ready");
    }
    return child;
}

}  // namespace TransportTest
