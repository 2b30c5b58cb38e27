"""Failures, by the results of the C library."""

from typing import Dict, Type


class Error(Exception):
    """A failure. ``code`` is the result of the C library, below 0."""

    code: int = -3


class NotFound(Error, FileNotFoundError):
    """There is no such path, recording, radar or table."""

    code = -2

    def __str__(self) -> str:
        return str(self.args[0])


class Damaged(Error):
    """None of the files is a data file that can be read."""

    code = -4


class NoSpokes(Error):
    """It is not known how spokes are laid out, or there are none."""

    code = -5


class Unsupported(Error):
    """Not of a live group."""

    code = -6


_KINDS: Dict[int, Type[Error]] = {kind.code: kind for kind in (NotFound, Damaged, NoSpokes, Unsupported)}
_MEMORY = -7


def failure(code: int, text: str) -> Exception:
    """Returns the exception for a result."""
    if code == _MEMORY:
        return MemoryError(text)
    error = _KINDS.get(code, Error)(text)
    error.code = code
    return error
