"""Times and places in recordings, as people write them."""

import datetime
from typing import Any

from kestova._arrays import numpy

_EPOCH = datetime.datetime(1970, 1, 1, tzinfo=datetime.timezone.utc)


def ms_of(time: Any) -> int:
    """Returns the milliseconds since the epoch of an int, a float, a datetime (without a zone: local time) or a
    datetime64."""
    if isinstance(time, datetime.datetime):
        return round((time.astimezone(datetime.timezone.utc) - _EPOCH) / datetime.timedelta(milliseconds=1))
    if type(time).__module__ == "numpy" and type(time).__name__ == "datetime64":
        return int(time.astype("datetime64[ms]").astype("int64"))
    if isinstance(time, bool) or not hasattr(time, "__int__"):
        raise TypeError(f"{time!r} is no time: give text, milliseconds, a datetime or a datetime64")
    return int(time)


def datetime64(ms: int) -> Any:
    """Returns a datetime64[ms]."""
    return numpy().datetime64(ms, "ms")


def text_of(ms: int) -> str:
    """Returns "2024-05-17 08:30:00", in UTC."""
    return (_EPOCH + datetime.timedelta(milliseconds=ms)).strftime("%Y-%m-%d %H:%M:%S")
