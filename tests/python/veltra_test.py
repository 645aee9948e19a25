# SPDX-License-Identifier: Apache-2.0
"""The package against a service that plays a scenario; one run of pytest is one process."""
import pathlib
import runpy
import threading

import pytest
import veltra

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


def test_each_operation_is_answered(veltra_simulation):
    veltra.call_auth()
    veltra.update_game_info(1, "com.example.python")
    assert veltra.query_game_state() == (1, "com.example.python")
    assert veltra.sync_app_type("com.example.python") == {"com.example.python": True}
    assert veltra.get_system_function_status({"deviceState": ""}) == {"deviceState": "supported"}
    assert 0 <= veltra.get_device_info()["temp_level"] <= 5
    veltra.report_game_event(1, texts=["com.example.python"])
    veltra.report_render_thread("a", "b", 5)
    veltra.notify_game_event(1, "menu", {"mode": "night"})
    veltra.notify_app_resource_down_load_results([{"text1": "tracks", "value1": 5, "resource": {"int1": 2}}])
    arrived = threading.Semaphore(0)
    veltra.register_game_callback(lambda info: arrived.release(), 1)
    assert arrived.acquire(timeout=TIMEOUT_S)
    veltra.unregister_game_callback(1)
    veltra.start_get_gpu_perf_info(50, lambda samples: arrived.release())
    assert arrived.acquire(timeout=TIMEOUT_S)
    veltra.stop_get_gpu_perf_info()
    with pytest.raises(veltra.VeltraError, match="RESULT_GPU_REFUSED"):
        veltra.stop_get_gpu_perf_info()
    for query in (veltra.get_app_prioritys, veltra.query_app_resource_infos):
        with pytest.raises(veltra.VeltraError):  # there is no catalogue
            query(["com.example.racer"], print)


def test_the_example_prints_five_events(veltra_simulation, capsys):
    runpy.run_path(str(pathlib.Path(__file__).parents[2] / "examples/python/device.py"))
    lines = capsys.readouterr().out.splitlines()
    assert len(lines) == 5 and all("temperature level" in line for line in lines)
