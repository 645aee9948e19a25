# SPDX-License-Identifier: Apache-2.0
"""Fails on an include against the arrows: platform <- interfaces <- utils <- ipc <- callback <- client,
inside the platform base <- os <- wire <- transport <- ipc <- manager, and inside the service base <- probes,
scenario, push <- the service itself.

Usage: check_layering.py ROOT. Prints one line for each wrong include and exits 1 if there is one.
"""
import os
import re
import sys

TAVO = "platform/include"  # the public face of the platform
PLATFORM_ROOTS = ["platform", TAVO]
CLIENT_ROOTS = ["src", "interfaces", TAVO]

SERVICE_ROOMS = ["service/base", "service/probes", "service/scenario", "service/push"]

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
    "service/push": [TAVO, "interfaces", "src/utils", "src/ipc", "service/base", "service/scenario"],
    "service": [TAVO, "interfaces", "src/utils", "src/ipc", *SERVICE_ROOMS],
    "tools": [TAVO, "interfaces"],
    "examples": ["interfaces"],
    # These look into everything, and nothing above looks into them.
    "tests": None,
    "bench": None,
    "fuzz": None,
}
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
    folders = [os.path.dirname(path), *first, *CLIENT_ROOTS, *PLATFORM_ROOTS, "service", "session", "capi", "tools", "tests", "."]
    for folder in folders:
        candidate = os.path.normpath(os.path.join(folder, name))
        if os.path.isfile(os.path.join(root, candidate)):
            return candidate
    return None


def wrong_includes(root, path):
    room = room_of(path)
    if room is None:
        yield f"{path}: belongs to no room"
        return
    with open(os.path.join(root, path), encoding="utf-8") as source:
        for number, line in enumerate(source, 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            name = match[2]
            if ".." in name.split("/"):
                yield f"{path}:{number}: {name}: includes start at a room, not at .."
                continue
            target = target_of(root, path, name)
            allowed = ROOMS[room]
            if target is None or allowed is None:
                continue
            if room_of(target) != room and room_of(target) not in allowed:
                yield f"{path}:{number}: {room} must not include {target}"
            elif room_of(target) == TAVO and not name.startswith("tavo/"):
                yield f"{path}:{number}: {name}: the platform is included as <tavo/...>"


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
    for fault in faults:
        print(fault)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
