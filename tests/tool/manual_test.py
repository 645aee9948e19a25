# SPDX-License-Identifier: Apache-2.0
"""The manual page has every verb and option of the tool, and the completion scripts offer them. The pages of manager and
service have every option that the program explains.

Usage: manual_test.py PROGRAMS SOURCE
"""
import pathlib
import re
import subprocess
import sys

from harness import require

BASH = """source /dev/stdin
compopt() { :; }
complete_line() { COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _veltra; echo "${COMPREPLY[*]}"; }
complete_line veltra sta
complete_line veltra --json simulate load heat
complete_line veltra simulate set tempL
complete_line veltra call --f
"""
SERVERS = {"tavo_manager": "platform/manager/daemon", "veltra_server": "service"}
COMPLETED = ["status", "heat-wave", "tempLevel=", "--for"]


def main():
    tool, source = pathlib.Path(sys.argv[1], "veltra"), sys.argv[2]
    script = {shell: subprocess.run([tool, "completion", shell], check=True, text=True, capture_output=True).stdout
              for shell in ("bash", "zsh", "fish")}
    manual = pathlib.Path(source, "tools/veltra/veltra.1.scd").read_text()
    verbs = set(re.findall(r" -a (\w+) -d ", script["fish"]))
    options = set(re.findall(r" -l ([\w-]+)", script["fish"]))
    require({"doctor", "check"} <= verbs and {"json", "for"} <= options, "the fish script names no verbs or options")
    missing = [word for word in sorted(verbs) + [f"--{option}" for option in sorted(options)]
               if f"*{word}*" not in manual]
    require(not missing, f"the manual page does not have {missing}")
    for word in verbs | options:
        for shell in ("bash", "zsh"):
            require(re.search(rf"\b{word}\b", script[shell]), f"the script of {shell} does not have {word}")
    done = subprocess.run(["bash", "-c", BASH.replace("/dev/stdin", "/dev/fd/0")], input=script["bash"], text=True,
                          check=True, capture_output=True)
    require(done.stdout.splitlines() == COMPLETED, f"bash completes to {done.stdout}")
    for program, folder in SERVERS.items():
        usage = subprocess.run([tool.parent / program, "--help"], check=True, text=True, capture_output=True).stdout
        manual = pathlib.Path(source, folder, f"{program}.1.scd").read_text()
        missing = [option for option in set(re.findall(r"--[a-z-]+", usage)) if f"*{option}*" not in manual]
        require("--runtime-dir" in usage and not missing, f"the manual page of {program} does not have {missing}")


main()
