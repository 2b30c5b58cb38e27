"""Records: the messages of a recording, one by one."""

import ctypes as c
import struct
from typing import Any, Dict, Iterator, List, NamedTuple, Optional, Sequence, Union

from kestova import _library as library
from kestova._library import Handle, RecordStruct, checked, lib, optional
from kestova._times import datetime64

_BATCH = 1024
_LAYOUT = struct.Struct("=qqQQQQQHB5x")  # as RecordStruct lies in memory on a machine of 64 bits
assert _LAYOUT.size == c.sizeof(RecordStruct) and c.sizeof(c.c_void_p) == 8


class Record(NamedTuple):
    """A message, as it was recorded."""

    time_ms: int
    """When it was recorded, in ms since the Unix epoch."""
    stream: str
    """"imageStream", or "raw" for what is no package."""
    address: str
    """Its group, "239.17.0.1:6001"; empty for raw."""
    payload: bytes
    """The message."""
    sequence: int
    """The number of its package."""
    kind: int
    """The number of the stream's kind."""

    @property
    def time(self) -> Any:
        """When it was recorded, as datetime64[ms]."""
        return datetime64(self.time_ms)


class Records:
    """The records of a span, in order of time; of a live group as they come. Iterate once."""

    def __init__(self, recording: Any, start: int, end: int, streams: Optional[str], groups: Optional[str]) -> None:
        pointer = c.c_void_p()
        checked(
            lib.kestova_records_open(
                recording.pointer, start, end, optional(streams), optional(groups), c.byref(pointer)
            )
        )
        self._handle = Handle(pointer, lib.kestova_records_close, recording)
        self._iterator = self._generate()

    def __iter__(self) -> Iterator[Record]:
        return self._iterator

    def __next__(self) -> Record:
        return next(self._iterator)

    @property
    def damaged(self) -> int:
        """Records so far that were damaged and are left out; of a live group those that came too fast."""
        return int(lib.kestova_records_damaged(self._handle.pointer))

    def count(self) -> int:
        """Passes over the records that are left, and returns how many there are."""
        batch = (RecordStruct * _BATCH)()
        total = 0
        while True:
            read = self._read(batch)
            if read is None:
                return total
            total += read

    def __reduce__(self) -> Any:
        raise TypeError("records cannot be pickled: take what is needed out of them")

    def _read(self, batch: Any) -> Optional[int]:
        """Returns how many records came within a slice of time; None at the end."""
        count = c.c_size_t()
        result = checked(
            lib.kestova_records_read(self._handle.pointer, batch, _BATCH, c.byref(count), library.SLICE_MS)
        )
        return None if result in (library.END, library.CANCELLED) else count.value

    def _generate(self) -> Iterator[Record]:
        batch = (RecordStruct * _BATCH)()
        memory = memoryview(batch).cast("B")
        streams: Dict[int, str] = {}
        groups: Dict[Any, str] = {}
        while True:
            count = self._read(batch)
            if count is None:
                return
            if count == 0:
                continue
            # The messages of a batch lie one behind the other, with gaps between them.
            first, last = batch[0].data, batch[count - 1]
            payloads = c.string_at(first, max(0, last.data + last.length - first))
            rows = _LAYOUT.iter_unpack(memory[: count * _LAYOUT.size])
            for time, _, sequence, stream, address, data, length, port, kind in rows:
                group = groups.get((address, port))
                if group is None:
                    text = c.string_at(address).decode()
                    group = groups[address, port] = f"{text}:{port}" if text else ""
                name = streams.get(stream)
                if name is None:
                    name = streams[stream] = c.string_at(stream).decode()
                at = data - first
                yield Record(time, name, group, payloads[at : at + length], sequence, kind)


def listed(names: Union[None, str, Sequence[str]]) -> Optional[str]:
    """Returns "a,b" of ["a", "b"]."""
    if names is None or isinstance(names, str):
        return names
    texts: List[str] = list(names)
    return ",".join(texts)
