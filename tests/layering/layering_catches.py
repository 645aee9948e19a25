# SPDX-License-Identifier: Apache-2.0
"""Shows that check_layering.py passes a right tree and names each wrong include put into it."""
import os
import subprocess
import sys
import tempfile

RIGHT = {
    "platform/include/tavo/parcel.h": "#pragma once\n#include <vector>\n",
    "platform/base/log.h": "#include <tavo/parcel.h>\n",
    "platform/os/fd.h": '#include "base/log.h"\n',
    "platform/wire/frame.h": '#include "os/fd.h"\n#include "base/log.h"\n',
    "platform/transport/lane.h": '#include "wire/frame.h"\n#include "os/fd.h"\n',
    "platform/transport/lane.cpp": '#include "transport/lane.h"\n',
    "platform/transport/transport.h": "",
    "platform/transport/transport.cpp": '#include "transport/transport.h"\n#include "transport/lane.h"\n',
    "platform/ipc/stub.h": '#include "transport/transport.h"\n#include "ipc/pool.h"\n',
    "platform/ipc/pool.h": "",
    "platform/manager/client/manager.h": '#include "ipc/stub.h"\n#include "base/log.h"\n',
    "platform/manager/daemon/main.cpp": '#include "manager/client/manager.h"\n',
    "interfaces/veltra_info.h": '#include "tavo/parcel.h"\n',
    "src/utils/json_utils.h": "#include <string>\n",
    "src/ipc/codes.h": '#include "utils/json_utils.h"\n',
    "src/ipc/stub.h": '#include "ipc/codes.h"\n#include "veltra_info.h"\n',  # a namesake of platform/ipc/stub.h
    "src/callback/event.h": '#include "ipc/stub.h"\n',
    "src/client/client.cpp": '#include "callback/event.h"\n  #  include <tavo/parcel.h>\n',
    "session/session.cpp": '#include "callback/event.h"\n#include "session.h"\n',
    "session/session.h": "",
    "service/server.cpp": '#include "ipc/stub.h"\n#include "server.h"\n',
    "service/server.h": "",
    "control/control.h": '#include "veltra_info.h"\n#include <tavo/parcel.h>\n',
    "tools/veltra.cpp": '#include "control/control.h"\n#include <tavo/parcel.h>\n',
    "examples/game.cpp": '#include "veltra_info.h"\n',
    "tests/support/fake.h": '#include "ipc/stub.h"\n#include "client/client.cpp"\n',
}

# File, a line that is wrong in it.
WRONG = [
    ("platform/include/tavo/parcel.h", '#include "base/log.h"'),
    ("platform/base/log.h", '#include "transport/lane.h"'),
    ("platform/os/fd.h", '#include "wire/frame.h"'),
    ("platform/wire/frame.h", '#include "transport/lane.h"'),
    ("platform/transport/lane.h", '#include "ipc/stub.h"'),
    ("platform/transport/lane.h", '#include "transport/transport.h"'),
    ("platform/ipc/stub.h", '#include "transport/lane.h"'),
    ("platform/ipc/stub.h", '#include "wire/frame.h"'),
    ("platform/ipc/stub.h", '#include "manager/client/manager.h"'),
    ("platform/ipc/stub.h", '#include "veltra_info.h"'),
    ("interfaces/veltra_info.h", '#include "utils/json_utils.h"'),
    ("interfaces/veltra_info.h", "#include <base/log.h>"),
    ("src/utils/json_utils.h", '#include "ipc/codes.h"'),
    ("src/ipc/stub.h", '#include "callback/event.h"'),
    ("src/callback/event.h", '#include "client/client.cpp"'),
    ("src/client/client.cpp", '#include "transport/lane.h"'),
    ("src/client/client.cpp", '#include "ipc/pool.h"'),
    ("src/client/client.cpp", '#include "../ipc/stub.h"'),
    ("src/client/client.cpp", '#include "include/tavo/parcel.h"'),
    ("src/client/client.cpp", '#include "support/fake.h"'),
    ("session/session.cpp", '#include "client/client.cpp"'),
    ("src/client/client.cpp", '#include "session.h"'),
    ("service/server.cpp", '#include "callback/event.h"'),
    ("service/server.cpp", '\t# include "base/log.h"'),
    ("control/control.h", '#include "server.h"'),
    ("tools/veltra.cpp", '#include "ipc/codes.h"'),
    ("examples/game.cpp", '#include "tavo/parcel.h"'),
    ("src/stray.cpp", "#include <vector>"),
]


def check(files):
    with tempfile.TemporaryDirectory() as root:
        for path, text in files.items():
            full = os.path.join(root, path)
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "w", encoding="utf-8") as file:
                file.write(text)
        checker = os.path.join(os.path.dirname(os.path.abspath(__file__)), "check_layering.py")
        return subprocess.run([sys.executable, checker, root], capture_output=True, text=True, check=False)


def main():
    failures = []
    right = check(RIGHT)
    if right.returncode != 0:
        failures.append(f"a right tree is refused:\n{right.stdout}{right.stderr}")
    if check({}).returncode == 0:
        failures.append("a tree without sources passes")
    for path, line in WRONG:
        result = check({**RIGHT, path: RIGHT.get(path, "") + line + "\n"})
        lines = result.stdout.splitlines()
        if result.returncode != 1 or len(lines) != 1 or not lines[0].startswith((path + ":", os.path.splitext(path)[0] + ":")):
            failures.append(f"not caught: {line} in {path}\n{result.stdout}{result.stderr}")
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
