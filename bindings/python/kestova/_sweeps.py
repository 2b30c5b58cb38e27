"""Sweeps: turns of the antenna as arrays."""

import ctypes as c
import warnings
from functools import cached_property
from typing import Any, Callable, Iterator, List, NamedTuple, Optional, Union, overload

from kestova import _library as library
from kestova._arrays import ORDER as _ORDER
from kestova._arrays import Array, numpy, view
from kestova._library import Handle, SweepView, checked, lib, optional

_REFERENCES = ("unknown", "bow", "north")
_HOW = {"max": 0, "mean": 1}


class Sweep:
    """One turn of the antenna, from bearing 0 to bearing 0: a row for each spoke that came.

    Every array is read-only and stays valid when the iteration has moved on and the recording is closed."""

    def __init__(self, handle: Handle, radar: Callable[[], str]) -> None:
        self._handle = handle
        self._view = SweepView()
        lib.kestova_sweep_look(handle.pointer, c.byref(self._view))
        self._radar = radar

    @property
    def radar(self) -> str:
        """The radar that was asked for or, if the recording has one alone, that one, as ``Recording.radars`` has it;
        else empty."""
        return self._radar()

    @cached_property
    def data(self) -> Array:
        """Echoes: (spokes, cells), uint8, uint16 or uint32, values as they came. Rows that are shorter than the longest
        one end in zeros, see ``cell_count``."""
        look = self._view
        return view(self._handle, look.data, (look.spokes, look.cells), f"{_ORDER}u{look.cell_bytes}")

    def _rows(self, name: str, typestr: str) -> Array:
        return view(self._handle, getattr(self._view, name), (self._view.spokes,), typestr)

    @cached_property
    def bearing(self) -> Array:
        """(spokes,) float64: where each spoke begins, in turns, 0 to 1, clockwise from ``reference``."""
        return self._rows("bearing", _ORDER + "f8")

    @cached_property
    def bearing_to(self) -> Array:
        """(spokes,) float64: where each spoke ends, in turns."""
        return self._rows("bearing_to", _ORDER + "f8")

    @cached_property
    def time(self) -> Array:
        """(spokes,) datetime64[ms]: when each spoke was recorded, UTC."""
        return self._rows("time_ms", _ORDER + "i8").view("datetime64[ms]")

    @cached_property
    def first_cell_m(self) -> Array:
        """(spokes,) float32: near edge of the first cell, in metres from the antenna."""
        return self._rows("first_cell_m", _ORDER + "f4")

    @cached_property
    def cell_m(self) -> Array:
        """(spokes,) float32: length of a cell, in metres; 0 where the radar does not say."""
        return self._rows("cell_m", _ORDER + "f4")

    @cached_property
    def heading_deg(self) -> Array:
        """(spokes,) float32: own ship's true heading, in degrees, not older than 10 s; NaN where it is not known."""
        return self._rows("heading_deg", _ORDER + "f4")

    @cached_property
    def cell_count(self) -> Array:
        """(spokes,) uint32: how many cells each spoke has."""
        return self._rows("cell_count", _ORDER + "u4")

    @cached_property
    def sequence(self) -> Array:
        """(spokes,) uint32: the number that the radar gave each spoke; 0 where it gives none."""
        return self._rows("sequence", _ORDER + "u4")

    @property
    def range_m(self) -> float:
        """Far edge of the farthest cell, in metres; 0 if no spoke says how long its cells are."""
        return float(self._view.range_m)

    @property
    def bits(self) -> int:
        """Of a value in ``data``: full scale is 2**bits - 1."""
        return int(self._view.bits)

    @property
    def reference(self) -> str:
        """What bearing 0 is: "bow", "north" or "unknown"."""
        return _REFERENCES[self._view.reference]

    @property
    def complete(self) -> bool:
        """False for the first or last turn of a span, of which a part is there."""
        return bool(self._view.complete)

    @property
    def missing(self) -> int:
        """Messages of spokes that were numbered and never came."""
        return int(self._view.missing)

    def cartesian(
        self, size: int = 900, how: str = "max", north_up: bool = False, range_m: Optional[float] = None
    ) -> Array:
        """Returns the picture: (size, size) uint8, row 0 on top, own ship in the middle, 255 is full scale.

        A pixel is the brightest ("max") or the mean ("mean") of the cells that touch it. ``range_m`` is from own ship
        to the edge, the sweep's where it is not given. ``north_up`` turns bearings from the bow by own ship's heading;
        where no heading is known they stay, with a warning."""
        np = numpy()
        if how not in _HOW:
            raise ValueError(f"how is {how!r}, not 'max' or 'mean'")
        if north_up and self.reference == "bow" and bool(np.isnan(self.heading_deg).all()):
            warnings.warn("no heading is known: the picture may not be north up", stacklevel=2)
        image: Array = np.empty((size, size), np.uint8)
        distance = 0.0 if range_m is None else float(range_m)
        checked(
            lib.kestova_sweep_cartesian(
                self._handle.pointer, size, distance, _HOW[how], int(north_up), image.ctypes.data, size
            )
        )
        return image

    def plot_ppi(self, ax: Any = None) -> Any:
        """Draws the sweep into axes of matplotlib (the present ones where none are given), in metres, and returns
        them."""
        try:
            from matplotlib import pyplot
        except ImportError:
            raise ImportError(
                "plot_ppi needs matplotlib: apt install python3-matplotlib, or pip install matplotlib"
            ) from None
        axes = pyplot.gca() if ax is None else ax
        reach = self.range_m or 1.0
        axes.imshow(self.cartesian(), extent=(-reach, reach, -reach, reach), cmap="viridis", vmin=0, vmax=255)
        axes.set_title(str(self.time[0]) if len(self.time) else "")
        axes.set_xlabel("m")
        return axes

    def __repr__(self) -> str:
        look = self._view
        part = "" if look.complete else ", incomplete"
        return f"<kestova.Sweep: {look.spokes} spokes of {look.cells} cells, {look.range_m:.0f} m{part}>"

    def __reduce__(self) -> Any:
        raise TypeError("a sweep cannot be pickled: pickle its arrays, sweep.data.copy()")


