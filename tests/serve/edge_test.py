# SPDX-License-Identifier: Apache-2.0
"""What veltra-serve answers to peers that it must not trust, over raw sockets.

Usage: edge_test.py PROGRAMS SOURCE
"""
import json
import os
import pathlib
import re
import signal
import socket
import subprocess
import sys
import time

from server import Game, Server
from tool.harness import WAIT_S, System, require

SLOW_PEERS = 1000
MOST_BYTES = 64 << 20  # that the server may use, whatever peers do
CRLF = "\r\n"
# Not under a sanitizer or an emulator: Python cannot load the library of the game, and more memory is used.
IS_NATIVE = "VELTRA_LIBRARY" in os.environ


def connect(server):
    peer = socket.create_connection(("127.0.0.1", server.port), timeout=WAIT_S)
    peer.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return peer


def received(peer):
    """All bytes until the server closes the connection."""
    parts = []
    try:
        while part := peer.recv(65536):
            parts.append(part)
    except ConnectionResetError:
        pass
    return b"".join(parts)


def ask(server, line, *headers, host=None, body=b""):
    """Status, headers and body of the response."""
    head = CRLF.join([f"{line} HTTP/1.1", *([f"Host: {host or server.host}"] if host != "" else []), *headers])
    with connect(server) as peer:
        peer.sendall((head + CRLF + CRLF).encode("latin-1") + body)
        answer = received(peer)
    require(answer, f"{line[:60]}: no response")
    head, _, content = answer.partition(b"\r\n\r\n")
    return int(head.split()[1]), head.decode("latin-1"), content


def command(server, document, *headers, status=200):
    body = json.dumps(document).encode()
    answer = ask(server, "POST /simulate", f"Authorization: Bearer {server.token}", "Content-Type: application/json",
                 f"Content-Length: {len(body)}", *headers, body=body)
    require(answer[0] == status, f"{document} was answered with {answer}")
    return json.loads(answer[2]) if answer[2].startswith(b"{") else answer[2]


def requests(server):
    """Request line, headers, value of Host (None: the right one, "": none), expected status."""
    port, json_type = server.port, "Content-Type: application/json"
    token = f"Authorization: Bearer {server.token}"
    wrong = ("0" if server.token[0] != "0" else "1") + server.token[1:]
    length = "Content-Length: 12"
    return [
        ("GET /", [], None, 200), ("GET /metrics", [], None, 200), ("HEAD /", [], None, 200),
        ("GET /", [], f"localhost:{port}", 200), ("GET /", [], f"LOCALHOST:{port}", 200),
        # Host
        ("GET /", [], f"evil.example:{port}", 421), ("GET /metrics", [], f"evil.example:{port}", 421),
        ("GET /", [], "127.0.0.1", 421), ("GET /", [], f"127.0.0.1:{port + 1}", 421), ("GET /", [], "", 421),
        ("GET /", [], f"127.0.0.1.evil.example:{port}", 421), ("GET /", [f"Host: {server.host}"], None, 421),
        # Origin
        ("GET /events", ["Origin: http://evil.example"], None, 403), ("GET /", ["Origin: null"], None, 403),
        ("POST /simulate", [token, json_type, length, "Origin: http://evil.example"], None, 403),
        ("POST /simulate", [token, json_type, length, f"Origin: https://{server.host}"], None, 403),
        # Token
        ("POST /simulate", [json_type, length], None, 401), ("POST /simulate", [token[:-1], json_type, length], None, 401),
        ("POST /simulate", [f"Authorization: Bearer {wrong}", json_type, length], None, 401),
        ("POST /simulate", ["Authorization: Bearer ", json_type, length], None, 401),
        (f"POST /simulate?token={server.token}", [json_type, length], None, 401),
        # Form
        ("POST /simulate", [token, "Content-Type: text/plain", length], None, 415),
        ("POST /simulate", [token, json_type, length, "Content-Encoding: gzip"], None, 415),
        ("POST /simulate", [token, json_type], None, 411),
        ("POST /simulate", [token, json_type, length, "Transfer-Encoding: chunked"], None, 411),
        ("POST /simulate", [token, json_type, "Content-Length: 100000000"], None, 413),
        ("PUT /simulate", [token, json_type, length], None, 405), ("OPTIONS /", [], None, 405),
        ("DELETE /", [], None, 405), ("TRACE /", [], None, 405),
        ("GET /", ["Range: bytes=" + "0-," * 2000 + "0-"], None, 416),
        # Paths
        ("GET /../../../../etc/passwd", [], None, 404), ("GET /..%2f..%2fetc%2fpasswd", [], None, 404),
        ("GET //etc/passwd", [], None, 404), ("GET /live.js%00.html", [], None, 404), ("GET /liveXjs", [], None, 404),
        ("GET /%c0%ae%c0%ae/", [], None, 404), ("GET /" + "a" * 8000, [], None, 404),
        ("GET /" + "a" * 9000, [], None, 414), ("POST /", [token, json_type, "Content-Length: 0"], None, 404),
    ]


