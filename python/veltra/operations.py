# SPDX-License-Identifier: Apache-2.0
"""The sixteen operations of the client library. Functions of the caller run on a thread of the library; what they raise
is printed, and nothing else.

The library calls one of four C functions, which live as long as the module, with the number of a function of the caller.
A function is released when its subscription has ended, when its query has been answered or refused, or when another one
replaces it; a call that comes later finds none and is ignored. When the interpreter ends, so do the subscriptions, and
outstanding answers are awaited for up to a second: an answer that arrives later aborts the process.
"""
from __future__ import annotations

import atexit
import contextlib
import itertools
import time
from typing import Any, Callable, Mapping, Sequence

from veltra._library import VeltraError, callback, char_array, chars, check, ffi, lib, sized, text
from veltra.session import download_results, game_info, info_of, samples_of

ANSWER_WAIT_S = 1  # at the end of the interpreter
MOST_QUERIES = 256  # that wait for an answer; a service that dies leaves some without

_numbers = itertools.count(1)
_functions: dict[int, Callable[[Any], None]] = {}
_queries: dict[int, None] = {}  # those of _functions that belong to queries, the oldest first
_game_numbers: dict[int, int] = {}  # by key
_gpu_numbers: list[int] = []


def _keep(function: Callable[[Any], None]) -> int:
    number = next(_numbers)
    _functions[number] = function
    return number


def _keep_query(function: Callable[[Any], None]) -> int:
    number = _keep(function)
    _queries[number] = None
    for oldest in list(_queries)[:-MOST_QUERIES]:
        _release(oldest)
    return number


def _release(number: int) -> None:
    _functions.pop(number, None)
    _queries.pop(number, None)


def _call(user: Any, argument: Callable[[], Any]) -> int:
    number = int(ffi.cast("uintptr_t", user))
    function = _functions.get(number)
    try:
        if function is not None:
            function(argument())
    finally:
        if number in _queries:  # only now: the end of the interpreter waits for the function, too
            _release(number)
    return 0


@ffi.callback("int32_t(void*, const struct veltra_device_info*)", error=-1)
def _pass_event(user: Any, info: Any) -> int:
    return _call(user, lambda: info_of(info))


@ffi.callback("int32_t(void*, const struct veltra_gpu_sample*, size_t)", error=-1)
def _pass_samples(user: Any, samples: Any, count: int) -> int:
    return _call(user, lambda: samples_of(samples, count))


@ffi.callback("int32_t(void*, const char* const*, size_t)", error=-1)
def _pass_names(user: Any, names: Any, count: int) -> int:
    return _call(user, lambda: [text(names[i]) for i in range(count)])


@ffi.callback("int32_t(void*, const struct veltra_resource*, size_t)", error=-1)
def _pass_resources(user: Any, resources: Any, count: int) -> int:
    names = [name for name, _ in ffi.typeof("struct veltra_resource").fields[1:]]
    return _call(user, lambda: [
        {name: text(getattr(resources[i], name)) if name.startswith("text") else getattr(resources[i], name)
         for name in names} for i in range(count)])


@atexit.register
def _end_subscriptions() -> None:
    deadline = time.monotonic() + ANSWER_WAIT_S
    while _queries and time.monotonic() < deadline:
        time.sleep(0.001)
    for key in list(_game_numbers):
        with contextlib.suppress(VeltraError):
            unregister_game_callback(key)
    if _gpu_numbers:
        with contextlib.suppress(VeltraError):
            stop_get_gpu_perf_info()


def call_auth(name: str = "") -> None:
    check("call_auth", lib.veltra_call_auth(chars(name)))


def update_game_info(first: int, name: str, second: int = 0) -> None:
    check("update_game_info", lib.veltra_update_game_info(first, chars(name), second))


def report_game_event(value: int = 0, long_value: int = 0, texts: Sequence[str] = ()) -> None:
    info, _kept = game_info(value, long_value, texts)
    check("report_game_event", lib.veltra_report_game_event(info))


def report_render_thread(first: str, second: str, thread: int) -> None:
    check("report_render_thread", lib.veltra_report_render_thread(chars(first), chars(second), thread))


