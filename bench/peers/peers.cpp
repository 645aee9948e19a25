// SPDX-License-Identifier: Apache-2.0
// The same call through other ways to talk between processes: 64 bytes of text there, a number back. The callee runs on
// the second processor, the caller on the first, as in facade_call; each is measured beside the bare round trip.
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>
#include <zmq.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "facade_bytes.h"
#include "platform.h"
#include "raw_peer.h"
#include "row.h"
#include "veltra_server_client.h"

namespace {

constexpr int CALLS = 500;  // a round
constexpr int ROUNDS = 21;
constexpr int CALLER_PROCESSOR = 0;
constexpr int CALLEE_PROCESSOR = 1;
constexpr char NAME[] = "bench.Peer";
constexpr char PATH[] = "/bench/Peer";

const std::string TEXT(Bench::CALL_AUTH_TEXT_BYTES, 'x');

void Require(bool isGood, const char* what)
{
    if (!isGood) {
        Bench::GiveUp(what);
    }
}

std::vector<pid_t> g_processes;

// Starts a process that lives until EndProcesses, or until this one ends.
void StartProcess(const std::function<void()>& work)
{
    const pid_t process = ::fork();
    if (process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        Bench::Pin(CALLEE_PROCESSOR);
        work();
        ::_exit(1);
    }
    g_processes.push_back(process);
}

// They hold copies of the raw peer's sockets: that ends after them.
void EndProcesses()
{
    for (const pid_t process : g_processes) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
}

// ---- D-Bus, by the library sd-bus

int HandleCall(sd_bus_message* message, void*, sd_bus_error*)
{
    const char* text = nullptr;
    const int status = sd_bus_message_read(message, "s", &text);
    return status < 0 ? status : sd_bus_reply_method_return(message, "i", 0);
}

void ServeBus(sd_bus* bus)
{
    static const sd_bus_vtable METHODS[] = {SD_BUS_VTABLE_START(0),
                                            SD_BUS_METHOD("Call", "s", "i", HandleCall, SD_BUS_VTABLE_UNPRIVILEGED),
                                            SD_BUS_VTABLE_END};
    sd_bus_add_object_vtable(bus, nullptr, PATH, NAME, METHODS, nullptr);
    while (sd_bus_process(bus, nullptr) > 0 || sd_bus_wait(bus, UINT64_MAX) >= 0) {}
}

void CallBus(sd_bus* bus, const char* destination)
{
    sd_bus_message* reply = nullptr;
    const int status = sd_bus_call_method(bus, destination, PATH, NAME, "Call", nullptr, &reply, "s", TEXT.c_str());
    Require(status >= 0, "a call over D-Bus failed");
    sd_bus_message_unref(reply);
}

// Both ends of a socket pair speak D-Bus to each other.
std::function<void()> BusPeerToPeer()
{
    int ends[2] = {-1, -1};
    Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0, "no socket pair");
    StartProcess([&] {
        sd_bus* bus = nullptr;
        sd_id128_t id{};
        sd_bus_new(&bus);
        sd_bus_set_fd(bus, ends[1], ends[1]);
        sd_bus_set_server(bus, 1, id);
        sd_bus_start(bus);
        ServeBus(bus);
    });
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_fd(bus, ends[0], ends[0]);
    Require(sd_bus_start(bus) >= 0, "no connection over D-Bus");
    return [bus] { CallBus(bus, nullptr); };
}

sd_bus* ConnectBus(const std::string& address)
{
    for (const double start = Bench::Now(); Bench::Now() - start < 10; ::usleep(1000)) {
        sd_bus* bus = nullptr;
        sd_bus_new(&bus);
        sd_bus_set_address(bus, address.c_str());
        sd_bus_set_bus_client(bus, 1);
        if (sd_bus_start(bus) >= 0) {
            return bus;
        }
        sd_bus_unref(bus);
    }
    Bench::GiveUp("dbus-daemon does not answer");
}

