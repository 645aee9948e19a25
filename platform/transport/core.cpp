// SPDX-License-Identifier: Apache-2.0
// Sets the transport up and keeps its tables. Nothing is sent, called or freed under a table's lock.
#include "transport/core.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/forked_child.h"
#include "base/warn_limited.h"
#include "transport/calling_peer_scope.h"
#include "transport/object_gate.h"
#include "transport/outgoing_call.h"
#include "transport/proxy_object.h"

namespace TAVO::Transport {
namespace {

constexpr int BACKLOG = 1024;

std::string ListeningName(const Instance& instance)
{
    return "p/" + instance.ToHex();
}

// A process that ends in good order takes its socket's name with it; the manager removes those of others.
void RemoveOwnSocket()
{
    if (!InForkedChild()) {
        ::unlinkat(Core::Get().RuntimeDirFd(), ListeningName(Core::Get().Self()).c_str(), 0);
    }
}

}  // namespace

Core& Core::Get()
{
    static Core* const core = new Core();  // Deliberate: never destroyed. Its threads may outlive static destruction.
    return *core;
}

Core::Core()
{
    WatchForks();
    size_t drawn = 0;
    while (drawn < self_.bytes.size()) {
        const ssize_t got = ::getrandom(self_.bytes.data() + drawn, self_.bytes.size() - drawn, 0);
        if (got > 0) {
            drawn += static_cast<size_t>(got);
        } else if (errno != EINTR) {
            std::abort();  // Without a name of its own no process can take part; no kernel that we run on refuses one.
        }
    }
}

int Core::RuntimeDirFd()
{
    MutexLock lock(dirMutex_);
    if (!dir_.IsOpen()) {
        std::string error;
        dir_ = RuntimeDir::Open(RuntimeDir::DefaultPath(), false, error);
        if (!dir_.IsOpen()) {
            WarnLimited("the ability manager cannot be reached", error.c_str());
        }
    }
    return dir_.Fd();
}

std::string Core::SocketPath(const std::string& name)
{
    RuntimeDirFd();
    MutexLock lock(dirMutex_);
    return dir_.SocketPath(name);
}

std::shared_ptr<Session> Core::SessionTo(const Instance& peer)
{
    bool isNew = false;
    std::shared_ptr<Session> session = EnsureSession(peer, isNew);
    if (isNew) {
        control_.Connect(session);
    }
    return session;
}

std::shared_ptr<Session> Core::EnsureSession(const Instance& peer, bool& isNew)
{
    std::shared_ptr<Session> replaced;  // a dead one, dropped after the lock
    MutexLock lock(sessionsMutex_);
    const auto found = sessions_.find(peer);
    isNew = found == sessions_.end() || found->second->GetState() == Session::State::DEAD;
    if (!isNew) {
        return found->second;
    }
    auto session = Session::Create(*this, ListeningName(peer), peer);
    replaced = std::exchange(sessions_[peer], session);
    lock.Unlock();
    return session;
}

std::shared_ptr<Session> Core::FindSession(const Instance& peer)
{
    MutexLock lock(sessionsMutex_);
    const auto found = sessions_.find(peer);
    return found != sessions_.end() && found->second->GetState() != Session::State::DEAD ? found->second : nullptr;
}

size_t Core::CountSessions()
{
    MutexLock lock(sessionsMutex_);
    return sessions_.size();
}

void Core::AddSession(const std::shared_ptr<Session>& session)
{
    MutexLock lock(sessionsMutex_);
    sessions_[session->Peer()] = session;
}

void Core::RemoveSession(const std::shared_ptr<Session>& session)
{
    std::shared_ptr<Session> removed;
    MutexLock lock(sessionsMutex_);
    const auto found = sessions_.find(session->Peer());
    if (found != sessions_.end() && found->second == session) {
        removed = std::move(found->second);
        sessions_.erase(found);
    }
    lock.Unlock();
}

bool Core::CloseIdleLanes(Clock::time_point before)
{
    std::vector<std::shared_ptr<Session>> all;
    {
        MutexLock lock(sessionsMutex_);
        for (const auto& [instance, session] : sessions_) {
            all.push_back(session);
        }
    }
    bool remain = false;
    for (const auto& session : all) {
        remain = session->CloseIdleLanes(before) || remain;
    }
    return remain;
}

std::shared_ptr<Session> Core::ManagerSession(Deadline deadline)
{
    std::shared_ptr<Session> session;
    {
        MutexLock lock(sessionsMutex_);
        if (manager_ != nullptr && manager_->GetState() != Session::State::DEAD) {
            return manager_;
        }
        session = Session::Create(*this, "manager", Instance{});
        manager_ = session;
    }
    control_.ConnectManager(session, deadline);
    return session;
}

void Core::ReplaceManagerSession(const std::shared_ptr<Session>& session)
{
    std::shared_ptr<Session> replaced = session;
    MutexLock lock(sessionsMutex_);
    manager_.swap(replaced);
    lock.Unlock();
}

bool Core::EnsureListening()
{
    const int dir = RuntimeDirFd();
    MutexLock lock(dirMutex_);
    if (isListening_) {
        return true;
    }
    // Named only once it listens: the manager removes sockets that refuse connections.
    const std::string name = ListeningName(self_);
    const std::string firstName = name + ".new";
    const std::string path = dir_.SocketPath(firstName);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    UniqueFd fd(AboveStandardFds(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
    if (dir < 0 || !fd.IsOpen() || path.size() >= sizeof(address.sun_path)) {
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const auto bind = [&] { return ::bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)); };
    if ((bind() != 0 && (errno != ENOENT || (::mkdirat(dir, "p", 0700) != 0 && errno != EEXIST) || bind() != 0)) ||
        ::listen(fd.Get(), BACKLOG) != 0 || ::renameat(dir, firstName.c_str(), dir, name.c_str()) != 0) {
        const int reason = errno;
        ::unlinkat(dir, firstName.c_str(), 0);  // Or it would be in the way of the next attempt.
        const std::string what =
            "cannot listen at " + dir_.Path() + "/" + name + ", so this process can send no objects";
        WarnLimited(what.c_str(), std::strerror(reason));
        return false;
    }
    isListening_ = control_.Listen(std::move(fd));
    if (isListening_) {
        std::atexit(RemoveOwnSocket);
    }
    return isListening_;
}

ObjectGate& Core::GateOf(IPCObjectStub& object)
{
    return *object.gate_;
}

sptr<PeerObject> Core::NewProxy(std::shared_ptr<Session> session, uint64_t serial, const std::u16string& descriptor,
                                PeerObject::Life life)
{
    return MakeRef<ProxyObject>(std::move(session), serial, descriptor, life);
}

sptr<PeerObject> Core::AcquireFrom(const Instance& owner, uint64_t serial, const std::u16string& descriptor,
                                   const std::shared_ptr<PendingAcknowledgement>& message)
{
    return SessionTo(owner)->Proxies().Acquire(serial, descriptor, message);
}

uint64_t Core::Export(const sptr<IPCObjectStub>& object)
{
    if (!EnsureListening()) {
        return 0;
    }
    ObjectGate& gate = GateOf(*object);
    MutexLock lock(objectsMutex_);
    if (gate.serial == 0) {
        exported_.emplace(lastSerial_ + 1, object);
        gate.serial = ++lastSerial_;
    }
    return gate.serial;
}

sptr<IPCObjectStub> Core::FindExported(uint64_t serial)
{
    MutexLock lock(objectsMutex_);
    const auto found = exported_.find(serial);
    return found != exported_.end() ? found->second.promote() : nullptr;
}

void Core::Unexport(uint64_t serial)
{
    MutexLock lock(objectsMutex_);
    exported_.erase(serial);
}

sptr<IPCObjectStub> Core::Root()
{
    MutexLock lock(objectsMutex_);
    return root_;
}

void Core::SetRoot(const sptr<IPCObjectStub>& root)
{
    MutexLock lock(objectsMutex_);
    root_ = root;
}

int Dispatch(IPCObjectStub& target, const CallingPeer& peer, uint32_t code, MessageParcel& data, MessageParcel& reply,
             MessageOption& option)
{
    const CallingPeerScope scope(peer);
    try {
        return target.OnRemoteRequest(code, data, reply, option);
    } catch (const std::exception& error) {
        WarnLimited("a request handler ended in an exception, its caller gets IPC_EXCEPTION", error.what());
    } catch (...) {
        WarnLimited("a request handler ended in an exception, its caller gets IPC_EXCEPTION", "no std::exception");
    }
    return IPC_EXCEPTION;
}

int DispatchInGate(IPCObjectStub& target, const CallingPeer& peer, uint32_t code, MessageParcel& data,
                   MessageParcel& reply, MessageOption& option)
{
    int status = IPC_OK;
    {
        const HandlerScope scope(Core::GateOf(target));
        status = Dispatch(target, peer, code, data, reply, option);
    }
    LeaveGate(target);
    return status;
}

void LeaveGate(IPCObjectStub& target)
{
    while (std::function<void()> next = Core::GateOf(target).Leave()) {
        if (Core::Get().Workers().Post(std::move(next))) {
            return;
        }
        // Without memory that request is lost, but not the place that it had been given.
    }
}

}  // namespace TAVO::Transport
