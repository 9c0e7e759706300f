"""What can go wrong. One class for each kind of failure, all below Error."""

from __future__ import annotations

from typing import TYPE_CHECKING

if TYPE_CHECKING:
    from ._frame import Frame


class Error(Exception):
    """What every failure of a camera is below.

    The text says what was tried, on which camera, what happened and what to do about it.
    """


class UsageError(Error, ValueError):
    """A value, a name or a range that is not possible. Nothing was sent to the camera."""


class WrongTypeError(UsageError, TypeError):
    """An argument of another type than is possible. Nothing was sent to the camera."""


class PlanError(UsageError):
    """A plan of a sequence that cannot be: the text names each mistake with its line."""

    mistakes: tuple[tuple[int, str], ...] = ()
    """Line and text of each; line 0 is the plan as a whole."""


class AccessError(UsageError, AttributeError):
    """A property that can only be read was set, or one that can only be set was read."""


class NotFoundError(Error, ConnectionError):
    """No camera answers there."""


class BusyError(Error):
    """The camera serves somebody else."""


class CameraTimeout(Error, TimeoutError):
    """The camera did not answer, or no frame came, in time."""


class LinkLost(Error, ConnectionError):
    """The connection broke. It is made anew by itself: see Camera.wait_for_link()."""


class CameraError(Error):
    """The camera reported an error, or refused a command."""

    code: int = 0
    """The camera's number of the error; 0 when it told none."""
    sub_code: int = 0
    """A second number of the camera."""


class IncompleteFrame(Error):
    """A frame came without all of its pixels; `frame` is what came, `frame.missing_rows` what did not."""

    frame: Frame


class Aborted(Error):
    """By Camera.abort(), by closing the camera, or by another thread."""


class HookError(Aborted):
    """A command of a sequence failed, or did not end in time; the sequence has ended with it."""
