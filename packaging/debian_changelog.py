# SPDX-License-Identifier: Apache-2.0
"""Prints CHANGELOG.md in the format of Debian, the latest version only. It must be the version of the project.

Usage: debian_changelog.py CHANGELOG.md VERSION MAINTAINER SECONDS_OF_RELEASE
"""
import email.utils
import pathlib
import re
import sys
import textwrap


def main():
    changelog, version, maintainer, seconds = sys.argv[1:]
    sections = re.split(r"^## ", pathlib.Path(changelog).read_text(encoding="utf-8"), flags=re.M)[1:]
    if not sections or sections[0].splitlines()[0].split()[0] != version:
        sys.exit(f"{changelog}: the first section is not that of version {version}; describe this version there")
    items = re.split(r"^- ", sections[0], flags=re.M)[1:]
    if not items:
        sys.exit(f"{changelog}: the section of version {version} is empty; describe there what users notice")
    print(f"veltra ({version}) unstable; urgency=medium\n")
    for item in items:
        text = " ".join(item.replace("`", "").split())
        print(textwrap.fill(text, 78, initial_indent="  * ", subsequent_indent="    "))
    print(f"\n -- {maintainer}  {email.utils.formatdate(int(seconds))}")


main()
