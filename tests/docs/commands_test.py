# SPDX-License-Identifier: Apache-2.0
"""The documents are true: their commands work as printed, their programs are those that are built, and no link is
broken.

Commands are the fenced blocks marked `sh`. The blocks of one page are run in one shell, in the source folder. The only
change is the installation prefix, which is replaced by a scratch folder. scripts/test is left out, since it runs this.
Blocks marked `text` are printed, with other numbers perhaps. The lines that the demo suggests at its end work too.

Usage: commands_test.py SOURCE_DIR PAGE, or commands_test.py --texts SOURCE_DIR PAGE..., the pages whose commands are run
"""
import pathlib
import re
import subprocess
import sys
import tempfile

PREFIX = "/opt/veltra"
SOURCE = "/home/me/veltra"  # the source folder in what is printed
LEFT_OUT = "scripts/test\n"
NEXT = "Try next, in this folder:\n"  # in the demo's output, before lines indented by two
# Runs after a command that stays in the background: as long as a person takes to type the next one.
AWAIT_MANAGER = """
for ((i = 0; i < 1000; i++)); do [[ -S "$TAVO_RUNTIME_DIR/manager" ]] && break; sleep 0.01; done
"""
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


def shell_lines(page, prefix):
    for block in blocks(page, "sh"):
        if block == LEFT_OUT:
            continue
        for line in block.replace(PREFIX, str(prefix)).splitlines():
            if line in FIRST_PROGRAMS:
                yield f"{line} || true\necho '{MARK}'"
            else:
                yield line + (AWAIT_MANAGER if line.endswith("&") else "")


def run_shell(lines, source):
    script = "\n".join(["trap 'kill $(jobs -p) 2>/dev/null || true; wait' EXIT", *lines])
    done = subprocess.run(["bash", "-euo", "pipefail", "-c", script], cwd=source, text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    print(done.stdout)
    require(done.returncode == 0, f"a command failed with {done.returncode}: {lines}")
    return done.stdout


def printed(expected, source):
    """A pattern for the text of a page: its numbers match any number."""
    text = re.escape(expected.replace(SOURCE, str(source)))
    return re.sub(r"\d+(?:\\\.\d+)*", r"\\d+(?:\\.\\d+)*", text)


def check_commands(page, source):
    with tempfile.TemporaryDirectory(prefix="docs-", dir=source / "build") as scratch:
        commands = list(shell_lines(page, pathlib.Path(scratch, "installed")))
        require(commands, f"{page} has no commands")
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
        run_shell([line.strip() + (AWAIT_MANAGER if line.endswith("&") else "") for line in suggested[:count]], source)


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
    """Presets and scripts that a page names exist."""
    presets = set(re.findall(r'"name": "([\w-]+)"', (source / "CMakePresets.json").read_text()))
    for preset in re.findall(r"--preset ([\w-]+)", page.read_text()):
        require(preset in presets, f"{page} names the preset {preset}, which does not exist")
    for script in re.findall(r"(?<![\w/])scripts/[\w-]+", page.read_text()):
        require((source / script).is_file(), f"{page} names {script}, which does not exist")


def check_texts(source, run):
    pages = [*sorted(source.glob("*.md")), *sorted((source / "docs").glob("*.md"))]
    for page in pages:
        require(not blocks(page, "sh") or page in run, f"{page} has commands that no test runs")
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
    are_texts = sys.argv[1] == "--texts"
    source, *names = sys.argv[2:] if are_texts else sys.argv[1:]
    source = pathlib.Path(source)
    pages = [source / name for name in names]
    if are_texts:
        check_texts(source, pages)
    else:
        check_commands(pages[0], source)


main()
