"""Recording: a file, a folder, a storage root or a live group that is open."""

import ctypes as c
import json
import os
from typing import Any, Dict, List, Optional, Sequence, Union

from kestova import _library as library
from kestova._arrays import Array, numpy
from kestova._errors import Error
from kestova._library import Handle, checked, interruptible, lib, optional, path_bytes
from kestova._records import Records, listed
from kestova._sweeps import Sweeps
from kestova._tables import columns_of
from kestova._times import datetime64, ms_of, text_of

_SPOKE_STREAMS = ("imageStream", "originalImage")


def _nothing(_: Any = None) -> None:
    pass


_CLOSED = Handle(c.c_void_p(), _nothing)
_CLOSED.close()


def _open(source: bytes, options: bytes) -> Handle:
    pointer = c.c_void_p()
    checked(lib.kestova_open(source, options, c.byref(pointer)))
    return Handle(pointer, lib.kestova_close)


def open(
    source: Union[str, "os.PathLike[str]"],
    *,
    layout: Union[None, str, "os.PathLike[str]", Dict[str, Any]] = None,
    radars: Union[None, str, "os.PathLike[str]"] = None,
    local_ip: Optional[str] = None,
) -> "Recording":
    """Opens a data file, the folder of a recording, a storage root, or the live group "udp://ADDR:PORT".

    ``layout`` says how spokes are laid out: the path of a file as ``kestova picture --layout`` takes it, or its content;
    without it the sheets of the recording say so. ``radars`` is the path of a directory of radars. ``local_ip`` is the
    interface of a live group, by address or name."""
    return Recording(source, layout=layout, radars=radars, local_ip=local_ip)


def _cancel_verify() -> None:
    lib.kestova_cancel(None)


def verify(path: Union[str, "os.PathLike[str]"], quick: bool = False) -> Dict[str, Any]:
    """Reads a recording to the last byte and returns what ``kestova verify --json`` prints. ``quick`` leaves out the
    segments."""

    def call() -> Optional[str]:
        text = c.c_void_p()
        result = checked(lib.kestova_verify(path_bytes(path), int(quick), c.byref(text)))
        return library.text_of(text) if result == library.OK else None

    text = interruptible(call, _cancel_verify)
    if text is None:
        raise Error("verify was cancelled")
    result: Dict[str, Any] = json.loads(text)
    return result


