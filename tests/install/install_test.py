# SPDX-License-Identifier: Apache-2.0
"""An installation in any folder serves programs outside the tree.

It is installed, moved, searched for paths of this tree, included header by header, and used by programs that find it
through CMake and pkg-config. They run against the installed manager, which starts the installed service.

Usage: install_test.py CMAKE COMPILER SOURCE_DIR BUILD_DIR
"""
import concurrent.futures
import contextlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import threading

HERE = pathlib.Path(__file__).resolve().parent
WAIT_S = 60  # for what takes a second or less


class Installation:
    def __init__(self, cmake, build, scratch):
        first = scratch / "first"
        run([cmake, "--install", build, "--prefix", first], stdout=subprocess.DEVNULL)
        self.prefix = first.rename(scratch / "moved")
        packages = next(self.prefix.rglob("veltra.pc")).parent
        self.libraries = packages.parent
        strangers = ("LD_LIBRARY_PATH", "PKG_CONFIG_PATH", "CMAKE_PREFIX_PATH", "CPATH", "LIBRARY_PATH")
        self.env = {name: value for name, value in os.environ.items() if name not in strangers}
        self.env["PKG_CONFIG_PATH"] = str(packages)

    def flags(self, *arguments, package="veltra"):
        return run(["pkg-config", *arguments, package], env=self.env, stdout=subprocess.PIPE).stdout.split()


def run(command, **options):
    return subprocess.run([str(part) for part in command], check=True, text=True, **options)


def require(condition, what):
    if not condition:
        raise AssertionError(what)


def check_files(installation, source, build):
    """Nothing points back to this tree, and no header of an exported class is missing."""
    for path in installation.prefix.rglob("*"):
        if path.is_file():
            content = path.read_bytes()
            require(source.encode() not in content and build.encode() not in content, f"{path} names this tree")
    for header in pathlib.Path(source, "src").rglob("*.h"):
        if "VELTRA_EXPORT" in header.read_text():
            name = header.relative_to(pathlib.Path(source, "src"))
            require((installation.prefix / "include/veltra" / name).exists(), f"{name} is not installed")


def check_headers(installation, compiler):
    """Each header compiles alone as C++17, those for C as C11 too; included by an empty source, since a main file would get
    other warnings."""
    options = ["-fsyntax-only", "-Wall", "-Wextra", "-Werror", *installation.flags("--cflags")]
    headers = list((installation.prefix / "include").rglob("*.h"))
    for_c = [header for header in headers if header.name in ("veltra.h", "veltra_loader.h")]
    require(len(for_c) == 2, "a header for C is missing")
    languages = [("c++", "-std=c++17", header) for header in headers]
    languages += [("c", "-std=c11", header) for header in for_c]

    def check(row):
        language, standard, header = row
        run([compiler, standard, *options, "-x", language, os.devnull, "-include", header], env=installation.env)

    with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
        list(pool.map(check, languages))


def check_loads_alone(installation):
    """A host may open a library at run time, which then finds the libraries below it by itself. It stays loaded when it is
    closed, since its threads may still run."""
    library = installation.libraries / "libveltra_c.so"
    program = f"""import _ctypes, ctypes, os
_ctypes.dlclose(ctypes.CDLL({str(library)!r})._handle)
ctypes.CDLL({str(library)!r}, mode=os.RTLD_NOLOAD | os.RTLD_NOW)"""
    run([sys.executable, "-c", program], env=installation.env)


def check_configuration(installation):
    """The service finds the configuration that is installed beside it, wherever that is."""
    text = run([installation.prefix / "bin/veltra_server", "--explain"], timeout=WAIT_S, stdout=subprocess.PIPE).stdout
    expected = str(installation.prefix / "share/veltra/service.json")
    require(expected in text.split("temperature sensors")[0], f"the configuration is not {expected}: {text}")


def build_project(installation, cmake, compiler, project, where):
    """A CMake project that finds its package; returns the folder of its programs."""
    folder = installation.prefix.parent / f"build_{project.name}"
    run([cmake, "-S", project, "-B", folder, "-G", "Ninja", f"-DCMAKE_CXX_COMPILER={compiler}",
         "-DCMAKE_BUILD_TYPE=Release", where], env=installation.env, stdout=subprocess.DEVNULL)
    run([cmake, "--build", folder], env=installation.env, stdout=subprocess.DEVNULL)
    return folder


def build_with_pkg_config(installation, compiler, package, source):
    program = installation.prefix.parent / f"plain_{package}"
    language = ["-x", "c", "-std=c11"] if source.suffix == ".c" else ["-std=c++17"]
    run([compiler, *language, "-Wall", "-Wextra", "-Werror", source, "-x", "none", "-o", program,
         *installation.flags("--cflags", "--libs", package=package), f"-Wl,-rpath,{installation.libraries}"], env=installation.env)
    return program


