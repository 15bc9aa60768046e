"""Pelagon from Python: parameters by name, configuration, and frames as numpy arrays.

>>> import pelagon
>>> with pelagon.Grabber() as g:
...     g["FG_CAMERASIMULATOR_ENABLE"] = "FG_CAMERASIMULATOR"
...     frame = g.snapshot()
...     print(frame.array.shape, frame.array.mean())

``Grabber()`` opens the applet library beside the package (or the one named
by ``$PELAGON_APPLET``) on a virtual board. Parameter values come and go in
Python's own types; failures raise :class:`Error` and its subclasses.
"""

from __future__ import annotations

import os
import time
from dataclasses import dataclass, field
from typing import Any, Iterator, Mapping, Optional, Union

import numpy as np

from ._errors import AcquisitionTimeout, ClosedError, Error, RefusedValueError, UnknownNameError
from . import _native

__all__ = [
    "AcquisitionTimeout",
    "Acquisition",
    "ClosedError",
    "EnumEntry",
    "Error",
    "Frame",
    "Grabber",
    "Parameter",
    "RefusedValueError",
    "UnknownNameError",
    "default_applet",
    "error_text",
]

#: Anything that names a parameter: its name (``"FG_WIDTH"``) or its id (``100``).
Key = Union[str, int]
#: A parameter value as Python sees it.
Value = Union[int, float, str, np.ndarray]
PathLike = Union[str, "os.PathLike[str]"]

LUT_PARAMETERS = ("FG_LUT_VALUE_RED", "FG_LUT_VALUE_GREEN", "FG_LUT_VALUE_BLUE")
_TRIGGER_BUSY = -60


def error_text(code: int) -> str:
    """The meaning of an applet or runtime error number, in words."""
    return _native.error_text(code)


def default_applet() -> str:
    """The applet library ``Grabber()`` opens when none is named."""
    return _native.default_applet()


@dataclass(frozen=True)
class EnumEntry:
    """One value of an enumeration: its symbol (``"FG_COL24"``), display name and number."""

    symbol: str
    display_name: str
    value: int


@dataclass(frozen=True)
class Parameter:
    """A parameter as the applet publishes it, with its value when it was described.

    ``type`` is one of ``uint``, ``int``, ``uint64``, ``int64``, ``double``,
    ``float``, ``string``, ``enum``, ``uint_field`` and ``double_field``.
    ``minimum``, ``maximum`` and ``step`` are the limits now in force (None
    for strings and enumerations); ``access`` holds the bits 1 readable,
    2 writable, 4 changeable while acquiring.
    """

    id: int
    name: str
    display_name: str
    group: str
    type: str
    access: int
    unit: str
    minimum: Optional[Union[int, float]]
    maximum: Optional[Union[int, float]]
    step: Optional[Union[int, float]]
    elements: int
    entries: tuple[EnumEntry, ...] = field(default=())
    value: Optional[Value] = field(default=None, compare=False)

    @property
    def readable(self) -> bool:
        """True when the value can be read."""
        return bool(self.access & 1)

    @property
    def writable(self) -> bool:
        """True when the value can be written now."""
        return bool(self.access & 2)

    @classmethod
    def _from(cls, d: dict[str, Any]) -> "Parameter":
        entries = tuple(EnumEntry(s, n, v) for s, n, v in d.pop("entries"))
        return cls(entries=entries, **d)


