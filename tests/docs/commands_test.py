# SPDX-License-Identifier: Apache-2.0
"""The documents are true: their commands work as printed, their programs are those that are built, and no link is
broken.

Commands are the fenced blocks marked `sh`. The blocks of one page are run in one shell, in the source folder. A page
that is to be read after "the first commands of" another page begins with the first block of that one. The only change
is the installation prefix, which is replaced by a scratch folder. Commands that run this test are left out. Blocks
marked `text` are printed, with other numbers perhaps. The lines that the demo suggests at its end work too.

A second word after `sh` names who else runs the block, because it takes too long for a test or needs another place:
RUNNERS reads these blocks from the page. scripts/release does it with this program: it gives the word as WORD.

Usage: commands_test.py SOURCE_DIR PAGE [WORD], or commands_test.py --texts SOURCE_DIR PAGE..., the pages whose commands
are run
"""
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

PREFIX = "/opt/veltra"
SOURCE = "/home/me/veltra"  # the source folder in what is printed
LEFT_OUT = ("scripts/test", "cmake --workflow --preset release")
RUNNERS = {"release": "scripts/release", "packages": "packaging/chroot_check",
           "containers": "tests/tool/containers_test.py"}
PATIENT = "/echo_client"  # waits for the manager
LANGUAGES = {"sh", "text", "c", "cpp", "cmake", "json", "python"}
MANUALS = {"tavo_manager": "platform/manager/daemon", "veltra": "tools/veltra", "veltra-serve": "tools/serve",
           "veltra_server": "service"}  # the folders of the manual pages
# A line that looks like a command. A synopsis, which has an option in brackets, is none.
COMMAND = re.compile(r"^ *(?:\$ )?(?:[\w./]+/)?(?:%s|scripts/[a-z]+|apt|cd|cmake|cp|ctest|curl|export|g\+\+|git|kill|"
                     r"prometheus|python3|sudo|systemctl)(?: (?!.*\[-).*)?$" % "|".join(MANUALS), re.M)
SKIPPED = 77
NEXT = "Try next, in this folder:\n"  # in the demo's output, before lines indented by two
# Runs after a command that stays in the background: as long as a person takes to type the next one.
AWAIT = "\nfor ((i = 0; i < 1000; i++)); do { %s; } 2>/dev/null && break; sleep 0.01; done\n"
# A network of its own, where every port is free.
OWN_NETWORK = ("unshare", "--user", "--map-root-user", "--net", "sh", "-c", 'ip link set lo up && exec "$@"', "sh")
# What the first program prints; the second form on a machine without sensors, as the front page says.
PROGRAM_OUTPUT = re.compile(
    r"^temperature level (\d+, GPU load level -?\d+|unknown on this machine: no temperature sensor)$", re.M)
FIRST_PROGRAMS = ("build/demo/bin/veltra_minimal", "build/demo/bin/veltra_minimal_c",
                  "/usr/bin/python3 examples/python/minimal.py", "build/game")
MARK = "^ first program"


def require(condition, what):
    if not condition:
        raise AssertionError(what)


def blocks(page, language):
    return re.findall(rf"^```{language}\n(.*?)^```$", page.read_text(), re.M | re.S)


def typed(line):
    """The line, and what passes until the next one is typed."""
    if line.startswith("kill %"):
        return f"{line}\nwait {line[5:]} 2>/dev/null || true"
    if not line.endswith("&"):
        return line
    ready = '[[ -S "$TAVO_RUNTIME_DIR/manager" ]]'
    if port := re.search(r":(\d+)|^veltra.serve(?!.*:)", line):
        ready = f"(: </dev/tcp/127.0.0.1/{port[1] or 6606})"
    if output := re.search(r"> (\S+) &$", line):  # once the program listens, what an earlier one wrote is gone
        ready += f" && [[ -s {output[1]} ]]"
    return line + AWAIT % ready


def prose(text):
    """All but the blocks that have a language."""
    return re.sub(r"^```\w.*?^```$", "", text, flags=re.M | re.S)


def shell_lines(page, language, prefix):
    before = re.search(r"first\s+commands\s+of\s+\[[^]]*\]\(([^)]*)\)", page.read_text())
    first = blocks(page.parent / before[1], "sh")[:1] if before and language == "sh" else []
    lines = "".join([*first, *blocks(page, language)]).replace(PREFIX, str(prefix)).splitlines()
    for line, following in zip(lines, [*lines[1:], ""]):
        if following.endswith(PATIENT):  # as if both lines were pasted
            yield line
        elif line in FIRST_PROGRAMS:
            yield f"{line} || true\necho '{MARK}'"
        elif line.split(" #")[0].strip() not in LEFT_OUT:
            yield typed(line)


def run_shell(lines, source, output=subprocess.PIPE):
    script = "\n".join(["trap 'kill $(jobs -p) 2>/dev/null || true; wait' EXIT", *lines])
    command = ["bash", "-euc", script]
    if "/dev/tcp/" in script and subprocess.run([*OWN_NETWORK, "true"], stderr=subprocess.DEVNULL).returncode == 0:
        command = [*OWN_NETWORK, *command]
    done = subprocess.run(command, cwd=source, text=True, stdin=subprocess.DEVNULL, stdout=output,
                          stderr=subprocess.STDOUT)
    print(done.stdout or "")
    require(done.returncode == 0, f"a command failed with {done.returncode}: {lines}")
    return done.stdout


