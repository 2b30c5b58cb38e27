"""Writer: makes a recording, with the sheets that ``kestova record`` writes."""

import ctypes as c
import json
import os
from typing import Any, Dict, Optional, Union

from kestova import _library as library
from kestova._library import Handle, checked, lib, optional, path_bytes
from kestova._times import ms_of


def _abandon(pointer: Any) -> None:
    lib.kestova_writer_close(pointer, None)


class Writer:
    """Makes one recording below a storage root. ``with kestova.Writer(...) as writer`` closes it at the end of the
    block; then everything is on the disk.

    ``name`` ends the names of its files. ``spoke`` says how spokes are laid out, as a directory of radars does."""

    def __init__(
        self, root: Union[str, "os.PathLike[str]"], name: str = "python", *, spoke: Optional[Any] = None
    ) -> None:
        pointer = c.c_void_p()
        options = None if spoke is None else json.dumps({"spoke": spoke})
        checked(lib.kestova_writer_open(path_bytes(root), name.encode(), optional(options), c.byref(pointer)))
        self._handle = Handle(pointer, _abandon)
        self.path: str = ""
        """The folder of the recording, once it is closed; empty before, and where nothing was added."""

    def add(self, time: Any, stream: str, address: str, payload: bytes) -> None:
        """Adds a message of up to 65,535 bytes: its time (ms since the epoch, datetime or datetime64), its stream
        ("imageStream") and the "ADDR:PORT" of its group."""
        if self._handle.pointer is None:
            raise ValueError("the writer is closed")
        host, _, port = address.rpartition(":")
        if not port.isdecimal() or int(port) > 65535:
            raise ValueError(f"{address!r} is no group: write ADDRESS:PORT, such as 239.17.0.1:6001")
        message = bytes(payload)
        checked(
            lib.kestova_writer_add(
                self._handle.pointer, ms_of(time), stream.encode(), host.encode(), int(port), message, len(message)
            )
        )

    def close(self) -> None:
        """Returns when everything is on the disk and the sheets are written."""
        pointer, self._handle.pointer = self._handle.pointer, None
        if pointer is None:
            return
        text = c.c_void_p()
        checked(lib.kestova_writer_close(pointer, c.byref(text)))
        result: Dict[str, Any] = json.loads(library.text_of(text))
        self.path = result["path"]

    def __enter__(self) -> "Writer":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "open" if self._handle.pointer is not None else self.path or "empty"
        return f"<kestova.Writer: {state}>"

    def __reduce__(self) -> Any:
        raise TypeError("a writer cannot be pickled")