class Frame:
    """One frame: ``array`` holds its samples, shape ``(height, width, 3)``.

    The samples are as the board delivers them: ``uint8`` for 24-bit output
    (``FG_COL24``); ``uint16`` for 30-bit output (10-bit values) and for
    48-bit output (12-bit values in 16-bit words, shifted up by 4 when the
    board aligns them left). ``number`` counts from 1 at each start;
    ``timestamp`` is the host's time (seconds since the epoch) when the
    frame was taken from the board. The frame supports ``numpy.asarray``.
    """

    __slots__ = ("array", "number", "timestamp", "format", "left_aligned")

    def __init__(self, array: np.ndarray, number: int, timestamp: float, format: str, left_aligned: bool) -> None:
        self.array = array
        self.number = number
        self.timestamp = timestamp
        self.format = format
        self.left_aligned = left_aligned

    @property
    def height(self) -> int:
        """Rows of the frame."""
        return int(self.array.shape[0])

    @property
    def width(self) -> int:
        """Pixels of a row."""
        return int(self.array.shape[1])

    @property
    def bits(self) -> int:
        """Significant bits of a sample: 8, 10 or 12."""
        return {"FG_COL24": 8, "FG_COL30": 10}.get(self.format, 12)

    def __array__(self, dtype: Any = None, copy: Optional[bool] = None) -> np.ndarray:
        if dtype is None or dtype == self.array.dtype:
            return self.array.copy() if copy else self.array
        return self.array.astype(dtype)

    def __repr__(self) -> str:
        return f"<Frame {self.number} {self.width}x{self.height} {self.format} {self.array.dtype}>"


class Acquisition:
    """A running acquisition, as a context manager and an iterator of frames.

    ``with grabber.acquire(buffers=8) as frames: for f in frames: ...``
    starts on entry and stops on exit, also when the loop raises or is
    interrupted. Frames come in order; a frame whose buffer was refilled
    before the loop came to it is passed over and counted in ``skipped``;
    frames the board could not deliver at all count in ``lost``.
    """

    def __init__(self, grabber: "Grabber", buffers: int = 4, timeout: float = 5.0,
                 count: Optional[int] = None) -> None:
        if count is not None and count < 0:
            raise RefusedValueError(f"a frame count cannot be negative ({count})")
        self._grabber = grabber
        self.buffers = buffers
        self.timeout = timeout
        self.count = count
        self.received = 0
        self.skipped = 0
        self._next = 1
        self._running = False

    def start(self) -> "Acquisition":
        """Allocates the buffers and starts; entering the ``with`` block does this."""
        # When every frame asked for has a buffer of its own, the board stops
        # after them, so that a slow loop still gets frames 1 .. count.
        fits = self.count is not None and 0 < self.count <= self.buffers
        self._grabber._start(self.buffers, self.count if fits else 0)
        self._running = True
        self._next = 1
        self.received = self.skipped = 0
        return self

    def stop(self) -> None:
        """Stops the acquisition (once; later calls do nothing)."""
        if self._running:
            self._running = False
            if not self._grabber.closed:
                self._grabber.stop()

    @property
    def lost(self) -> int:
        """Frames the board produced but could not deliver since the start."""
        return self._grabber.lost_frames

    def __enter__(self) -> "Acquisition":
        return self.start()

    def __exit__(self, *exc: object) -> None:
        self.stop()

    def __iter__(self) -> Iterator[Frame]:
        return self

    def __next__(self) -> Frame:
        if not self._running:
            if self.received or self._next > 1:
                raise StopIteration
            self.start()  # iterated without `with`
        if self.count is not None and self.received >= self.count:
            self.stop()
            raise StopIteration
        number, array, fmt, left, when, skipped = self._grabber._next(self._next, self.timeout)
        self._next = number + 1
        self.skipped += skipped
        self.received += 1
        return Frame(array, number, when, fmt, left)

    def __del__(self) -> None:
        try:
            self.stop()
        except Exception:
            pass


