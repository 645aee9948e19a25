# SPDX-License-Identifier: Apache-2.0
"""A session: the latest state of the device, and events."""
from __future__ import annotations

import atexit
import dataclasses
import enum
import os
import threading
import time
from typing import Any, Iterator, Mapping, Optional, Sequence

from veltra._library import OWN_RESULTS, callback, char_array, check, chars, ffi, lib, sized, text

ServiceState = enum.IntEnum("ServiceState", "STARTING CONNECTED NOT_ANSWERING UNAVAILABLE", start=0)


@dataclasses.dataclass(frozen=True)
class Reading:
    """A value and the sensor or file that it comes from."""
    value: int | str
    source: str


class Snapshot:
    """The values of one moment, by the names of struct veltra_snapshot: a Reading, or None for what the machine does
    not report."""

    number: int  # of the reading, from 1; 0: nothing has been read yet
    age: float  # seconds

    def __init__(self, raw: Any) -> None:
        self.number = raw.number
        self.age = raw.age_ns / 1e9
        self.values: dict[str, Reading] = {}
        for name, _ in ffi.typeof("struct veltra_snapshot").fields[3:]:
            field = getattr(raw, name)
            reported = field.text if hasattr(field, "text") else field.source
            if reported != ffi.NULL:
                value = text(field.text) if hasattr(field, "text") else field.value
                self.values[name] = Reading(value, text(field.source))

    def __getattr__(self, name: str) -> Optional[Reading]:
        if name.startswith("_") or name not in _VALUE_NAMES:
            raise AttributeError(name)
        return self.values.get(name)


_VALUE_NAMES = {name for name, _ in ffi.typeof("struct veltra_snapshot").fields[3:]}


@dataclasses.dataclass(frozen=True)
class Details:
    """The parts of the state that have no fixed size: MHz by the key of the document and the cpufreq policy, why a
    sensor is ignored, and the whole document (JSON; empty: none yet)."""
    cpu_frequencies: dict[str, dict[str, int]]
    ignored_sensors: dict[str, str]
    document: str


@dataclasses.dataclass(frozen=True)
class Event:
    """`kind` is "device" (with `info`), "service" (with the new `state`) or "gpu" (with `samples`)."""
    kind: str
    state: ServiceState
    info: dict[str, Any]
    samples: list[dict[str, Any]]


def info_of(raw: Any) -> dict[str, Any]:
    """struct veltra_device_info by the names of its members."""
    names = [name for name, _ in ffi.typeof("struct veltra_device_info").fields[2:]]
    return {"event_text": text(raw.event_text), **{name: getattr(raw, name) for name in names}}


def samples_of(samples: Any, count: int) -> list[dict[str, Any]]:
    names = [name for name, _ in ffi.typeof("struct veltra_gpu_sample").fields]
    return [{name: list(sample.uints) if name == "uints" else getattr(sample, name) for name in names}
            for sample in (samples[i] for i in range(count))]


def game_info(value: int, long_value: int, texts: Sequence[str]) -> tuple[Any, list[Any]]:
    """A structure, and what it points to, which has to be kept as long; as the following one."""
    info = sized("struct veltra_game_info")
    info.int32_value, info.int64_value = value, long_value
    kept = [chars(item) for item in texts]
    for place, item in enumerate(kept):
        info.texts[place] = item
    return info, kept


def download_results(results: Sequence[Mapping[str, Any]]) -> tuple[Any, list[Any]]:
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
    return array, kept


_POLL_S = 0.01  # between two looks for events

# Held during each call of a session, so one thread may close a session while another one uses it. No call waits for
# events. The end of the interpreter acquires it and never releases it: a callback that entered Python later would abort
# the process.
_lock = threading.RLock()
atexit.register(_lock.acquire)
os.register_at_fork(before=_lock.acquire, after_in_parent=_lock.release, after_in_child=_lock.release)


