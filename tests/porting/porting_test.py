# SPDX-License-Identifier: Apache-2.0
"""docs/porting.md names exactly what the client library needs of its host platform.

interfaces/ and src/ are compiled against tests/porting/declarations, which hold these names alone, so a further name that
the library needs is an error of the compiler. There each name is marked as deprecated, with the text that the page
has, so that the compiler reports each use. It does not report all overrides and base classes; these are searched for.

Usage: porting_test.py COMPILER SOURCE_DIR [FLAG...], FLAG: what the sources need besides, such as -I for JsonCpp
"""
import concurrent.futures
import pathlib
import re
import subprocess
import sys

COMPILER, SOURCE, *FLAGS = sys.argv[1:]
SOURCE = pathlib.Path(SOURCE)
DECLARATIONS = SOURCE / "tests/porting/declarations"
PAGE = SOURCE / "docs/porting.md"
MARK = re.compile(r'PLATFORM_NAME\(\s*"([^"]+)"\)')
MACRO = re.compile(r"^#define (TAVO_\w+)", re.M)
INCLUDE = re.compile(r'^#include [<"](tavo/\w+\.h)[>"]', re.M)
USE = re.compile(r"^([^:]+):\d+:\d+: warning: .* is deprecated: (.+) \[-Wdeprecated-declarations\]$", re.M)
# What a declaration may have without a mark: a namespace, an access, a forward declaration, a default constructor or a
# destructor.
UNMARKED = re.compile(r"(namespace \w+|(public|protected):|class \w+|(virtual )?(\w+|~\w+)\(\)|\s)*(template <[^{;]*>\s*)?")


def compile_alone(source, text=None):
    """The names that the compiler reports in the library's own files."""
    include = [f"-I{folder}" for folder in (DECLARATIONS, SOURCE / "interfaces", SOURCE / "src")]
    done = subprocess.run([COMPILER, "-std=c++20", "-fsyntax-only", "-DPLATFORM_NAME(name)=[[deprecated(name)]]", *include,
                           *FLAGS, "-x", "c++", source], input=text, text=True, capture_output=True, timeout=300,
                          env={"PATH": "/usr/bin:/bin", "LC_ALL": "C"})
    if done.returncode != 0:
        errors = [line for line in done.stderr.splitlines() if " error: " in line]
        sys.exit(f"{source} needs more than tests/porting/declarations have. Do without it, or declare it there and "
                 f"describe it in docs/porting.md:\n" + "\n".join(errors[:5]))
    return {name for path, name in USE.findall(done.stderr) if not path.startswith(str(DECLARATIONS))}


def uses():
    public = sorted((SOURCE / "interfaces").glob("*.h"))
    headers = "".join(f'#include "{path.name}"\n' for path in public if path.name != "veltra_loader.h")
    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        runs = [pool.submit(compile_alone, path) for path in sorted((SOURCE / "src").rglob("*.cpp"))]
        runs.append(pool.submit(compile_alone, "-", headers))
        reported = set().union(*(run.result() for run in runs))
    files = [*public, *(SOURCE / "src").rglob("*.h"), *(SOURCE / "src").rglob("*.cpp")]
    return reported, "\n".join(path.read_text() for path in files)


def is_needed(name, reported, text):
    if name in reported:
        return True
    if name.startswith("tavo/"):
        return name in INCLUDE.findall(text)
    if name.startswith("TAVO_"):
        return re.search(rf"\b{name}\b", text) is not None
    last = re.escape(name.split("::")[-1])
    return re.search(rf"(public |\.)(TAVO::)?{re.escape(name)}\b|\b{last}\([^;{{]*\boverride\b", text) is not None


def declared():
    names = set()
    for header in DECLARATIONS.rglob("*.h"):
        text = header.read_text()
        names |= {str(header.relative_to(DECLARATIONS)), *MARK.findall(text), *MACRO.findall(text)}
        code = re.sub(r"//[^\n]*|^#[^\n]*", "", text, flags=re.M)
        for declaration in re.split(r"[;{}]", code):
            if not MARK.search(declaration) and not UNMARKED.fullmatch(declaration.strip()):
                sys.exit(f"{header} declares without a mark: {declaration.strip()}")
    return names


def main():
    names = declared()
    # The names of the page are the first cells of its tables; one cell may have several.
    cells = re.findall(r"^\| (`[^|]*`) \|", PAGE.read_text(), re.M)
    described = {name for cell in cells for name in re.findall(r"`([^`]+)`", cell)}
    faults = [f"docs/porting.md does not describe {name}" for name in sorted(names - described)]
    faults += [f"docs/porting.md describes {name}, which is not declared" for name in sorted(described - names)]
    reported, text = uses()
    faults += [f"{name} is declared, and the library does not use it" for name in sorted(names)
               if not is_needed(name, reported, text)]
    sys.exit("\n".join(faults) or None)


main()