def printed(expected, source):
    """A pattern for the text of a page: its numbers match any number, its token any token."""
    text = re.escape(expected.replace(SOURCE, str(source)).rstrip())
    return re.sub(r"([0-9a-f]{32})|\d+(?:\\\.\d+)*",
                  lambda number: "[0-9a-f]{32}" if number[1] else r"\d+(?:\.\d+)*", text)


def check_commands(page, source, language):
    for program in re.findall(r"^(?:curl|prometheus)\b", "".join(blocks(page, language)), re.M):
        if not shutil.which(program):
            print(f"skipped: {program} is missing; run scripts/setup and scripts/setup --browser")
            sys.exit(SKIPPED)
    with tempfile.TemporaryDirectory(prefix="docs-", dir=source / "build") as scratch:
        commands = list(shell_lines(page, language, pathlib.Path(scratch, "installed")))
        require(commands, f"{page} has no commands")
        if language != "sh":
            run_shell(commands, source, output=None)
            return
        output = run_shell(commands, source)
    before_marks = output.split(MARK)[:-1]
    require(before_marks or not any(line in FIRST_PROGRAMS for line in page.read_text().splitlines()),
            f"{page} does not run the first program")
    for part in before_marks:
        require(PROGRAM_OUTPUT.search(part), f"{page}: the first program printed something else")
    for expected in blocks(page, "text"):
        if not PROGRAM_OUTPUT.search(expected):
            require(re.search(printed(expected, source), output), f"{page} promises: {expected}")
    if NEXT in output:
        suggested = output.split(NEXT)[1].splitlines()
        count = next((i for i, line in enumerate(suggested) if not line.startswith("  ")), len(suggested))
        require(count > 0, "the demo suggests nothing")
        run_shell([typed(line.strip()) for line in suggested[:count]], source)


def anchors(page):
    """What a link to a heading of the page ends with."""
    headings = re.findall(r"^#+ (.*)$", page.read_text(), re.M)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


def check_links(page):
    for target, anchor in re.findall(r"\]\(([^)#:]*)(?:#([^)]*))?\)", page.read_text()):
        linked = page.parent / target if target else page
        require(linked.exists(), f"{page} links to {target}, which does not exist")
        require(not anchor or anchor in anchors(linked), f"{page} links to #{anchor}, which {linked} does not have")


def check_mentions(page, source):
    """Presets and scripts that a page names exist, and so do verbs and options: of a program, its manual page has them,
    which another test compares with the program."""
    text = page.read_text()
    presets = json.loads((source / "CMakePresets.json").read_text())
    for kind, preset in re.findall(r"cmake(?: --(build|workflow))? --preset ([\w-]+)", text):
        names = [each["name"] for each in presets[f"{kind or 'configure'}Presets"]]
        require(preset in names, f"{page} names the {kind} preset {preset}, which does not exist")
    for script in re.findall(r"(?<![\w/])scripts/[\w-]+", text):
        require((source / script).is_file(), f"{page} names {script}, which does not exist")
    for mention in re.findall(r"`([^`]+)`", prose(text)):
        program, *words = re.sub("^veltra serve", "veltra-serve", mention).split()
        program = program.removeprefix("build/demo/bin/")
        if program in MANUALS:
            manual, form = f"{MANUALS[program]}/{program}.1.scd", "*%s*"
        elif program.startswith("scripts/"):
            manual, form = program, "%s"
        else:
            continue
        for word in [*re.findall("^[a-z]+", " ".join(words)), *(word for word in words if word.startswith("--"))]:
            require(form % word in (source / manual).read_text(), f"{page}: {manual} does not have {word} of {mention}")


def check_blocks(page, source, is_run):
    """Each command of the page is run, here or by one of RUNNERS."""
    text = page.read_text()
    for language, word in re.findall(r"^```(\w+)(?: (\w+))?\n", text, re.M):
        require(language in LANGUAGES, f"{page} has a block of the unknown language {language}")
        require(not word or word in RUNNERS and f"```sh {word}" in (source / RUNNERS[word]).read_text(),
                f"{page} has a block `sh {word}` that nothing runs")
    require(is_run or not blocks(page, "sh"), f"{page} has commands that no test runs")
    unmarked = COMMAND.findall(prose(text))
    require(not unmarked, f"{page} has commands outside a block marked sh: {unmarked}")


def check_texts(source, run):
    pages = [*sorted(source.glob("*.md")), *sorted((source / "docs").glob("*.md"))]
    for page in pages:
        check_blocks(page, source, page in run)
        check_links(page)
        check_mentions(page, source)
    index = (source / "docs/README.md").read_text()
    for page in pages[1:]:
        name = page.name if page.parent.name == "docs" else f"../{page.name}"
        require(page.name == "README.md" or f"]({name})" in index, f"docs/README.md does not list {page.name}")
    program = (source / "examples/minimal/main.cpp").read_text()
    code = "".join(line for line in program.splitlines(True) if not line.startswith("//"))
    require(blocks(source / "README.md", "cpp") == [code], "the first program of README.md is not examples/minimal")
    parts = "".join(path.read_text() for path in (source / "examples/echo-service").iterdir())
    service = source / "docs/write-a-service.md"
    for part in [*blocks(service, "cpp"), *blocks(service, "json")]:
        require(part in parts, f"{service} has what is not in examples/echo-service: {part}")


def main():
    if sys.argv[1] == "--texts":
        source = pathlib.Path(sys.argv[2])
        check_texts(source, [source / name for name in sys.argv[3:]])
    else:
        source = pathlib.Path(sys.argv[1]).resolve()
        check_commands(source / sys.argv[2], source, " ".join(["sh", *sys.argv[3:]]))


main()
