#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints a header with its comments marked as documentation, so that the headers themselves need no marks.

A comment above a declaration, or behind one, describes it. The comment below the license line describes the file, and
also the first class or structure of a file of C++ if that has no comment of its own.
Usage: header_filter.py HEADER
"""
import re
import sys

ALONE = re.compile(r"^(\s*)//(?: (.*))?$")
BEHIND = re.compile(r"^(\s*[^\s#/{}].*?\s+)// (.*)$")
ALONE_C = re.compile(r"^(\s*)/\* (.*)$")
BEHIND_C = re.compile(r"^(\s*[^\s/{}].*?\s+)/\* (.*)$")
TYPE = re.compile(r"^(class|struct|template) ?[^;]*$")


def plain(text):
    """Nothing in a comment is a command or a tag. Code between backticks is left alone."""
    parts = re.split(r"(`[^`]*`)", text)
    return "".join(part if part.startswith("`") else re.sub(r'([\\@<>#&%"])', r"\\\1", part) for part in parts)


def filter_cpp(lines):
    about_file = []
    is_first_type = True
    column = None  # of the comment behind a declaration, which may go on in the next lines
    previous = ""
    for number, line in enumerate(lines):
        alone, behind = ALONE.match(line), BEHIND.match(line)
        if number == 0:
            yield "/// @file"
        elif alone and len(about_file) == number - 1:
            about_file.append(f"/// {plain(alone[2] or '')}")
            yield about_file[-1]
        elif alone and len(alone[1]) == column:
            yield f"{alone[1]}///< {plain(alone[2] or '')}"
        elif alone:
            yield f"{alone[1]}/// {plain(alone[2] or '')}"
        elif behind:
            yield f"{behind[1]}///< {plain(behind[2])}"
        else:
            if is_first_type and TYPE.match(line):
                is_first_type = False
                if not ALONE.match(previous):
                    yield from about_file
            yield line
        column = len(behind[1]) if behind else column if alone else None
        previous = line


def filter_c(lines):
    is_open = False  # a comment of several lines
    for number, line in enumerate(lines):
        alone, behind = ALONE_C.match(line), BEHIND_C.match(line)
        if number == 0 or line.startswith("/* ----"):
            yield ""
        elif is_open:
            yield plain(line).replace("*\\/", "*/")
        elif alone:
            yield f"{alone[1]}/** {'@file' if number == 1 else ''}\n{plain(alone[2])}"
        elif behind:
            yield f"{behind[1]}/**< {plain(behind[2])}"
        else:
            yield line
        is_open = (is_open or bool(alone or behind)) and "*/" not in line


def main():
    with open(sys.argv[1], encoding="utf-8") as header:
        lines = header.read().splitlines()
    print("\n".join(filter_c(lines) if lines[0].startswith("/*") else filter_cpp(lines)))


main()