class _Turn(NamedTuple):
    """An entry of the index of turns."""

    first_ms: int
    spokes: int
    bearing: float
    complete: bool


class Sweeps:
    """The sweeps of a span. Iterating reads on while it goes; ``len`` and indexes look through the recording first,
    once, to find where turns begin."""

    def __init__(
        self,
        recording: Handle,
        start: int,
        end: int,
        step: int,
        radar: Optional[str],
        partial: bool,
        index: Optional[List[_Turn]] = None,
        picks: Optional[range] = None,
        name: Callable[[], str] = str,
    ) -> None:
        if step < 1:
            raise ValueError("step is below 1")
        self._recording = recording
        self._start, self._end, self._step = start, end, step
        self._radar, self._partial = radar, partial
        self._index = index
        self._picks = picks
        self._name = name
        self._iterator: Optional[Iterator[Sweep]] = None
        if picks is None:
            self._open(start, end, step)  # fails at once where there is nothing to read

    def _open(self, start: int, end: int, every: int) -> Handle:
        pointer = c.c_void_p()
        checked(
            lib.kestova_sweeps_open(
                self._recording.pointer, optional(self._radar), start, end, every, c.byref(pointer)
            )
        )
        return Handle(pointer, lib.kestova_sweeps_close, self._recording)

    def _each(self, start: int, end: int, every: int) -> Iterator[Sweep]:
        sweeps = self._open(start, end, every)
        pointer = c.c_void_p()
        while True:
            result = checked(lib.kestova_sweeps_next(sweeps.pointer, c.byref(pointer), library.SLICE_MS))
            if result in (library.END, library.CANCELLED):
                return
            if result == library.OK:
                yield Sweep(Handle(pointer, lib.kestova_sweep_free), self._name)
                pointer = c.c_void_p()

    def _generate(self) -> Iterator[Sweep]:
        picks = self._picks
        if picks is None:
            for sweep in self._each(self._start, self._end, self._step):
                if self._partial or sweep.complete:
                    yield sweep
        elif picks.step > 0 and not self._partial and len(picks) > 1:
            left = len(picks)
            for sweep in self._each(self._turns()[picks[0]].first_ms, self._end, self._step * picks.step):
                if sweep.complete:
                    yield sweep
                    left -= 1
                if left == 0:
                    return
        else:
            for place in picks:
                yield self._at(place)

    def __iter__(self) -> Iterator[Sweep]:
        return self._generate()

    def __next__(self) -> Sweep:
        if self._iterator is None:
            self._iterator = self._generate()
        return next(self._iterator)

    def _turns(self) -> List[_Turn]:
        if self._index is None:
            self._index = self._find()
        return self._index

    def _find(self) -> List[_Turn]:
        turns: List[_Turn] = []
        complete = 0
        all_turns = [_turn(sweep) for sweep in self._each(self._start, self._end, 0)]
        for place, turn in enumerate(all_turns):
            is_due = complete % self._step == 0
            if turn.complete:
                complete += 1
                if is_due:
                    turns.append(turn)
            elif self._partial and (is_due or place == 0):
                turns.append(turn)
        return turns

    def _at(self, place: int) -> Sweep:
        wanted = self._turns()[place]
        for sweep in self._each(wanted.first_ms, self._end, 1):
            if _turn(sweep)[:3] == wanted[:3]:
                return sweep
        raise IndexError("the recording has changed")

    def __len__(self) -> int:
        return len(self._turns()) if self._picks is None else len(self._picks)

    @overload
    def __getitem__(self, place: int) -> Sweep: ...

    @overload
    def __getitem__(self, place: slice) -> "Sweeps": ...

    def __getitem__(self, place: Union[int, slice]) -> Union[Sweep, "Sweeps"]:
        places = range(len(self._turns())) if self._picks is None else self._picks
        if isinstance(place, slice):
            span = (self._recording, self._start, self._end)
            return Sweeps(*span, self._step, self._radar, self._partial, self._turns(), places[place], self._name)
        try:
            return self._at(places[place])
        except IndexError:
            raise IndexError(f"there are {len(places)} sweeps") from None

    def __repr__(self) -> str:
        number = "" if self._index is None else f" {len(self)}"
        return f"<kestova.Sweeps:{number} every {self._step}{' with partial ones' if self._partial else ''}>"

    def __reduce__(self) -> Any:
        raise TypeError("sweeps cannot be pickled: open the recording again where they are needed")


def _turn(sweep: Sweep) -> _Turn:
    look = sweep._view
    first_ms = c.c_int64.from_address(look.time_ms).value
    return _Turn(first_ms, look.spokes, c.c_double.from_address(look.bearing).value, sweep.complete)
