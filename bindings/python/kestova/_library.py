"""The C library (kestova.h): its structures, its functions, and calls that Ctrl-C ends."""

import ctypes as c
import os
import threading
from typing import Any, Callable, List, Optional, TypeVar

from kestova._errors import failure

OK, END, TIMEOUT, CANCELLED = 0, 1, 2, 3
BEGINNING, TO_END = -(2**63), 2**63 - 1
ABI = 1
SLICE_MS = 50  # in which calls that wait return, so that Ctrl-C is heard

T = TypeVar("T")


class RecordStruct(c.Structure):
    _fields_ = [
        ("time_ms", c.c_int64),
        ("package_ms", c.c_int64),
        ("sequence", c.c_uint64),
        ("stream", c.c_void_p),
        ("address", c.c_void_p),
        ("data", c.c_void_p),
        ("length", c.c_size_t),
        ("port", c.c_uint16),
        ("kind", c.c_uint8),
        ("info", c.c_uint8 * 5),
    ]


class SweepView(c.Structure):
    _fields_ = [
        ("spokes", c.c_uint32),
        ("cells", c.c_uint32),
        ("cell_bytes", c.c_uint32),
        ("bits", c.c_uint32),
        ("data", c.c_void_p),
        ("bearing", c.c_void_p),
        ("bearing_to", c.c_void_p),
        ("time_ms", c.c_void_p),
        ("first_cell_m", c.c_void_p),
        ("cell_m", c.c_void_p),
        ("heading_deg", c.c_void_p),
        ("cell_count", c.c_void_p),
        ("sequence", c.c_void_p),
        ("range_m", c.c_double),
        ("missing", c.c_uint32),
        ("reference", c.c_uint8),
        ("complete", c.c_uint8),
    ]


_P, _PP = c.c_void_p, c.POINTER(c.c_void_p)
_SPAN = [c.c_int64, c.c_int64]
_FUNCTIONS = {
    "open": [c.c_char_p, c.c_char_p, _PP],
    "info": [_P, _PP],
    "verify": [c.c_char_p, c.c_int, _PP],
    "place": [_P, c.c_char_p, c.POINTER(c.c_int64)],
    "records_open": [_P, *_SPAN, c.c_char_p, c.c_char_p, _PP],
    "records_read": [_P, c.POINTER(RecordStruct), c.c_size_t, c.POINTER(c.c_size_t), c.c_int],
    "sweeps_open": [_P, c.c_char_p, *_SPAN, c.c_uint32, _PP],
    "sweeps_next": [_P, _PP, c.c_int],
    "sweep_cartesian": [_P, c.c_uint32, c.c_double, c.c_int, c.c_int, _P, c.c_size_t],
    "table_read": [_P, c.c_char_p, *_SPAN, _PP],
    "table_column": [_P, c.c_size_t, c.POINTER(c.c_char_p), c.POINTER(c.c_int), _PP],
    "writer_open": [c.c_char_p, c.c_char_p, c.c_char_p, _PP],
    "writer_add": [_P, c.c_int64, c.c_char_p, c.c_char_p, c.c_uint16, c.c_char_p, c.c_size_t],
    "writer_close": [_P, _PP],
}
_WITHOUT_RESULT = ("close", "cancel", "records_close", "sweeps_close", "sweep_free", "table_free", "free")


def _load() -> Any:
    inside = os.path.join(os.path.dirname(os.path.abspath(__file__)), "lib", "libkestova_c.so.0")
    path = os.environ.get("KESTOVA_LIBRARY") or (inside if os.path.exists(inside) else "libkestova_c.so.0")
    library = c.CDLL(path)
    if library.kestova_abi() != ABI:
        raise ImportError(f"{path} has ABI {library.kestova_abi()}, this package needs {ABI}")
    for name, arguments in _FUNCTIONS.items():
        function = getattr(library, "kestova_" + name)
        function.argtypes, function.restype = arguments, c.c_int
    for name in _WITHOUT_RESULT:
        function = getattr(library, "kestova_" + name)
        function.argtypes, function.restype = [_P], None
    for name in ("version", "error"):
        getattr(library, "kestova_" + name).restype = c.c_char_p
    for name, result in (("records_damaged", c.c_uint64), ("table_rows", c.c_size_t), ("table_columns", c.c_size_t)):
        function = getattr(library, "kestova_" + name)
        function.argtypes, function.restype = [_P], result
    library.kestova_sweep_look.argtypes, library.kestova_sweep_look.restype = [_P, c.POINTER(SweepView)], None
    return library


lib = _load()


def version() -> str:
    text: bytes = lib.kestova_version()
    return text.decode()


def path_bytes(path: Any) -> bytes:
    """Returns a path as the system has it."""
    return os.fsencode(path)


def optional(text: Optional[str]) -> Optional[bytes]:
    return None if text is None else text.encode()


def checked(result: int) -> int:
    """Returns OK, END, TIMEOUT or CANCELLED; raises for a failure of a call on this thread."""
    if result < 0:
        raise failure(result, lib.kestova_error().decode(errors="replace"))
    return result


def text_of(pointer: c.c_void_p) -> str:
    """Returns text that a call handed out, and frees it."""
    try:
        return c.string_at(pointer.value or 0).decode(errors="replace")
    finally:
        lib.kestova_free(pointer)


def interruptible(call: Callable[[], T], cancel: Callable[[], None], wait: bool = True) -> T:
    """Returns what a long call returns. Signal handlers of Python run meanwhile; where one raises (Ctrl-C), the call is
    cancelled and, unless ``wait`` is off, awaited."""
    if threading.current_thread() is not threading.main_thread():
        return call()
    results: List[T] = []
    failures: List[BaseException] = []

    def work() -> None:
        try:
            results.append(call())
        except BaseException as error:
            failures.append(error)

    thread = threading.Thread(target=work, name="kestova", daemon=True)
    thread.start()
    try:
        while thread.is_alive():
            thread.join(SLICE_MS / 1000)
    except BaseException:
        cancel()
        if wait:
            thread.join()
        raise
    if failures:
        raise failures[0]
    return results[0]


class Handle:
    """A pointer that the library handed out, let go by one of its functions. ``owner`` lives as long."""

    __slots__ = ("pointer", "_free", "owner")

    def __init__(self, pointer: c.c_void_p, free: Callable[[Any], None], owner: Any = None) -> None:
        self.pointer: Optional[c.c_void_p] = pointer
        self._free = free
        self.owner = owner

    def close(self) -> None:
        pointer, self.pointer = self.pointer, None
        if pointer is not None:
            self._free(pointer)

    def __del__(self) -> None:
        self.close()
