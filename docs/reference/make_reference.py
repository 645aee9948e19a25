# SPDX-License-Identifier: Apache-2.0
"""Makes the reference by doxygen. Fails on each warning, with one exception: a member whose name and types say all
needs no comment. A file, a class and a structure do.

Usage: make_reference.py DOXYGEN DOXYFILE OUTPUT_DIR
"""
import pathlib
import re
import shutil
import subprocess
import sys

ALLOWED = re.compile(r": warning: Member .* is not documented\.$")


def main():
    doxygen, doxyfile, output = sys.argv[1:]
    shutil.rmtree(output, ignore_errors=True)
    pathlib.Path(output).mkdir(parents=True)
    subprocess.run([doxygen, doxyfile], check=True)
    warnings = pathlib.Path(output, "warnings.txt").read_text(encoding="utf-8").splitlines()
    faults = [line for line in warnings if line.strip() and not ALLOWED.search(line)]
    print("\n".join(faults), file=sys.stderr, end="\n" if faults else "")
    pages = len(list(pathlib.Path(output, "html").glob("*.html")))
    print(f"reference: {pages} pages in {output}/html, {len(faults)} warnings")
    return 1 if faults or pages < 10 else 0


sys.exit(main())
