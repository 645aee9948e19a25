# SPDX-License-Identifier: Apache-2.0
"""The library for C exports what veltra.h declares, by its version, and the loader knows all of it.

Usage: exports_c.py NM LIBRARY INTERFACES
"""
import pathlib
import re
import subprocess
import sys


def main():
    nm, library, interfaces = sys.argv[1:]
    declared = set(re.findall(r"^VELTRA_API \S+ veltra_(\w+)\(", pathlib.Path(interfaces, "veltra.h").read_text(), re.M))
    loaded = set(re.findall(r"USE\((\w+)\)", pathlib.Path(interfaces, "veltra_loader.h").read_text()))
    lines = subprocess.run([nm, "-D", "--defined-only", "--with-symbol-versions", library], check=True,
                           capture_output=True, text=True).stdout.splitlines()
    names = {re.sub(r"@@VELTRA_1\.\d+$", "", line.split()[2]) for line in lines if line.split()[1] != "A"}
    wrong = names ^ {f"veltra_{name}" for name in declared}
    for name in sorted(wrong):
        print(f"{'not declared' if name in names else 'not exported'}: {name}")
    for name in sorted(declared ^ loaded):
        print(f"in one of veltra.h and veltra_loader.h only: {name}")
    return 1 if wrong or declared != loaded or not declared else 0


if __name__ == "__main__":
    sys.exit(main())
