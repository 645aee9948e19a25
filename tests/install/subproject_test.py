# SPDX-License-Identifier: Apache-2.0
"""The tree as part of another project: it brings its libraries, and leaves the project's folders and flags alone.

Usage: subproject_test.py CMAKE COMPILER SOURCE_DIR BUILD_DIR
"""
import os
import pathlib
import subprocess
import sys
import tempfile

from install_test import HERE, WAIT_S, require, run

PROGRAMS = {"tavo_manager", "veltra_server"}


class Parent:
    def __init__(self, cmake, compiler, source, folder):
        self.cmake = cmake
        self.folder = folder
        self.command = [cmake, "--no-warn-unused-cli", "-S", HERE / "subproject", "-B", folder, "-G", "Ninja",
                        f"-DCMAKE_CXX_COMPILER={compiler}", f"-DVELTRA_SOURCE={source}",
                        # What only tests need is not there.
                        "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON", "-DCMAKE_DISABLE_FIND_PACKAGE_Python3=ON"]

    def configure(self, *options):
        run([*self.command, *options], stdout=subprocess.DEVNULL)

    def targets(self):
        listing = run([self.cmake, "--build", self.folder, "--target", "help"], stdout=subprocess.PIPE).stdout
        return {line.split(":")[0] for line in listing.splitlines()}


def check_default(parent):
    """Two libraries are built, and lie in the tree's own binary folder."""
    ours = {name for name in parent.targets() if name.startswith(("veltra", "tavo")) and "/" not in name}
    require(not ours & PROGRAMS and not any("test" in name or "bench" in name for name in ours), f"builds {ours}")
    require("-Werror" not in (parent.folder / "build.ninja").read_text(), "the tree makes errors of warnings")
    run([parent.cmake, "--build", parent.folder], stdout=subprocess.DEVNULL)
    runtime = parent.folder / "veltra/runtime"
    runtime.mkdir(mode=0o700)
    run([parent.folder / "bin/game"], env=dict(os.environ, TAVO_RUNTIME_DIR=str(runtime)), timeout=WAIT_S)
    built = {path.name for path in parent.folder.iterdir() if not path.name.startswith(".ninja")}
    of_cmake = {"CMakeCache.txt", "CMakeFiles", "build.ninja", "cmake_install.cmake"}
    require(built - of_cmake == {"bin", "veltra"}, f"the parent's folder has {built}")
    require([path.name for path in (parent.folder / "bin").iterdir()] == ["game"], "programs among the parent's")
    run([parent.cmake, "--install", parent.folder, "--prefix", parent.folder / "installed"], stdout=subprocess.DEVNULL)
    require(not (parent.folder / "installed").exists(), "the parent installs parts of the tree")


def main():
    cmake, compiler, source, build = sys.argv[1:]
    with tempfile.TemporaryDirectory(prefix="subproject-", dir=build) as folder:
        parent = Parent(cmake, compiler, source, pathlib.Path(folder).resolve())
        parent.configure()
        check_default(parent)
        parent.configure("-DVELTRA_SERVICE=ON")
        require(PROGRAMS <= parent.targets(), "manager and service are not built on request")
        failed = subprocess.run([str(part) for part in (*parent.command, "-DUSE_MISSING_ROOM=ON")], text=True,
                                capture_output=True)
        require(failed.returncode != 0 and "missing_test: there is no target veltra_no_such_room" in failed.stderr,
                f"a test without one of its rooms is configured: {failed.stderr}")


if __name__ == "__main__":
    main()