def give_service_arguments(installation):
    """Edits the ability file as its owner may: the service knows the example catalogue and plays the example scenario,
    except for its faults, which come at a time of their own."""
    examples = installation.prefix / "share/veltra"
    scenario = json.loads((examples / "scenarios/warm-up.json").read_text())
    del scenario["faults"]
    played = installation.prefix.parent / "scenario.json"
    played.write_text(json.dumps(scenario))
    path = installation.prefix / "share/tavo/abilities/66006.json"
    ability = json.loads(path.read_text())
    ability["arguments"] = ["--scenario", str(played), "--catalogue", str(examples / "catalogue.json")]
    path.write_text(json.dumps(ability))


@contextlib.contextmanager
def manager(installation):
    """The installed manager with its default abilities; yields the environment of its clients."""
    runtime = installation.prefix.parent / "runtime"
    runtime.mkdir(mode=0o700)
    env = dict(installation.env, TAVO_RUNTIME_DIR=str(runtime))
    process = subprocess.Popen([installation.prefix / "bin/tavo_manager"], env=dict(env, TAVO_LOG="info,stderr"),
                               stderr=subprocess.PIPE, text=True)
    lines = []
    is_ready = threading.Event()

    def read():  # until the last process that writes there has ended
        for line in process.stderr:
            lines.append(line)
            if f"manager of {runtime}" in line:
                is_ready.set()

    reader = threading.Thread(target=read)
    reader.start()
    try:
        require(is_ready.wait(WAIT_S), "the manager did not start")
        yield env
    except BaseException:
        sys.stderr.writelines(lines)
        raise
    finally:
        process.terminate()
        try:
            status = process.wait(WAIT_S)
        except subprocess.TimeoutExpired:
            process.kill()
            raise
        reader.join(WAIT_S)
    require(status == 0, f"the manager ended with {status}")
    require(not reader.is_alive(), "the service outlived its manager")


def check_tool(installation, env):
    """It finds the manager, the service and the scenarios beside it; its pages are installed."""
    tool = installation.prefix / "bin/veltra"
    run([tool, "doctor"], env=env, timeout=WAIT_S)
    run([tool, "simulate", "check", "heat-wave"], env=env, timeout=WAIT_S, stdout=subprocess.DEVNULL)
    for page in ("man/man1/veltra.1", "bash-completion/completions/veltra", "zsh/site-functions/_veltra",
                 "fish/vendor_completions.d/veltra.fish"):
        require((installation.prefix / "share" / page).exists(), f"{page} is not installed")


def main():
    cmake, compiler, source, build = sys.argv[1:]
    with tempfile.TemporaryDirectory(prefix="install-", dir=build) as folder:
        installation = Installation(cmake, build, pathlib.Path(folder).resolve())
        prefix = installation.prefix
        check_files(installation, source, build)
        check_headers(installation, compiler)
        check_loads_alone(installation)
        check_configuration(installation)
        # One finds its package by the prefix, the other by its own folder only and has to find the platform beside it.
        platform = build_project(installation, cmake, compiler, HERE / "platform_consumer", f"-DCMAKE_PREFIX_PATH={prefix}")
        game = build_project(installation, cmake, compiler, HERE / "consumer",
                             f"-Dveltra_DIR={installation.libraries / 'cmake/veltra'}")
        echo = build_project(installation, cmake, compiler, pathlib.Path(source, "examples/echo-service"),
                             f"-DCMAKE_PREFIX_PATH={prefix}")
        plain = build_with_pkg_config(installation, compiler, "veltra", HERE / "consumer/main.cpp")
        adaptive = build_with_pkg_config(installation, compiler, "veltra-session",
                                         pathlib.Path(source, "examples/adaptive/main.cpp"))
        plain_c = build_with_pkg_config(installation, compiler, "veltra-c", pathlib.Path(source, "examples/c/main.c"))
        run([sys.executable, HERE.parent / "examples/echo_test.py", prefix / "bin/tavo_manager", echo],
            env=installation.env, timeout=WAIT_S)
        give_service_arguments(installation)
        with manager(installation) as env:
            run([game / "consumer"], env=env, timeout=WAIT_S)
            run([plain], env=env, timeout=WAIT_S)
            run([plain_c], env=env, timeout=WAIT_S)
            run([adaptive, "--seconds", "1"], env=env, timeout=WAIT_S)
            abilities = run([platform / "platform_consumer"], env=env, timeout=WAIT_S, stdout=subprocess.PIPE).stdout
            require(abilities == f"66006 {prefix / 'bin/veltra_server'}\n66007 \n", f"the manager starts {abilities}")
            check_tool(installation, env)


if __name__ == "__main__":
    main()
