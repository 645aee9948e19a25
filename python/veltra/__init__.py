# SPDX-License-Identifier: Apache-2.0
"""Game support for Python, on libveltra_c.so.1: sessions, the sixteen operations, and a service for tests.

    with veltra.Session("my-game") as session:
        for event in session.events():
            print(event, session.latest().temperature)

veltra.h describes what each function does, how long it may block and what it returns. A result other than 0 raises
VeltraError. One session for each process.
"""
from veltra._library import VeltraError
from veltra.operations import (call_auth, get_app_prioritys, get_device_info, get_system_function_status,
                               notify_app_resource_down_load_results, notify_game_event, query_app_resource_infos,
                               query_game_state, register_game_callback, report_game_event, report_render_thread,
                               start_get_gpu_perf_info, stop_get_gpu_perf_info, sync_app_type,
                               unregister_game_callback, update_game_info)
from veltra.session import Details, Event, Reading, ServiceState, Session, Snapshot
from veltra.simulation import simulated

__all__ = [
    "Details", "Event", "Reading", "ServiceState", "Session", "Snapshot", "VeltraError", "call_auth",
    "get_app_prioritys", "get_device_info", "get_system_function_status", "notify_app_resource_down_load_results", "notify_game_event",
    "query_app_resource_infos", "query_game_state", "register_game_callback", "report_game_event",
    "report_render_thread", "simulated", "start_get_gpu_perf_info", "stop_get_gpu_perf_info", "sync_app_type",
    "unregister_game_callback", "update_game_info",
]