class Recording:
    """A recording that is open. ``with kestova.open(...) as rec`` closes it at the end of the block; what came from it
    stays valid. ``rec["00:05:00":"00:06:00"]`` is a part of it, ``len(rec)`` its number of records.

    Of files that are being recorded it shows what they hold when they are read. ``info`` is read once."""

    def __init__(
        self,
        source: Any,
        *,
        layout: Any = None,
        radars: Any = None,
        local_ip: Optional[str] = None,
    ) -> None:
        self.path: str = os.fspath(source)
        """As it was given."""
        options: Dict[str, Any] = {}
        if layout is not None:
            options["layout"] = layout if isinstance(layout, (dict, list)) else os.fspath(layout)
        if radars is not None:
            options["radars"] = os.fspath(radars)
        if local_ip is not None:
            options["local_ip"] = local_ip
        self._options = json.dumps(options).encode()
        self._info: Optional[Dict[str, Any]] = None
        self._start, self._end = library.BEGINNING, library.TO_END
        self._whole: Recording = self
        self._handle = interruptible(self._reopened, _nothing, wait=False)

    def _reopened(self) -> Handle:
        return _open(path_bytes(self.path), self._options)

    def _pointer(self) -> Any:
        if self._whole._handle.pointer is None:
            raise Error(f"{self.path} is closed")
        return self._whole._handle.pointer

    def _opened(self) -> Handle:
        self._pointer()
        return self._whole._handle

    def _cancel(self) -> None:
        """Ends a call that is under way. What is cancelled stays so: another handle takes its place."""
        lib.kestova_cancel(self._whole._handle.pointer)
        self._whole._handle = self._reopened()

    def close(self) -> None:
        """Closes it. Arrays, sweeps and iterations that came from it stay valid."""
        if self._whole is self and self._handle.pointer is not None:
            self._handle = _CLOSED

    def __enter__(self) -> "Recording":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    # ---- What is in it ----

    @property
    def info(self) -> Dict[str, Any]:
        """What ``kestova info --json`` prints, of the whole recording."""
        if self._whole._info is None:
            handle = self._opened()

            def call() -> Optional[str]:
                text = c.c_void_p()
                result = checked(lib.kestova_info(handle.pointer, c.byref(text)))
                return library.text_of(text) if result == library.OK else None

            text = interruptible(call, self._cancel)
            if text is None:
                raise Error("info was cancelled")
            self._whole._info = json.loads(text)
        info: Dict[str, Any] = self._whole._info
        return info

    def _span(self) -> Any:
        total = self.info["total"]
        first, last = int(total["first_ms"]), int(total["last_ms"])
        return max(first, self._start), min(last, self._end)

    @property
    def start(self) -> Any:
        """The time of the first record, datetime64[ms]; of a part where that begins."""
        return datetime64(self._span()[0])

    @property
    def end(self) -> Any:
        """The time of the last record, datetime64[ms]; of a part where that ends."""
        return datetime64(self._span()[1])

    @property
    def streams(self) -> Dict[str, Dict[str, Any]]:
        """The streams of the whole recording by their names: counts, rates and gaps. Where several groups have the
        same one, "NAME ADDR:PORT" is the key of the second and any further one."""
        streams: Dict[str, Dict[str, Any]] = {}
        for row in self.info["total"]["streams"]:
            name = row["stream"] if row["stream"] not in streams else f"{row['stream']} {row['address']}"
            streams[name] = row
        return streams

    @property
    def gaps(self) -> List[Dict[str, Any]]:
        """Silences of everything, with ``from_ms``, ``to_ms``, ``length_ms``."""
        gaps: List[Dict[str, Any]] = self.info["total"]["gaps"]
        return gaps

    @property
    def losses(self) -> List[Dict[str, Any]]:
        """What was not recorded, by the ``layer`` that lost it: "kernel", "queue" and "disk" with ``count``; "join" with
        ``address``, ``from_ms``, ``to_ms``; "wire" with ``count``. Empty where nothing is known to be lost."""
        total = self.info["total"]
        losses = total["losses"]
        counts = [
            ("wire", total.get("missing_on_wire", 0)),
            ("kernel", losses["kernel_dropped"]),
            ("queue", losses["queue_lost"]),
            ("disk", losses["disk_lost"]),
        ]
        rows: List[Dict[str, Any]] = [{"layer": layer, "count": count} for layer, count in counts if count]
        rows.extend({"layer": "join", **join} for join in losses["joins_lost"])
        return rows

    @property
    def sheet(self) -> Optional[Dict[str, Any]]:
        """What the sheet of the first file that has one says: recorder, radar, interface, clock, losses, notes."""
        keys = ("recorder", "radar", "interface", "clock", "losses", "notes", "kept", "cut", "carried")
        for row in self.info["files"]:
            if row["sheet"]:
                return {key: row[key] for key in keys if key in row}
        return None

    @property
    def radars(self) -> List[str]:
        """The radars that sheets name, "SERIAL/ID"; where none does, the groups of the spokes."""
        named = []
        for row in self.info["files"]:
            if "radar" in row:
                named.append(f"{row['radar']['serial']}/{row['radar']['id']}")
        groups = [row["address"] for row in self.info["total"]["streams"] if row["stream"] in _SPOKE_STREAMS]
        return list(dict.fromkeys(named or groups))

    # ---- What is read ----

    def _ms(self, time: Any, otherwise: int) -> int:
        if time is None:
            return otherwise
        if isinstance(time, str):
            ms = c.c_int64()
            checked(lib.kestova_place(self._pointer(), time.encode(), c.byref(ms)))
            return int(ms.value)
        return ms_of(time)

    def _within(self, start: Any, end: Any) -> Any:
        return max(self._ms(start, self._start), self._start), min(self._ms(end, self._end), self._end)

    def records(
        self,
        start: Any = None,
        end: Any = None,
        streams: Union[None, str, Sequence[str]] = None,
        groups: Union[None, str, Sequence[str]] = None,
    ) -> Records:
        """Returns the records from ``start`` (included) to ``end`` (excluded), in order of time.

        Times are text ("00:05:00" and "+90s" from the start, "-10m" from the end, "50%", "2024-05-17 08:30:00"), ms
        since the epoch, datetime or datetime64. ``streams`` are names, ``groups`` are "ADDR:PORT"."""
        start_ms, end_ms = self._within(start, end)
        return Records(self._opened(), start_ms, end_ms, listed(streams), listed(groups))

    def sweeps(
        self,
        start: Any = None,
        end: Any = None,
        step: int = 1,
        radar: Optional[str] = None,
        partial: bool = False,
    ) -> Sweeps:
        """Returns every ``step``-th turn of the antenna from ``start`` (included) to ``end`` (excluded).

        ``radar`` is one of ``radars``; where it is not given the first stream that has spokes counts. Of the first and
        the last turn a part may lie in the span: they are left out unless ``partial``."""
        start_ms, end_ms = self._within(start, end)

        def name() -> str:
            if radar is not None:
                return radar
            return self.radars[0] if self._whole._handle.pointer is not None and len(self.radars) == 1 else ""

        return Sweeps(self._opened(), start_ms, end_ms, step, radar, partial, name=name)

    def table(self, name: str, start: Any = None, end: Any = None) -> Dict[str, Array]:
        """Returns the columns of a table, (rows,) each, a row a sentence: "own", "ais", "arpa", "depth" or "sentences".

        ``time`` is datetime64[ms]; the others are named as in ``kestova dump --decode``. Unknown is NaN or None."""
        numpy()
        start_ms, end_ms = self._within(start, end)
        handle = self._opened()

        def call() -> Optional[Handle]:
            pointer = c.c_void_p()
            result = checked(
                lib.kestova_table_read(handle.pointer, optional(name), start_ms, end_ms, c.byref(pointer))
            )
            return Handle(pointer, lib.kestova_table_free) if result == library.OK else None

        table = interruptible(call, self._cancel)
        if table is None:
            raise Error("reading the table was cancelled")
        return columns_of(table)

    def __getitem__(self, span: slice) -> "Recording":
        if not isinstance(span, slice) or span.step is not None:
            raise TypeError('a part of a recording is rec[start:end], such as rec["00:05:00":"00:06:00"]')
        part = Recording.__new__(Recording)
        part.__dict__.update(self.__dict__)
        part._whole = self._whole
        part._start, part._end = self._within(span.start, span.stop)
        return part

    def __len__(self) -> int:
        if self._start == library.BEGINNING and self._end == library.TO_END:
            return int(self.info["total"]["records"])
        return self.records().count()

    def __bool__(self) -> bool:
        return True

    def __repr__(self) -> str:
        if self._whole._handle.pointer is None:
            return f"<kestova.Recording {self.path}: closed>"
        if self.path.startswith("udp://"):
            return f"<kestova.Recording {self.path}: live>"
        total = self.info["total"]
        first, last = self._span()
        return (
            f"<kestova.Recording {self.path}: {text_of(first)} to {text_of(last)} UTC, {total['records']} records, "
            f"{total['bytes'] / 1e6:.1f} MB, {', '.join(self.streams) or 'nothing in it'}>"
        )

    def __reduce__(self) -> Any:
        raise TypeError(f"a recording cannot be pickled: open it again where it is needed, kestova.open({self.path!r})")
