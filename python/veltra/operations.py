# SPDX-License-Identifier: Apache-2.0
"""The sixteen operations of the client library. Functions of the caller run on a thread of the library; what they raise
is printed, and nothing else."""
from __future__ import annotations

from typing import Any, Callable, Mapping, Sequence

from veltra._library import char_array, chars, check, ffi, lib, sized, text
from veltra.session import info_of, samples_of

# What the library may still call. Those of queries are never released: nothing reports that no answer follows.
_game_callbacks: dict[int, Any] = {}
_gpu_callbacks: list[Any] = []
_query_callbacks: list[Any] = []


def call_auth(name: str = "") -> None:
    check("call_auth", lib.veltra_call_auth(chars(name)))


def update_game_info(first: int, name: str, second: int = 0) -> None:
    check("update_game_info", lib.veltra_update_game_info(first, chars(name), second))


def report_game_event(value: int = 0, long_value: int = 0, texts: Sequence[str] = ()) -> None:
    info = sized("struct veltra_game_info")
    info.int32_value, info.int64_value = value, long_value
    kept = [chars(item) for item in texts]
    for place, item in enumerate(kept):
        info.texts[place] = item
    check("report_game_event", lib.veltra_report_game_event(info))


def report_render_thread(first: str, second: str, thread: int) -> None:
    check("report_render_thread", lib.veltra_report_render_thread(chars(first), chars(second), thread))


def sync_app_type(names: str = "", value: int = 0) -> dict[str, bool]:
    answer: dict[str, bool] = {}

    @ffi.callback("void(void*, const char*, int32_t)")
    def add(_: Any, name: Any, is_running: int) -> None:
        answer[text(name)] = is_running != 0

    check("sync_app_type", lib.veltra_sync_app_type(chars(names), value, add, ffi.NULL))
    return answer


def get_system_function_status(query: Mapping[str, str]) -> dict[str, str]:
    answer: dict[str, str] = {}

    @ffi.callback("void(void*, const char*, const char*)")
    def add(_: Any, name: Any, status: Any) -> None:
        answer[text(name)] = text(status)

    keys, _keys = char_array(query.keys())
    values, _values = char_array(query.values())
    check("get_system_function_status",
          lib.veltra_get_system_function_status(keys, values, len(query), add, ffi.NULL))
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
    kept: list[Any] = []

    def fill(target: Any, values: Mapping[str, Any]) -> None:
        target.size = ffi.sizeof(ffi.typeof(target))
        for name, value in values.items():
            kept.append(chars(value) if isinstance(value, str) else value)
            setattr(target, name, kept[-1])

    array = ffi.new("struct veltra_download_result[]", len(results))
    for target, values in zip(array, results):
        fill(target, {name: value for name, value in values.items() if name != "resource"})
        fill(target.resource, values.get("resource", {}))
    check("notify_app_resource_down_load_results",
          lib.veltra_notify_app_resource_down_load_results(array, len(results)))


def register_game_callback(function: Callable[[dict[str, Any]], None], key: int) -> None:
    @ffi.callback("int32_t(void*, const struct veltra_device_info*)", error=-1)
    def passed(_: Any, info: Any) -> int:
        function(info_of(info))
        return 0

    check("register_game_callback", lib.veltra_register_game_callback(passed, ffi.NULL, key))
    _game_callbacks[key] = passed


def unregister_game_callback(key: int) -> None:
    check("unregister_game_callback", lib.veltra_unregister_game_callback(key))
    _game_callbacks.pop(key, None)


def start_get_gpu_perf_info(value: int, function: Callable[[list[dict[str, Any]]], None]) -> None:
    @ffi.callback("int32_t(void*, const struct veltra_gpu_sample*, size_t)", error=-1)
    def passed(_: Any, samples: Any, count: int) -> int:
        function(samples_of(samples, count))
        return 0

    _gpu_callbacks.append(passed)  # kept if it is refused, too: the service may still send
    check("start_get_gpu_perf_info", lib.veltra_start_get_gpu_perf_info(value, passed, ffi.NULL))


def stop_get_gpu_perf_info() -> None:
    check("stop_get_gpu_perf_info", lib.veltra_stop_get_gpu_perf_info())


def get_app_prioritys(names: Sequence[str], function: Callable[[list[str]], None]) -> None:
    @ffi.callback("int32_t(void*, const char* const*, size_t)", error=-1)
    def passed(_: Any, found: Any, count: int) -> int:
        function([text(found[i]) for i in range(count)])
        return 0

    array, _kept = char_array(names)
    _query_callbacks.append(passed)
    check("get_app_prioritys", lib.veltra_get_app_prioritys(array, len(names), passed, ffi.NULL))


def query_app_resource_infos(names: Sequence[str], function: Callable[[list[dict[str, Any]]], None]) -> None:
    fields = ffi.typeof("struct veltra_resource").fields[1:]

    @ffi.callback("int32_t(void*, const struct veltra_resource*, size_t)", error=-1)
    def passed(_: Any, found: Any, count: int) -> int:
        function([{name: text(value) if name.startswith("text") else value
                   for name, value in ((name, getattr(found[i], name)) for name, _ in fields)} for i in range(count)])
        return 0

    array, _kept = char_array(names)
    _query_callbacks.append(passed)
    check("query_app_resource_infos", lib.veltra_query_app_resource_infos(array, len(names), passed, ffi.NULL))
