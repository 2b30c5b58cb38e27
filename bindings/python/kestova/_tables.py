"""Tables: what sentences say, a column an array."""

import ctypes as c
from typing import Any, Dict

from kestova._arrays import ORDER, Array, numpy, view
from kestova._library import Handle, checked, lib

_INT64, _DOUBLE = 0, 1
_FLAGS = ("valid",)


def columns_of(table: Handle) -> Dict[str, Array]:
    """Returns the columns of a table: "time" as datetime64[ms], numbers as int64 or float64 (NaN: unknown), texts as
    objects (None: unknown)."""
    np = numpy()
    rows = int(lib.kestova_table_rows(table.pointer))
    result: Dict[str, Array] = {}
    for place in range(lib.kestova_table_columns(table.pointer)):
        name, kind, data = c.c_char_p(), c.c_int(), c.c_void_p()
        checked(lib.kestova_table_column(table.pointer, place, c.byref(name), c.byref(kind), c.byref(data)))
        title = (name.value or b"").decode()
        if kind.value == _INT64:
            column = view(table, data.value, (rows,), ORDER + "i8").copy()
            result[title] = column.view("datetime64[ms]") if title == "time" else column
            if title in _FLAGS:
                result[title] = column.astype(bool)
        elif kind.value == _DOUBLE:
            result[title] = view(table, data.value, (rows,), ORDER + "f8").copy()
        else:
            result[title] = _texts(np, data.value, rows)
    return result


def _texts(np: Any, pointer: Any, rows: int) -> Array:
    known: Dict[Any, Any] = {None: None}
    column: Array = np.empty(rows, object)
    texts: Any = (c.c_void_p * rows).from_address(pointer) if rows else ()
    for row in range(rows):
        at = texts[row]
        if at not in known:
            known[at] = c.string_at(at).decode(errors="replace")
        column[row] = known[at]
    return column