class Session:
    """Opening returns at once, with or without a service. Ends with its `with` block, or with close(). Any thread may
    use it."""

    def __init__(self, game_name: str = "", refresh_ms: int = 0, gpu_interval_ms: int = 0, *, event_capacity: int = 0,
                 batch_capacity: int = 0, report_capacity: int = 0) -> None:
        """Values of 0 stand for the defaults of struct veltra_options."""
        options = sized("struct veltra_options")
        name = chars(game_name)
        options.game_name = name
        options.refresh_ms = refresh_ms
        options.gpu_interval_ms = gpu_interval_ms
        options.event_capacity = event_capacity
        options.batch_capacity = batch_capacity
        options.report_capacity = report_capacity
        opened = ffi.new("veltra_session**")
        check("session_open", lib.veltra_session_open(options, opened))
        self._session = opened[0]
        self._is_closed = False
        self._calls = 0  # that have not returned

    def __enter__(self) -> Session:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Later calls raise VeltraError."""
        with _lock:
            self._is_closed = True
            if self._calls == 0:  # else the call that a signal handler has interrupted closes it when it returns
                session, self._session = self._session, ffi.NULL
                lib.veltra_session_close(session)

    def _call(self, name: str, *arguments: Any) -> int:
        with _lock:
            self._calls += 1
            try:
                return getattr(lib, "veltra_session_" + name)(self._session, *arguments)
            finally:
                self._calls -= 1
                if self._is_closed:
                    self.close()

    def _check(self, name: str, *arguments: Any) -> None:
        check("session_" + name, self._call(name, *arguments))

    def latest(self) -> Snapshot:
        raw = sized("struct veltra_snapshot")
        self._check("latest", raw)
        return Snapshot(raw)

    def status(self) -> dict[str, int]:
        raw = sized("struct veltra_status")
        self._check("status", raw)
        return {name: getattr(raw, name) for name, _ in ffi.typeof("struct veltra_status").fields[1:]}

    def details(self) -> Details:
        found: list[Details] = []

        def keep(_: Any, raw: Any) -> None:
            frequencies: dict[str, dict[str, int]] = {}
            for i in range(raw.cpu_frequency_count):
                entry = raw.cpu_frequencies[i]
                frequencies.setdefault(text(entry.key), {})[text(entry.policy)] = entry.mhz
            ignored = (raw.ignored_sensors[i] for i in range(raw.ignored_sensor_count))
            found.append(Details(frequencies, {text(entry.sensor): text(entry.reason) for entry in ignored},
                                 text(raw.document)))

        with callback("void(void*, const struct veltra_details*)", keep) as function:
            self._check("details", function, ffi.NULL)
        return found[0]

    def dispatch(self, wait: float = 0) -> list[Event]:
        """The events that wait; waits up to `wait` seconds for the first."""
        deadline = time.monotonic() + wait
        events = self._take_events()
        # Sleeps here and not in the library: Ctrl-C, close() and the end of the interpreter do not wait for events.
        while not events and time.monotonic() < deadline:
            time.sleep(_POLL_S)
            events = self._take_events()
        return events

    def _take_events(self) -> list[Event]:
        events: list[Event] = []

        def add(_: Any, raw: Any) -> None:
            kind = ("device", "service", "gpu")[raw.kind]
            events.append(Event(kind, ServiceState(raw.state), info_of(raw.info),
                                samples_of(raw.samples, raw.sample_count)))

        with callback("void(void*, const struct veltra_event*)", add) as function:
            result = self._call("dispatch", function, ffi.NULL, 0, ffi.NULL)
        if result != OWN_RESULTS["VELTRA_NOTHING"]:
            check("session_dispatch", result)
        return events

    def events(self, timeout: Optional[float] = None) -> Iterator[Event]:
        """Yields events as they arrive; ends if none arrives for `timeout` seconds. Without a timeout it never ends."""
        while True:
            events = self.dispatch(1.0 if timeout is None else timeout)
            if not events and timeout is not None:
                return
            yield from events

    # The reports return at once, and raise VeltraError with VELTRA_QUEUE_FULL if too many wait.

    def update_game_info(self, first: int, name: str, second: int = 0) -> None:
        self._check("update_game_info", first, chars(name), second)

    def report_game_event(self, value: int = 0, long_value: int = 0, texts: Sequence[str] = ()) -> None:
        info, _kept = game_info(value, long_value, texts)
        self._check("report_game_event", info)

    def report_render_thread(self, first: str, second: str, thread: int) -> None:
        self._check("report_render_thread", chars(first), chars(second), thread)

    def notify_game_event(self, scene: int, name: str, attributes: Mapping[str, str]) -> None:
        keys, _keys = char_array(attributes.keys())
        values, _values = char_array(attributes.values())
        self._check("notify_game_event", scene, chars(name), keys, values, len(attributes))

    def notify_app_resource_down_load_results(self, results: Sequence[Mapping[str, Any]]) -> None:
        """As the operation of this name."""
        array, _kept = download_results(results)
        self._check("notify_app_resource_down_load_results", array, len(results))
