# SPDX-License-Identifier: Apache-2.0
"""Each public header compiles as C++17, alone, without a warning, and those for C as C11 too.

Usage: public_headers.py COMPILER ROOT
"""
import glob
import os
import subprocess
import sys

FOR_C = ("veltra.h", "veltra_loader.h")


def main():
    compiler, root = sys.argv[1:]
    folders = [os.path.join(root, "interfaces"), os.path.join(root, "platform/include")]
    groups = [glob.glob(os.path.join(glob.escape(folders[0]), "*.h")),
              glob.glob(os.path.join(glob.escape(folders[1]), "tavo", "*.h"))]
    failed = not all(groups)
    if failed:
        print(f"one of {folders} has no header")
    for header in sorted(groups[0] + groups[1]):
        # Included by an empty source, since #pragma once warns in a main file.
        command = [compiler, "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Werror",
                   "-I", folders[0], "-I", folders[1], "-include", header, "-x", "c++", os.devnull]
        failed |= subprocess.run(command, check=False).returncode != 0
        if os.path.basename(header) in FOR_C:
            command[command.index("-std=c++17")] = "-std=c11"
            command[command.index("c++")] = "c"
            failed |= subprocess.run([*command, "-Wpedantic"], check=False).returncode != 0
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
