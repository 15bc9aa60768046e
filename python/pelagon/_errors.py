"""The exceptions of pelagon: one base class, and subclasses that are also the
built-in exception a Python program would catch for the same failure."""

from __future__ import annotations

import difflib
from typing import Sequence


def _meaning(code: int) -> str:
    # Imported late: the compiled module imports this one while it loads.
    from . import _native

    return _native.error_text(code)


class Error(Exception):
    """A failure of the grabber, the applet or the virtual board.

    ``code`` is the applet's or the runtime's error number (negative), or 0
    for failures of the host itself; ``meaning`` says what the number means.
    """

    code: int
    meaning: str

    def __init__(self, message: str, code: int = 0) -> None:
        super().__init__(message)
        self.message = message
        self.code = code
        self.meaning = _meaning(code) if code else ""

    def __str__(self) -> str:
        return self.message


class UnknownNameError(Error, KeyError):
    """No parameter has this name or id. ``suggestions`` holds close names."""

    suggestions: list[str]

    def __init__(self, message: str, code: int = 0, suggestions: Sequence[str] = ()) -> None:
        super().__init__(message, code)
        self.suggestions = list(suggestions)


class RefusedValueError(Error, ValueError):
    """The applet (or this package, before asking it) refused a value."""


class AcquisitionTimeout(Error, TimeoutError):
    """No frame arrived within the time allowed."""


class ClosedError(Error):
    """The grabber was closed; it takes no more calls."""


def _unknown_name(name: str, names: Sequence[str], code: int) -> UnknownNameError:
    # Case does not count: "fg_widht" still finds FG_WIDTH.
    by_upper = {n.upper(): n for n in names}
    close = [by_upper[n] for n in difflib.get_close_matches(name.upper(), list(by_upper), n=3, cutoff=0.75)]
    message = f"no parameter named {name!r}" if not name.lstrip("-").isdigit() else f"no parameter with id {name}"
    if close:
        message += "; did you mean " + " or ".join(close) + "?"
    return UnknownNameError(message, code, close)