def refusals(server):
    for line, headers, host, status in requests(server):
        answer = ask(server, line, *headers, host=host, body=b'{"do": "off"}'[:12])
        require(answer[0] == status, f"{line[:60]} {[header[:60] for header in headers]} Host {host}: {answer}")
        for name in ("Content-Security-Policy: default-src 'none'; script-src 'self'; ", "Cache-Control: no-store",
                     "X-Content-Type-Options: nosniff", "Connection: close"):
            require(status == 414 or name in answer[1], f"{line[:60]}: no {name}: {answer[1]}")


def commands(server, system):
    command(server, {"do": "set", "values": {"tempLevel": 3}})
    require(system.run("get", "tempLevel").stdout == "3\n", "a command has no effect")
    require("fps" in command(server, {"do": "set", "values": {"fps": 3}}, status=400)["error"], "no reason")
    command(server, {"do": "load", "name": "heat-wave"})
    for name in ("../scenarios/heat-wave", "/etc/passwd", "heat-wave.json", "", None):
        answer = command(server, {"do": "load", "name": name}, status=400)
        require("no scenario of this name" in answer["error"], answer)
    for body in ([], "off", None, 1):
        command(server, body, status=400)
    require(command(server, {"do": "off"})["simulation"] == {"active": False}, "off does not end the simulation")


def half_requests(server):
    """A peer that disconnects in the middle is refused, and one that stays silent is disconnected at the limit."""
    for text in ("", "G", "GET / HTTP/1.1", f"GET / HTTP/1.1\r\nHost: {server.host}\r\n",
                 f"POST /simulate HTTP/1.1\r\nHost: {server.host}\r\nAuthorization: Bearer {server.token}\r\n"
                 "Content-Type: application/json\r\nContent-Length: 100\r\n\r\n{"):
        with connect(server) as peer:
            peer.sendall(text.encode())
            peer.shutdown(socket.SHUT_WR)
            answer = received(peer)
            require(not answer or answer.split()[1] == b"400", f"{text!r}: {answer}")
    begin = time.monotonic()
    with connect(server) as peer:
        peer.sendall(b"GET / HTTP/1.1\r\n")
        received(peer)
    require(8 < time.monotonic() - begin < 40, "a silent peer is not disconnected after 10 s")


def garbage(server):
    for data in (b"\0" * 100000, b"\r\n" * 50000, b"A" * 200000, b"GET / HTTP/1.1\r\n" + b"A: b\r\n" * 100000,
                 b"GET / HTTP/1.1\r\nHost: " + b"a" * 100000, os.urandom(100000), b"\x16\x03\x01\x02\x00\x01\x00\x01"):
        with connect(server) as peer:
            try:
                peer.sendall(data)
                peer.shutdown(socket.SHUT_WR)
            except OSError:  # the server has closed the connection already
                pass
            answer = received(peer)
            require(not answer or answer.split()[1].startswith(b"4"), f"{data[:40]}: {answer[:100]}")


def large_body(server):
    with connect(server) as peer:
        peer.sendall(f"POST /simulate HTTP/1.1\r\nHost: {server.host}\r\nAuthorization: Bearer {server.token}\r\n"
                     "Content-Type: application/json\r\nContent-Length: 100000000\r\n\r\n".encode())
        sent = 0
        try:
            while sent < 100_000_000:
                peer.sendall(b" " * 1_000_000)
                sent += 1_000_000
        except OSError:
            pass
    require(sent < 100_000_000, "the server has read a body of 100 MB")


def slow_peers(server):
    """A thousand peers that do not finish their requests do not keep others from being served."""
    peers = []
    for i in range(SLOW_PEERS):
        peer = connect(server)
        peer.sendall(b"GET /metrics HTTP/1.1\r\n"[:i % 22])
        peers.append(peer)
        if i % 50 == 0:
            require(ask(server, "GET /metrics")[0] == 200, f"not served while {i} peers are slow")
    require(ask(server, "GET /metrics")[0] == 200, "not served while all peers are slow")
    status = pathlib.Path(f"/proc/{server.process.pid}/status").read_text()
    require(int(re.search(r"Threads:\s*(\d+)", status)[1]) < 100, f"too many threads: {status}")
    for peer in peers:
        peer.close()


def streams(server):
    """Sixteen pages are served at a time; a page that reads nothing costs no memory, and a closed one makes room."""
    def opened():
        peer = connect(server)
        peer.sendall(f"GET /events HTTP/1.1\r\nHost: {server.host}\r\n\r\n".encode())
        return peer, peer.recv(12)

    pages = [opened() for _ in range(16)]
    require(all(first == b"HTTP/1.1 200" for _, first in pages), "not all pages are served")
    last, first = opened()
    last.close()
    require(first == b"HTTP/1.1 503", f"one page too many: {first}")
    require(ask(server, "GET /metrics")[0] == 200, "no metrics while all pages are open")
    pages.pop()[0].close()
    deadline = time.monotonic() + WAIT_S
    while True:  # the server notices the end when it sends the next state
        page, first = opened()
        page.close()
        if first == b"HTTP/1.1 200":
            break
        require(time.monotonic() < deadline, "a closed page keeps its place")
    for page, _ in pages:
        page.close()


