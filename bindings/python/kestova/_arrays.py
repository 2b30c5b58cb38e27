"""NumPy, where it is installed, and arrays on memory of the C library."""

import sys
from typing import TYPE_CHECKING, Any, Tuple

if TYPE_CHECKING:
    import numpy as np

    Array = np.ndarray[Any, Any]
else:
    Array = Any

ORDER = "<" if sys.byteorder == "little" else ">"  # of numbers in memory

def numpy() -> Any:
    """Returns the module; raises ImportError that says what to install."""
    try:
        import numpy
    except ImportError:
        raise ImportError("arrays need NumPy: apt install python3-numpy, or pip install numpy") from None
    return numpy


class _Memory:
    def __init__(self, owner: Any, pointer: int, shape: Tuple[int, ...], typestr: str) -> None:
        self._owner = owner
        self.__array_interface__ = {"version": 3, "data": (pointer, True), "shape": shape, "typestr": typestr}


def view(owner: Any, pointer: Any, shape: Tuple[int, ...], typestr: str) -> Array:
    """Returns a read-only array on memory that lives as long as ``owner``, which the array keeps."""
    np = numpy()
    if 0 in shape or not pointer:
        empty: Array = np.empty(shape, np.dtype(typestr))
        empty.flags.writeable = False
        return empty
    array: Array = np.asarray(_Memory(owner, pointer, shape, typestr))
    return array
