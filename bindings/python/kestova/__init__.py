"""Recordings of marine radar traffic as NumPy arrays.

    import kestova

    rec = kestova.open("recordings/")
    for sweep in rec.sweeps(start="00:05:00", step=10):
        image = sweep.cartesian(900, north_up=True)

Times are milliseconds since the Unix epoch, as ``datetime64[ms]`` where they are arrays; bearings are turns, 0 to 1,
clockwise; distances are metres. NumPy is needed for arrays alone: ``info``, ``records`` and ``verify`` do without it.

An object belongs to one thread at a time; different objects may be used at once. What is open must not be used in a
child process after ``os.fork()``: open it again there.
"""

from kestova._errors import Damaged, Error, NoSpokes, NotFound, Unsupported
from kestova._library import version as _version
from kestova._recording import Recording, open, verify
from kestova._records import Record, Records
from kestova._sweeps import Sweep, Sweeps
from kestova._writer import Writer

__all__ = [
    "Damaged",
    "Error",
    "NoSpokes",
    "NotFound",
    "Record",
    "Recording",
    "Records",
    "Sweep",
    "Sweeps",
    "Unsupported",
    "Writer",
    "open",
    "verify",
]
__version__ = _version()
