# SPDX-License-Identifier: Apache-2.0
"""Opens libveltra_c.so.1 by its C header, which is beside this file in an installation and in interfaces/ in the
source tree. No compiled module."""
import contextlib
import os
import pathlib
import re

import cffi

_HERE = pathlib.Path(__file__).resolve().parent
_HEADERS = (_HERE / "veltra.h", _HERE.parent.parent / "interfaces/veltra.h")


def _declarations(header: str) -> str:
    """What the header declares, without the lines that only a compiler understands."""
    body = header[header.index("struct veltra_result_description"):]
    body = body[:body.index("#ifdef __cplusplus")]
    return body.replace("VELTRA_API ", "")


_header = next(path for path in _HEADERS if path.exists()).read_text(encoding="utf-8")
ffi = cffi.FFI()
ffi.cdef(_declarations(_header))
OWN_RESULTS = {name: int(value) for name, value in re.findall(r"^#define (VELTRA_\w+) \((-\d+)\)", _header, re.M)}
# VELTRA_LIBRARY names the file, where the system does not find it by itself. Raises OSError without the library.
lib = ffi.dlopen(os.environ.get("VELTRA_LIBRARY", "libveltra_c.so.1"))


class VeltraError(Exception):
    """A result other than 0: `code`, and its name, meaning and remedy where it is known."""

    def __init__(self, operation: str, code: int):
        description = sized("struct veltra_result_description")
        is_known = lib.veltra_describe_result(code, description) == 0
        self.code = code
        self.name = text(description.name) if is_known else str(code)
        self.remedy = text(description.remedy) if is_known else ""
        meaning = text(description.meaning) if is_known else "a code of the service"
        super().__init__(f"{operation}: {self.name} ({code}): {meaning}" + (f"; {self.remedy}" if self.remedy else ""))


def sized(kind: str):
    """An empty structure with its size."""
    made = ffi.new(kind + "*")
    made.size = ffi.sizeof(kind)
    return made


def text(pointer) -> str:
    return "" if pointer == ffi.NULL else ffi.string(pointer).decode("utf-8", "replace")


def chars(value: str):
    return ffi.new("char[]", value.encode("utf-8"))


def char_array(values):
    """An array of texts, and what it points to, which has to be kept as long as the array."""
    kept = [chars(value) for value in values]
    return ffi.new("const char*[]", kept), kept


def check(operation: str, result: int) -> None:
    if result != 0:
        raise VeltraError(operation, result)


@contextlib.contextmanager
def callback(signature: str, function):
    """A C function that calls `function` within the block. What that raises, Ctrl-C above all, is raised at the end of
    the block: C cannot pass it on."""
    raised = []
    try:
        yield ffi.callback(signature, function, onerror=lambda _kind, error, _trace: raised.append(error))
    finally:
        if raised:
            raise raised[0]
