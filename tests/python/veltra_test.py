# SPDX-License-Identifier: Apache-2.0
"""The package against a service that plays a scenario; one run of pytest is one process."""
import gc
import json
import pathlib
import queue
import re
import runpy
import subprocess
import sys
import threading
import time
import weakref

import pytest
import veltra

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))

from operation_table import OPERATIONS

TIMEOUT_S = 30


def test_a_session_has_state_and_events(veltra_simulation):
    with veltra.Session("com.example.python", gpu_interval_ms=50) as session:
        kinds = set()
        for event in session.events(timeout=TIMEOUT_S):
            kinds.add(event.kind)
            if kinds == {"device", "service", "gpu"} and session.latest().number > 0:
                break
        state = session.latest()
        assert isinstance(state.temp_level.value, int)
        assert state.level_from.value == "scenario"
        assert state.battery_percent is None
        with pytest.raises(AttributeError):
            state.no_such_value
        assert session.status()["connections"] == 1


def test_operations_answer(veltra_simulation):
    veltra.update_game_info(1, "com.example.python")
    assert veltra.query_game_state() == (1, "com.example.python")
    assert veltra.sync_app_type("com.example.python") == {"com.example.python": True}
    assert veltra.get_system_function_status({"deviceState": ""}) == {"deviceState": "supported"}
    assert 0 <= veltra.get_device_info()["temp_level"] <= 5
    answers = queue.Queue()
    veltra.query_app_resource_infos(["com.example.racer"], answers.put)
    assert answers.get(timeout=TIMEOUT_S)[0]["int1"] == 1
    veltra.get_app_prioritys([], answers.put)
    assert answers.get(timeout=TIMEOUT_S) == ["com.example.racer", "com.example.puzzle"]


def report_game_event(value, *texts):
    veltra.report_game_event(value, texts=texts)


# The function of each operation where it has another name, and what ends its subscription.
FUNCTIONS = {
    "ReportGameEvent": report_game_event,
    "RegisterGameCallback": lambda key, function: veltra.register_game_callback(function, key),
    "UnRegisterGameCallback": veltra.unregister_game_callback,
}
ENDS = {
    "RegisterGameCallback": veltra.unregister_game_callback,
    "StartGetGpuPerfInfo": lambda value: veltra.stop_get_gpu_perf_info(),
}


@pytest.mark.parametrize("operation, arguments, name, has_callback", OPERATIONS)
def test_each_operation_has_its_result(veltra_simulation, operation, arguments, name, has_callback):
    function = FUNCTIONS.get(operation) or getattr(veltra, re.sub("(?<!^)(?=[A-Z])", "_", operation).lower())
    arrived = threading.Event()
    takes_callback = operation in ENDS or operation in ("GetAppPrioritys", "QueryAppResourceInfos")
    callback = [lambda found: arrived.set()] if takes_callback else []
    if name in ("RESULT_OK", None):
        function(*arguments, *callback)
    else:
        with pytest.raises(veltra.VeltraError) as error:
            function(*arguments, *callback)
        assert error.value.name == name
    assert not has_callback or arrived.wait(TIMEOUT_S)
    if operation in ENDS:
        ENDS[operation](*arguments)


def test_a_session_sends_its_reports_and_has_the_details(veltra_simulation):
    with veltra.Session() as session:
        session.report_game_event(1, texts=["com.example.python"])
        session.report_render_thread("a", "b", 5)
        session.notify_game_event(1, "menu", {"mode": "night"})
        session.notify_app_resource_down_load_results([{"text1": "tracks", "resource": {"int1": 2}}])
        deadline = time.monotonic() + TIMEOUT_S
        while session.status()["reports_sent"] < 4 and time.monotonic() < deadline:
            session.dispatch(0.05)
        assert (session.status()["reports_sent"], session.status()["reports_failed"]) == (4, 0)
        next(event for event in session.events(TIMEOUT_S) if session.latest().number > 0)
        assert json.loads(session.details().document)["tempLevelFrom"] == "scenario"


def test_functions_are_released_with_their_answer_and_subscription(veltra_simulation):
    def subscription(subscribe, end):
        function = Receiver()
        subscribe(function)
        assert function.arrived.wait(TIMEOUT_S)
        end()
        return weakref.ref(function)

    class Receiver:
        def __init__(self):
            self.arrived = threading.Event()

        def __call__(self, found):
            self.arrived.set()

    released = [
        subscription(lambda function: veltra.get_app_prioritys([], function), lambda: None),
        subscription(lambda function: veltra.query_app_resource_infos(["com.example.racer"], function), lambda: None),
        subscription(lambda function: veltra.register_game_callback(function, 1),
                     lambda: veltra.unregister_game_callback(1)),
        subscription(lambda function: veltra.start_get_gpu_perf_info(50, function), veltra.stop_get_gpu_perf_info),
    ]
    deadline = time.monotonic() + TIMEOUT_S  # the thread that called the last one may not have returned yet
    while any(each() for each in released) and time.monotonic() < deadline:
        gc.collect()
    assert not any(each() for each in released)


def interrupt(*_):
    raise KeyboardInterrupt


@pytest.mark.parametrize("place, call", [
    ("session.info_of", lambda session: next(session.events(TIMEOUT_S), None)),
    ("session.Details", veltra.Session.details),
    ("operations.text", lambda session: veltra.sync_app_type("com.example.python")),
    ("operations.text", lambda session: veltra.get_system_function_status({"deviceState": ""})),
])
def test_ctrl_c_within_an_answer_reaches_the_caller(veltra_simulation, monkeypatch, place, call):
    monkeypatch.setattr("veltra." + place, interrupt)
    with veltra.Session() as session, pytest.raises(KeyboardInterrupt):
        call(session)


FOLLOW = """
import os, signal, threading, veltra
session = veltra.Session(gpu_interval_ms=10)
has_event = threading.Event()
def follow():
    try:
        for event in session.events(3600):
            has_event.set()
    except (veltra.VeltraError, KeyboardInterrupt):
        pass
def start(daemon):
    thread = threading.Thread(target=follow, daemon=daemon)
    thread.start()
    has_event.wait()
    return thread
"""


@pytest.mark.parametrize("last, has_service", [
    ("veltra.get_app_prioritys([], lambda names: None)", True),
    ("start(daemon=True)", True),
    ("thread = start(daemon=False); session.close(); thread.join()", True),
    ("veltra.session.info_of = lambda raw: session.close(); follow()", True),  # as a signal handler may
    ("threading.Timer(0.2, os.kill, (os.getpid(), signal.SIGINT)).start(); follow()", False),
])
def test_a_program_ends_at_once(veltra_simulation, monkeypatch, last, has_service):
    if not has_service:
        monkeypatch.setenv("TAVO_RUNTIME_DIR", "/nonexistent")
    assert subprocess.run([sys.executable, "-c", FOLLOW + last], timeout=TIMEOUT_S).returncode == 0


@pytest.mark.parametrize("example, count", [("minimal.py", 1), ("device.py", 5)])
def test_the_examples_print_the_temperature_level(veltra_simulation, capsys, example, count):
    runpy.run_path(str(pathlib.Path(__file__).parents[2] / "examples/python" / example))
    lines = capsys.readouterr().out.splitlines()
    assert len(lines) == count and all("temperature level" in line for line in lines)
