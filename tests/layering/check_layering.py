# SPDX-License-Identifier: Apache-2.0
"""Fails on an include against the arrows: platform <- interfaces <- utils <- ipc <- callback <- client,
inside the platform base <- os <- wire <- transport <- ipc <- manager, and inside the service base <- probes,
scenario, watch <- push <- the service itself. Service and tools share control. Fails, too, on an include of a room's
inner header where the room has a face, and on files of a room that include each other in a circle; x.h and x.cpp count
as one.

Usage: check_layering.py ROOT. Prints one line for each wrong include and each circle, and exits 1 if there is one.
"""
import os
import re
import sys

TAVO = "platform/include"  # the public face of the platform
PLATFORM_ROOTS = ["platform", TAVO]
CLIENT_ROOTS = ["src", "interfaces", TAVO]

SERVICE_ROOMS = ["service/base", "service/probes", "service/scenario", "service/watch", "service/push"]

# Room: the rooms that it may include from besides itself. The longest room that starts a path owns the file.
ROOMS = {
    TAVO: [],
    "platform/base": [TAVO],
    "platform/os": [TAVO, "platform/base"],
    "platform/wire": [TAVO, "platform/base", "platform/os"],
    "platform/transport": [TAVO, "platform/base", "platform/os", "platform/wire"],
    "platform/ipc": [TAVO, "platform/base", "platform/os", "platform/transport"],
    "platform/manager": [TAVO, "platform/base", "platform/os", "platform/transport", "platform/ipc"],
    "interfaces": [TAVO],
    "src/utils": [TAVO, "interfaces"],
    "src/ipc": [TAVO, "interfaces", "src/utils"],
    "src/callback": [TAVO, "interfaces", "src/utils", "src/ipc"],
    "src/client": [TAVO, "interfaces", "src/utils", "src/ipc", "src/callback"],
    "session": [TAVO, "interfaces", "src/utils", "src/ipc", "src/callback"],
    "capi": ["interfaces"],
    "service/base": [TAVO, "interfaces", "src/utils", "src/ipc"],
    "service/probes": [TAVO, "interfaces", "src/utils", "service/base"],
    "service/scenario": [TAVO, "interfaces", "src/utils", "src/ipc", "service/base"],
    "service/push": [TAVO, "interfaces", "src/utils", "src/ipc", "service/base", "service/scenario",
                     "service/watch"],
    "service/watch": [TAVO, "interfaces", "src/utils", "src/ipc", "control", "service/base"],
    "service": [TAVO, "interfaces", "src/utils", "src/ipc", "control", *SERVICE_ROOMS],
    "control": [TAVO, "interfaces", "src/utils", "src/ipc"],
    "tools": [TAVO, "interfaces", "control"],
    # Read answers as the library does, and check scenario files by the code that loads them.
    "tools/common": [TAVO, "interfaces", "src/utils", "control", "service/scenario"],
    "tools/veltra": [TAVO, "interfaces", "src/utils", "control", "service/scenario", "tools/common"],
    "tools/serve": [TAVO, "interfaces", "src/utils", "control", "service/scenario", "tools/common"],
    "examples": ["interfaces"],
    "examples/echo-service": [TAVO],
    # These look into everything, and nothing above looks into them.
    "tests": None,
    "bench": None,
    "fuzz": None,
}
# Room: the only header of it that others include.
FACES = {"platform/transport": "platform/transport/transport.h"}
# Circles that stay, with the reason.
CIRCLES = [
    # The two callbacks are created without arguments, and find the client by its singleton.
    {"src/client/veltra_sa_death_recipient", "src/client/veltra_sa_load_callback", "src/client/veltra_server_client_proxy"},
]
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')
SOURCE_ENDINGS = (".h", ".c", ".cpp", ".h.in")


def room_of(path):
    owners = [room for room in ROOMS if path.startswith(room + "/")]
    return max(owners, key=len, default=None)


def target_of(root, path, name):
    """The file of this tree that `path` means by including `name`, or None. Looks into every room, not only into
    those on the compiler's path, so that a wrong include is named as such; nearest folders first, because src and
    platform both have a folder ipc."""
    first = PLATFORM_ROOTS if path.startswith("platform/") else CLIENT_ROOTS
    folders = [os.path.dirname(path), *first, *CLIENT_ROOTS, *PLATFORM_ROOTS, "service", "session", "capi", "tools/common", "tools",
               "tests", "."]
    for folder in folders:
        candidate = os.path.normpath(os.path.join(folder, name))
        if os.path.isfile(os.path.join(root, candidate)):
            return candidate
    return None


def includes(root, path):
    """Line number, name and target of each include of `path`."""
    with open(os.path.join(root, path), encoding="utf-8") as source:
        for number, line in enumerate(source, 1):
            match = INCLUDE.match(line)
            if match:
                yield number, match[2], target_of(root, path, match[2])


def wrong_includes(root, path):
    room = room_of(path)
    if room is None:
        yield f"{path}: belongs to no room"
        return
    for number, name, target in includes(root, path):
        if ".." in name.split("/"):
            yield f"{path}:{number}: {name}: includes start at a room, not at .."
            continue
        allowed = ROOMS[room]
        if target is None or allowed is None:
            continue
        other = room_of(target)
        if other != room and other not in allowed:
            yield f"{path}:{number}: {room} must not include {target}"
        elif other != room and target != FACES.get(other, target):
            yield f"{path}:{number}: {target} is not the face of {other}, {FACES[other]} is"
        elif other == TAVO and not name.startswith("tavo/"):
            yield f"{path}:{number}: {name}: the platform is included as <tavo/...>"


def circles(root, files):
    """Sets of files, without their endings, that include each other in a circle inside a room."""
    targets = {}
    for path in files:
        stem = os.path.splitext(path)[0]
        found = (target for _, _, target in includes(root, path) if target is not None)
        stems = {os.path.splitext(target)[0] for target in found if room_of(target) == room_of(path)}
        targets.setdefault(stem, set()).update(stems - {stem})

    def reachable(start):
        seen = set()
        pending = [start]
        while pending:
            for target in targets.get(pending.pop(), ()):
                if target not in seen:
                    seen.add(target)
                    pending.append(target)
        return seen

    reached = {stem: reachable(stem) for stem in targets}
    found = {frozenset(other for other in reached[stem] if stem in reached.get(other, ())) for stem in targets}
    return sorted((set(circle) for circle in found if circle), key=sorted)


def sources(root):
    for top in sorted({room.split("/")[0] for room in ROOMS}):
        for folder, _, files in os.walk(os.path.join(root, top)):
            for file in sorted(files):
                if file.endswith(SOURCE_ENDINGS):
                    yield os.path.relpath(os.path.join(folder, file), root)


def main():
    root = sys.argv[1]
    files = list(sources(root))
    if not files:
        print(f"no source file below {root}")
        return 1
    faults = [fault for path in files for fault in wrong_includes(root, path)]
    for circle in circles(root, files):
        if circle not in CIRCLES:
            faults.append(f"{min(circle)}: in a circle of includes: {', '.join(sorted(circle))}")
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
