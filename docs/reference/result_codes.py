# SPDX-License-Identifier: Apache-2.0
"""Writes docs/results.md from the headers that define the result codes; with --check it fails if that page differs.

Usage: result_codes.py [--check] SOURCE_DIR
"""
import pathlib
import re
import sys

HEAD = """# Result codes

<!-- Made by docs/reference/result_codes.py from interfaces/veltra_result_text.h: change that header, not this page. -->

A result of 0 is success. Every other code is in one of these tables, with its cause and its remedy. Programs get the same texts
from `veltra_result_text.h` in C++ and `veltra_describe_result` in C; the tool `veltra` prints them.
"""
SECTIONS = (
    ("RESULT_", "Of the client library", "The library reports these by itself (`veltra_result.h`)."),
    ("SERVICE_", "Of the service", "The request arrived, and the service refused it (`service_result.h`). Another service may have "
     "other codes."),
    ("IPC_", "Of the platform", "`SendRequest` returns these when a request failed in transit (`tavo/ipc_status.h`). The "
     "facade returns `RESULT_NO_SERVICE` instead."),
    ("VELTRA_", "Of the library for C", "Of the functions in `veltra.h`, besides the codes above."),
)
# veltra.h says the cause of its own codes only.
REMEDIES = {
    "VELTRA_NO_MEMORY": "free memory, then call again",
    "VELTRA_BAD_ARGUMENT": "initialise each structure with `VELTRA_INIT`, and pass no null pointer",
    "VELTRA_QUEUE_FULL": "report less often, or open the session with a larger `report_capacity`",
}


def numbers(source):
    """The value of each constant that the table of texts names."""
    found = {}
    for header in ("interfaces/veltra_result.h", "interfaces/service_result.h"):
        text = (source / header).read_text(encoding="utf-8")
        found.update(re.findall(r"\b([A-Z]+_\w+) = (-?\d+)[;,]", text))
    return found


def texts(source):
    """(code, name, cause, remedy) of each row of the table; neighbouring string literals are one text."""
    header = (source / "interfaces/veltra_result_text.h").read_text(encoding="utf-8")
    table = header[header.index("RESULT_TEXTS[] = {"):]
    values = numbers(source)
    literal = r'"((?:[^"\\]|\\.)*)"'
    several = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'
    row = re.compile(rf"\{{(-?\w+),\s*{literal},\s*{several},\s*{several}\}}")
    for match in row.finditer(table):
        cause, remedy = ("".join(re.findall(literal, match[group])).replace('\\"', '"') for group in (3, 4))
        yield int(values.get(match[1], match[1])), match[2], cause, remedy
    header = (source / "interfaces/veltra.h").read_text(encoding="utf-8")
    for name, code, cause in re.findall(r"^#define (VELTRA_\w+) \((-\d+)\) +/\* (.*) \*/$", header, re.M):
        yield int(code), name, cause, REMEDIES.get(name, "")


def page(source):
    rows = list(texts(source))
    entries = (source / "interfaces/veltra_result_text.h").read_text(encoding="utf-8").count("\n    {")
    if len([row for row in rows if not row[1].startswith("VELTRA_")]) != entries:
        raise SystemExit("result_codes: a row of veltra_result_text.h is not understood")
    parts = [HEAD]
    for prefix, title, about in SECTIONS:
        parts.append(f"\n## {title}\n\n{about}\n\n| code | name | cause | remedy |\n|---|---|---|---|\n")
        for code, name, cause, remedy in rows:
            if name.startswith(prefix):
                parts.append(f"| {code} | `{name}` | {cause} | {remedy or 'nothing to do'} |\n")
    return "".join(parts)


def main():
    source = pathlib.Path(sys.argv[-1])
    target = source / "docs/results.md"
    if "--check" not in sys.argv:
        target.write_text(page(source), encoding="utf-8")
    elif target.read_text(encoding="utf-8") != page(source):
        sys.exit("docs/results.md does not match the headers: run python3 docs/reference/result_codes.py .")


main()