// Through the daemon, which has the processor of the callee.
std::function<void()> BusByDaemon(const std::string& folder)
{
    const std::string address = "unix:path=" + folder + "/bus";
    StartProcess([&] {
        ::execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog",
                 ("--address=" + address).c_str(), nullptr);
    });
    StartProcess([&] {
        sd_bus* const bus = ConnectBus(address);
        sd_bus_request_name(bus, NAME, 0);
        ServeBus(bus);
    });
    sd_bus* const bus = ConnectBus(address);
    const auto hasOwner = [bus] {
        sd_bus_creds* owner = nullptr;
        const bool isThere = sd_bus_get_name_creds(bus, NAME, 0, &owner) >= 0;
        sd_bus_creds_unref(owner);
        return isThere;
    };
    for (const double start = Bench::Now(); !hasOwner(); ::usleep(1000)) {
        Require(Bench::Now() - start < 10, "the callee does not register");
    }
    return [bus] { CallBus(bus, NAME); };
}

// ---- ZeroMQ, request and reply

std::function<void()> ZeroMq(const std::string& folder)
{
    const std::string address = "ipc://" + folder + "/zeromq";
    StartProcess([&] {
        void* const socket = zmq_socket(zmq_ctx_new(), ZMQ_REP);
        zmq_bind(socket, address.c_str());
        char request[Bench::CALL_AUTH_REQUEST_BYTES];
        const int32_t reply = 0;
        while (zmq_recv(socket, request, sizeof(request), 0) >= 0) {
            zmq_send(socket, &reply, sizeof(reply), 0);
        }
    });
    void* const socket = zmq_socket(zmq_ctx_new(), ZMQ_REQ);
    Require(zmq_connect(socket, address.c_str()) == 0, "no connection over ZeroMQ");
    return [socket] {
        int32_t reply = -1;
        zmq_send(socket, TEXT.data(), TEXT.size(), 0);
        Require(zmq_recv(socket, &reply, sizeof(reply), 0) == sizeof(reply), "a call over ZeroMQ failed");
    };
}

// ---- this library

std::function<void()> Veltra()
{
    static Bench::Platform platform(CALLEE_PROCESSOR, CALLER_PROCESSOR);
    return [] {
        const int32_t status = TAVO::Veltra::VeltraClient().CallAuth(TEXT);
        Require(status != TAVO::Veltra::RESULT_NO_SERVICE, "the service cannot be reached");
    };
}

double MicrosecondsPerCall(const std::function<void()>& call)
{
    const double start = Bench::Now();
    for (int i = 0; i < CALLS; ++i) {
        call();
    }
    return (Bench::Now() - start) / CALLS * 1e6;
}

std::function<void()> Connect(const std::string& peer, const std::string& folder)
{
    if (peer == "dbus") {
        return BusPeerToPeer();
    }
    if (peer == "dbus_daemon") {
        return BusByDaemon(folder);
    }
    if (peer == "zeromq") {
        return ZeroMq(folder);
    }
    if (peer == "veltra_sleeping") {
        ::setenv("TAVO_SPIN", "off", 1);
    } else {
        Require(peer == "veltra", "usage: bench_peers veltra|veltra_sleeping|dbus|dbus_daemon|zeromq");
    }
    return Veltra();
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string peer = argc > 1 ? argv[1] : "";
    Bench::RawPeer raw(CALLEE_PROCESSOR,
                       {Bench::CALL_AUTH_REQUEST_BYTES, std::vector<uint8_t>(Bench::CALL_AUTH_REPLY_BYTES)});
    Bench::MakeRuntimeDir();
    const std::function<void()> call = Connect(peer, std::getenv("TAVO_RUNTIME_DIR"));
    Bench::Pin(CALLER_PROCESSOR);
    // No bar: the row compares this library with others.
    Bench::MeasureAndPrint(
        {"peer_" + peer, "us", 1e9}, ROUNDS, [&] { return MicrosecondsPerCall(call); },
        [&] { return MicrosecondsPerCall([&] { raw.Call(); }); });
    EndProcesses();
    return 0;
}