def sync_app_type(names: str = "", value: int = 0) -> dict[str, bool]:
    answer: dict[str, bool] = {}

    def add(_: Any, name: Any, is_running: int) -> None:
        answer[text(name)] = is_running != 0

    with callback("void(void*, const char*, int32_t)", add) as function:
        check("sync_app_type", lib.veltra_sync_app_type(chars(names), value, function, ffi.NULL))
    return answer


def get_system_function_status(query: Mapping[str, str]) -> dict[str, str]:
    answer: dict[str, str] = {}

    def add(_: Any, name: Any, status: Any) -> None:
        answer[text(name)] = text(status)

    keys, _keys = char_array(query.keys())
    values, _values = char_array(query.values())
    with callback("void(void*, const char*, const char*)", add) as function:
        check("get_system_function_status",
              lib.veltra_get_system_function_status(keys, values, len(query), function, ffi.NULL))
    return answer


def get_device_info(query_types: Sequence[int] = ()) -> dict[str, Any]:
    info = sized("struct veltra_device_info")
    check("get_device_info",
          lib.veltra_get_device_info(ffi.new("int32_t[]", list(query_types)), len(query_types), info))
    return info_of(info)


def query_game_state() -> tuple[int, str]:
    """The state, 2 if no game is running, and the bundle name."""
    state = sized("struct veltra_game_state")
    check("query_game_state", lib.veltra_query_game_state(state))
    return state.state, text(state.bundle_name)


def notify_game_event(scene: int, name: str, attributes: Mapping[str, str]) -> None:
    keys, _keys = char_array(attributes.keys())
    values, _values = char_array(attributes.values())
    check("notify_game_event", lib.veltra_notify_game_event(scene, chars(name), keys, values, len(attributes)))


def notify_app_resource_down_load_results(results: Sequence[Mapping[str, Any]]) -> None:
    """Each by the names of struct veltra_download_result; "resource" by those of struct veltra_resource."""
    array, _kept = download_results(results)
    check("notify_app_resource_down_load_results",
          lib.veltra_notify_app_resource_down_load_results(array, len(results)))


def register_game_callback(function: Callable[[dict[str, Any]], None], key: int) -> None:
    number = _keep(function)
    result = lib.veltra_register_game_callback(_pass_event, ffi.cast("void*", number), key)
    _release(number if result != 0 else _game_numbers.pop(key, 0))
    check("register_game_callback", result)
    _game_numbers[key] = number


def unregister_game_callback(key: int) -> None:
    result = lib.veltra_unregister_game_callback(key)
    _release(_game_numbers.pop(key, 0))  # after a failure, too: the key is gone
    check("unregister_game_callback", result)


def start_get_gpu_perf_info(value: int, function: Callable[[list[dict[str, Any]]], None]) -> None:
    number = _keep(function)
    result = lib.veltra_start_get_gpu_perf_info(value, _pass_samples, ffi.cast("void*", number))
    _release_gpu()  # after a failure, too: the earlier stream is gone
    if result != 0:
        _release(number)
    check("start_get_gpu_perf_info", result)
    _gpu_numbers.append(number)


def stop_get_gpu_perf_info() -> None:
    check("stop_get_gpu_perf_info", lib.veltra_stop_get_gpu_perf_info())
    _release_gpu()


def _release_gpu() -> None:
    while _gpu_numbers:
        _release(_gpu_numbers.pop())


def get_app_prioritys(names: Sequence[str], function: Callable[[list[str]], None]) -> None:
    array, _kept = char_array(names)
    number = _keep_query(function)
    result = lib.veltra_get_app_prioritys(array, len(names), _pass_names, ffi.cast("void*", number))
    _check_query("get_app_prioritys", result, number)


def query_app_resource_infos(names: Sequence[str], function: Callable[[list[dict[str, Any]]], None]) -> None:
    array, _kept = char_array(names)
    number = _keep_query(function)
    result = lib.veltra_query_app_resource_infos(array, len(names), _pass_resources, ffi.cast("void*", number))
    _check_query("query_app_resource_infos", result, number)


def _check_query(operation: str, result: int, number: int) -> None:
    if result != 0:
        _release(number)
    check(operation, result)
