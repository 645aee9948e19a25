# SPDX-License-Identifier: Apache-2.0
"""A session: the latest state of the device, and events."""
from __future__ import annotations

import dataclasses
import enum
from typing import Any, Iterator, Optional

from veltra._library import OWN_RESULTS, check, chars, ffi, lib, sized, text

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


class Session:
    """Opening returns at once, with or without a service. Ends with its `with` block, or with close()."""

    def __init__(self, game_name: str = "", refresh_ms: int = 0, gpu_interval_ms: int = 0) -> None:
        options = sized("struct veltra_options")
        name = chars(game_name)
        options.game_name = name
        options.refresh_ms = refresh_ms
        options.gpu_interval_ms = gpu_interval_ms
        opened = ffi.new("veltra_session**")
        check("session_open", lib.veltra_session_open(options, opened))
        self._session = opened[0]

    def __enter__(self) -> Session:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        lib.veltra_session_close(self._session)
        self._session = ffi.NULL

    def latest(self) -> Snapshot:
        raw = sized("struct veltra_snapshot")
        check("session_latest", lib.veltra_session_latest(self._session, raw))
        return Snapshot(raw)

    def status(self) -> dict[str, int]:
        raw = sized("struct veltra_status")
        check("session_status", lib.veltra_session_status(self._session, raw))
        return {name: getattr(raw, name) for name, _ in ffi.typeof("struct veltra_status").fields[1:]}

    def dispatch(self, wait: float = 0) -> list[Event]:
        """The events that wait; waits up to `wait` seconds for the first."""
        events: list[Event] = []

        @ffi.callback("void(void*, const struct veltra_event*)")
        def add(_: Any, raw: Any) -> None:
            kind = ("device", "service", "gpu")[raw.kind]
            events.append(Event(kind, ServiceState(raw.state), info_of(raw.info),
                                samples_of(raw.samples, raw.sample_count)))

        result = lib.veltra_session_dispatch(self._session, add, ffi.NULL, int(wait * 1000), ffi.NULL)
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

    def update_game_info(self, first: int, name: str, second: int = 0) -> None:
        """Returns at once; raises VeltraError with VELTRA_QUEUE_FULL if too many reports wait."""
        check("session_update_game_info",
              lib.veltra_session_update_game_info(self._session, first, chars(name), second))