def hostile_names(server, system):
    """Names of games are no labels of metrics."""
    if not IS_NATIVE:
        return
    with Game(system, "<script>alert(1)</script>\"'}\n#"):
        deadline = time.monotonic() + WAIT_S
        while "\nveltra_games 1\n" not in (metrics := ask(server, "GET /metrics")[2].decode()):
            require(time.monotonic() < deadline, f"the game is not counted: {metrics}")
    require("alert" not in metrics, f"the name of a game is in the metrics: {metrics}")


def stopped_service(server, system):
    """Metrics are answered while the service is not, and say so."""
    service = system.service_pid()
    os.kill(service, signal.SIGSTOP)
    try:
        begin = time.monotonic()
        while "veltra_service_up 0" not in (metrics := ask(server, "GET /metrics")[2].decode()):
            require(time.monotonic() < begin + WAIT_S, metrics)
        require("veltra_games" not in metrics, f"values of a service that does not answer: {metrics}")
        with connect(server) as waiting:
            waiting.sendall(f"GET /metrics HTTP/1.1\r\nHost: {server.host}\r\n\r\n".encode())
            require(ask(server, "GET /")[0] == 200, "not served while the service does not answer")
            silent = [connect(server) for _ in range(80)]
            require(b"veltra_service_up 0" in received(waiting), "a complete request was closed to make room")
        for peer in silent:
            peer.close()
    finally:
        os.kill(service, signal.SIGCONT)
    deadline = time.monotonic() + WAIT_S
    while "veltra_service_up 1" not in (metrics := ask(server, "GET /metrics")[2].decode()):
        require(time.monotonic() < deadline, metrics)


def restricted(system):
    body = b'{"do": "off"}'
    for option, page in (("--read-only", 200), ("--metrics-only", 404)):
        with Server(system, option) as server:
            require(server.token == "", f"{option}: {server.address}")
            require(ask(server, "GET /")[0] == page and ask(server, "GET /metrics")[0] == 200, option)
            for headers in ([], ["Authorization: Bearer "], ["Authorization:"]):
                answer = ask(server, "POST /simulate", "Content-Type: application/json", *headers,
                             f"Content-Length: {len(body)}", body=body)
                require(answer[0] == 403, f"{option}: a write was answered with {answer}")
    with Server(system, "--host", "device.lab", listen="0.0.0.0") as server:
        port = server.port
        for host, status in ((f"device.lab:{port}", 200), (f"192.168.7.9:{port}", 200), (f"{socket.gethostname()}:{port}", 200),
                             (f"[fe80::1]:{port}", 200), (f"other.lab:{port}", 421), ("192.168.7.9:1", 421)):
            require(ask(server, "GET /metrics", host=host)[0] == status, f"Host {host} is not answered with {status}")


def usage(system, source):
    for words in (["--listen", "x"], ["--listen", "127.0.0.1:0"], ["--listen", "127.0.0.1:65536"],
                  ["--listen", "::1:80"], ["--fly"], ["fly"], ["--runtime-dir", ""]):
        done = subprocess.run(system.command("veltra-serve", *words), env=system.env, capture_output=True, timeout=WAIT_S)
        require(done.returncode == 2, f"{words} ended with {done.returncode}")
    if system.emulator:
        return  # which does not follow `veltra serve` when it executes veltra-serve
    system.expect(0, "serve", "--version", output="^veltra-serve ")
    shown = system.run("serve", "--help").stdout
    manual = pathlib.Path(source, "tools/serve/veltra-serve.1.scd").read_text()
    missing = [option for option in re.findall(r"--[a-z-]+", shown) if f"*{option}*" not in manual]
    require("--read-only" in shown and not missing, f"the manual page does not have {missing}")
    with Server(system) as server:
        system.expect(1, "serve", "--listen", server.host, error="cannot listen on 127.0.0.1 port")


def main():
    programs, source = sys.argv[1:]
    with System(programs, source) as system:
        usage(system, source)
        with Server(system) as server:
            metrics = ask(server, "GET /metrics")[2].decode()
            require("veltra_service_up 0" in metrics, f"without a manager: {metrics}")
            command(server, {"do": "off"}, status=503)
        system.write_ability()
        system.start_manager()
        system.expect(0, "call", "CallAuth")
        with Server(system) as server:
            refusals(server)
            commands(server, system)
            garbage(server)
            large_body(server)
            hostile_names(server, system)
            stopped_service(server, system)
            streams(server)
            slow_peers(server)
            half_requests(server)
            require(ask(server, "GET /")[0] == 200, "the server does not answer any more")
            require(not IS_NATIVE or server.most_bytes() < MOST_BYTES, f"the server used {server.most_bytes()} bytes")
        require(server.log() == "", f"peers have left lines in the log: {server.log()}")
        restricted(system)
        for number in (signal.SIGINT, signal.SIGTERM):
            with Server(system) as server, connect(server):
                server.process.send_signal(number)
                require(server.process.wait(WAIT_S) == 0, f"signal {number}: exit status {server.process.returncode}")


main()
