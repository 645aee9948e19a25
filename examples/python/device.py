# SPDX-License-Identifier: Apache-2.0
"""Prints the state of the device for the next five events."""
import itertools

import veltra

with veltra.Session("com.example.python") as session:
    for event in itertools.islice(session.events(timeout=15), 5):
        state = session.latest()
        level = f"{state.temp_level.value} by {state.temp_level.source}" if state.temp_level else "unknown"
        print(f"{event.kind}: service {event.state.name}, temperature level {level}")