class Grabber(_native.Grabber):
    """An applet instance on a virtual board.

    ``Grabber()`` opens the applet beside this package, or
    ``$PELAGON_APPLET``; ``Grabber(path)`` opens another applet library.
    Parameters are read and written by name or id with :meth:`get` and
    :meth:`set` or as ``grabber["FG_WIDTH"]``; values are ``int``,
    ``float``, ``str`` (enumerations by symbol, display name or number,
    read as their symbol) or ``numpy.uint32`` arrays (lookup tables).
    As a context manager it closes on exit.
    """

    def __init__(self, applet: Optional[PathLike] = None) -> None:
        super().__init__(os.fspath(applet) if applet is not None else None)

    def __enter__(self) -> "Grabber":
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else "acquiring" if self.acquiring else "open"
        return f"<pelagon.Grabber {self.applet!r} {state}>"

    # --- Parameters --------------------------------------------------------

    def parameters(self) -> list[Parameter]:
        """Every published parameter with its limits now in force and its value."""
        return [Parameter._from(d) for d in self._parameters()]

    def parameter(self, key: Key) -> Parameter:
        """One parameter's description, by name or id."""
        return Parameter._from(self._parameter(key))

    def apply(self, settings: Mapping[Key, Any]) -> None:
        """Sets parameters in the order of the mapping (later ones may depend on earlier ones)."""
        for key, value in settings.items():
            self.set(key, value)

    @property
    def lut(self) -> np.ndarray:
        """The three lookup tables (red, green, blue) as a ``(3, 4096)`` ``uint32`` array."""
        return np.stack([self.get(name) for name in LUT_PARAMETERS])

    @lut.setter
    def lut(self, tables: Any) -> None:
        if isinstance(tables, (str, bytes)) or tables is None:
            raise TypeError("the lookup tables are a (3, 4096) array of unsigned integers")
        array = np.asarray(tables)
        entries = self.parameter(LUT_PARAMETERS[0]).elements
        if array.shape != (3, entries):
            raise RefusedValueError(f"the lookup tables are a (3, {entries}) array, not shape {array.shape}", -2070)
        if array.dtype.kind not in "ui":
            raise TypeError(f"the lookup tables hold unsigned integers (numpy uint32), not {array.dtype}")
        for name, table in zip(LUT_PARAMETERS, array):
            self.set(name, table)

    def load_lut(self, path: PathLike) -> None:
        """Uses the tables of a LUT file (FG_LUT_TYPE becomes LUT_TYPE_CUSTOM)."""
        name = os.path.abspath(os.fspath(path))
        if not os.path.isfile(name):
            raise FileNotFoundError(f"no LUT file {name}")
        self.set("FG_LUT_TYPE", "LUT_TYPE_CUSTOM")
        self.set("FG_LUT_CUSTOM_FILE", name)

    def save_lut(self, path: PathLike) -> None:
        """Writes the tables in use to a LUT file."""
        self.set("FG_LUT_SAVE_FILE", os.path.abspath(os.fspath(path)))

    def save_config(self, path: PathLike) -> None:
        """Writes every parameter to a configuration file (.mcf)."""
        self._save_config(os.path.abspath(os.fspath(path)))

    def load_config(self, path: PathLike) -> None:
        """Applies a configuration file written by :meth:`save_config` (or the tool)."""
        name = os.path.abspath(os.fspath(path))
        if not os.path.isfile(name):
            raise FileNotFoundError(f"no configuration file {name}")
        self._load_config(name)

    def trigger(self, pulses: int = 1, timeout: float = 5.0) -> None:
        """Sends software trigger pulses, waiting while the trigger is busy.

        Needs FG_AREATRIGGERMODE=ATM_SOFTWARE and FG_TRIGGERSTATE=TS_ACTIVE.
        """
        for _ in range(pulses):
            until = time.monotonic() + timeout
            while True:
                try:
                    self.set("FG_SENDSOFTWARETRIGGER", 1)
                    break
                except RefusedValueError as e:
                    if e.code != _TRIGGER_BUSY or time.monotonic() >= until:
                        raise
                    time.sleep(0.001)

    # --- Acquisition -------------------------------------------------------

    def acquire(self, buffers: int = 4, timeout: float = 5.0, count: Optional[int] = None) -> Acquisition:
        """An acquisition with ``buffers`` frame buffers; see :class:`Acquisition`.

        ``timeout`` is the longest wait for one frame in seconds; ``count``
        ends the iteration after that many frames.
        """
        return Acquisition(self, buffers, timeout, count)

    def grab(self, n: int, buffers: Optional[int] = None, timeout: float = 5.0) -> list[Frame]:
        """Starts, takes ``n`` frames, stops."""
        with self.acquire(buffers or max(1, min(n, 16)), timeout, count=n) as frames:
            return list(frames)

    def snapshot(self, timeout: float = 5.0) -> Frame:
        """One frame: starts, takes the first frame, stops."""
        return self.grab(1, 1, timeout)[0]
