// SPDX-License-Identifier: Apache-2.0
// Members are made in the order in which they need each other, and none starts a thread or opens a descriptor before
// its first use: a program that only links the library pays nothing. A process listens from its first exported object
// on, and connects to the manager when something asks for it. The instance is drawn at random and names the socket, so
// that a process that gets the pid of an ended one is never taken for it. Nothing is torn down: the kernel closes what
// is open, and only the socket's name in the file system has to be removed at exit.
#include "transport/this_process.h"

#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <utility>

#include "base/forked_child.h"
#include "transport/object_gate.h"
#include "transport/proxy_object.h"

namespace TAVO::Transport {
namespace {

Instance DrawInstance()
{
    Instance drawn;
    for (size_t done = 0; done < drawn.bytes.size();) {
        const ssize_t got = ::getrandom(drawn.bytes.data() + done, drawn.bytes.size() - done, 0);
        if (got > 0) {
            done += static_cast<size_t>(got);
        } else if (errno != EINTR) {
            std::abort();  // Without a name of its own no process can take part; no supported kernel refuses one.
        }
    }
    return drawn;
}

// A process that exits removes the name of its socket; the manager removes those of others.
void RemoveOwnSocket()
{
    // The name belongs to the parent, which still listens.
    if (!InForkedChild()) {
        ThisProcess& self = ThisProcess::Get();
        ::unlinkat(self.Sockets().DirFd(), ListeningName(self.Self()).c_str(), 0);
    }
}

}  // namespace

ThisProcess& ThisProcess::Get()
{
    static auto* const process = new ThisProcess();  // Deliberate: its threads may outlive static destruction.
    return *process;
}

ThisProcess::ThisProcess()
    : self_(DrawInstance()),
      // The functions are called later only, when all members exist: nothing starts a thread in this constructor.
      workers_([this] { return workerWatch_.Arm(); }),
      sessions_(*this),
      loop_([this] { return workers_.Open() && delivery_.Open(); }),
      workerWatch_(loop_, workers_),
      timers_(loop_, sessions_),
      heapTrim_(sessions_),
      links_(loop_, sessions_, *this),
      connector_(loop_, links_, sessions_, *this),
      acceptor_(loop_, links_, sessions_, connector_, delivery_, {workers_, timers_, objects_, *this})
{
    WatchForks();
    // The order of their turns: the pool first, so that there is a worker for what the others hand over.
    for (LoopPart* part :
         std::initializer_list<LoopPart*>{&workerWatch_, &acceptor_, &timers_, &connector_, &delivery_, &heapTrim_}) {
        loop_.AddPart(*part);
    }
}

bool ThisProcess::EnsureListening()
{
    return sockets_.EnsureListening(ListeningName(self_), [this](UniqueFd fd) {
        const bool isListening = acceptor_.Listen(std::move(fd));
        if (isListening) {
            // Once: EnsureListening succeeds once. A process that is killed leaves the name to the manager.
            std::atexit(RemoveOwnSocket);
        }
        return isListening;
    });
}

std::shared_ptr<Session> ThisProcess::ManagerSession(Deadline deadline)
{
    const SessionTable::Ensured manager = sessions_.EnsureManager();
    if (manager.isNew) {
        connector_.ConnectManager(manager.session, deadline, [this] {
            if (ObjectGate::Exists()) {
                EnsureListening();  // Others will call the objects of this process.
            }
        });
    }
    return manager.session;
}

uint64_t ThisProcess::Export(const sptr<IPCObjectStub>& object)
{
    // Listening first: an object that others cannot connect to must not be named in a message.
    return EnsureListening() ? objects_.Add(object) : 0;
}

sptr<PeerObject> ThisProcess::NewProxy(std::shared_ptr<Session> session, uint64_t serial,
                                       const std::u16string& descriptor, PeerObject::Life life)
{
    return MakeRef<ProxyObject>(std::move(session), serial, descriptor, life);
}

sptr<PeerObject> ThisProcess::AcquireFrom(const Instance& owner, uint64_t serial, const std::u16string& descriptor,
                                          const std::shared_ptr<PendingAcknowledgement>& message)
{
    const SessionTable::Ensured owning = sessions_.Ensure(owner);
    if (owning.isNew) {
        connector_.Connect(owning.session);
    }
    return owning.session->Proxies().Acquire(serial, descriptor, message);
}

void ThisProcess::PostDeath(sptr<PeerObject> object) noexcept
{
    delivery_.PostDeath(std::move(object));
}

bool ThisProcess::FlushLater(const std::shared_ptr<Session>& session, ConnectionKind kind)
{
    return timers_.FlushLater(session, kind);
}

}  // namespace TAVO::Transport
