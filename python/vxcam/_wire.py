"""Recordings of the wire: what went between host and camera, byte for byte, with its times."""

from __future__ import annotations

import json
import os
import time
from collections.abc import Iterator
from datetime import datetime
from typing import Any, NamedTuple, Optional, Union

from . import _given, _vxcam
from ._cooler import Seconds
from ._errors import CameraTimeout
from ._facts import software, utc
from ._given import Path
from ._scope import Scope

_STEP = 0.05  # seconds between two looks at a replay
_LEAST_SPEED, _MOST_SPEED = 0.001, 1e6

Field = Union[int, float, str, tuple[Union[int, float, str], ...]]


class CaptureBooks(NamedTuple):
    """What has been recorded so far: bytes of the wire, cameras that were opened, bytes of the file."""

    received: int
    sent: int
    cameras: int
    file_bytes: int


class Capture(Scope):
    """A recording that is being made, for Replay and decode():

        with vxcam.Capture("run.vxw") as capture, vxcam.Camera(target, capture=capture) as camera:
            camera.grab()

    It holds all bytes of the cameras that are opened with it, from the first one on. Whoever reads the
    file has all but the last 0.1 s, also when this process is killed. When the disk is too slow, cameras
    are held back; when it takes no more, the recording ends there, and they go on. Raises
    FileExistsError for a file that is there, unless `overwrite`, and other OSErrors as they come. Any
    thread may use it.
    """

    __slots__ = ("_core", "_path", "__weakref__")

    def __init__(self, path: Path, *, overwrite: bool = False) -> None:
        self._path = _given.path("path", path)
        self._core = _vxcam.Capture(self._path, _given.flag("overwrite", overwrite), software())

    @property
    def path(self) -> str:
        """Of the file."""
        return self._path

    @property
    def books(self) -> CaptureBooks:
        """What has been recorded so far."""
        return CaptureBooks(*self._core.books())

    def finish(self) -> CaptureBooks:
        """Records no more, waits until all is on the disk, and marks the recording as ended.

        Raises OSError for what went wrong with the file.
        """
        self._core.finish()
        return self.books

    def _leave(self, error: Optional[BaseException]) -> None:
        try:
            self._core.finish()
        except OSError:
            if error is None:
                raise

    def __repr__(self) -> str:
        books = self.books
        return f"<vxcam.Capture {self._path}: {books.received} bytes received, {books.sent} sent>"


class WireCondition(NamedTuple):
    """How a recording is, as far as it has been read; at its end, as a whole.

    `whole`: nothing is damaged or missing, and it was `ended` in order. `damaged` stretches of bytes are
    no whole block, `missing` blocks are not there; `text` says it for people.
    """

    whole: bool
    ended: bool
    blocks: int
    damaged: int
    damaged_bytes: int
    missing: int
    text: str


class ReplayBooks(NamedTuple):
    """How a replay went: messages of the camera that were `played`, of the client that were `taken` as
    recorded, `skipped` ones that it did not send, `unexpected` ones; `complete`: to the end."""

    played: int
    taken: int
    skipped: int
    unexpected: int
    complete: bool


class Replay(Scope):
    """A recording of the wire as a camera: `with vxcam.Replay("run.vxw") as replay, vxcam.Camera(replay) ...`.

    It listens on loopback, on a thread of its own, and sends what the camera sent, when it sent it: what
    came behind a message of the host is sent when the client has sent that one, too. To a question that
    was not recorded, the camera's last answer of its kind is sent once more.

    port: 0 takes a free one. speed: 10 is ten times as fast, 0 as fast as can be. camera: which one of
    the recording, from 0. loop: for one client after another, until close(); else for the first one.
    Raises OSError for what is no recording, BusyError for a port that cannot be had.
    """

    __slots__ = ("_core", "_path", "__weakref__")

    def __init__(self, path: Path, *, port: int = 0, speed: float = 1, camera: int = 0, loop: bool = False) -> None:
        self._path = _given.path("path", path)
        rate = _given.real("speed", speed)
        if rate != 0 and not _LEAST_SPEED <= rate <= _MOST_SPEED:
            _given.refuse("speed", speed, f"0, or a number from {_LEAST_SPEED:g} to {_MOST_SPEED:.0f}")
        place = _given.whole("port", port, 0, 65535)
        which, again = _given.whole("camera", camera, 0, 255), _given.flag("loop", loop)
        os.stat(self._path)  # raises what is the matter with a name
        self._core = _vxcam.Replay(self._path, place, rate, which, again)

    @property
    def target(self) -> str:
        """Where it is: "127.0.0.1:40123"."""
        return f"127.0.0.1:{self._core.port()}"

    @property
    def plays(self) -> int:
        """How many clients it has been played to."""
        return self._core.told()[0]

    @property
    def books(self) -> ReplayBooks:
        """How it went with the last client that has left."""
        return ReplayBooks(*self._core.told()[1])

    @property
    def condition(self) -> WireCondition:
        """How the recording is, as far as that client had it."""
        return WireCondition(*self._core.told()[2])

    def wait(self, timeout: Optional[Seconds] = None) -> ReplayBooks:
        """Waits until a client has left, and nobody is served any more, and tells how it went.

        Raises CameraTimeout after `timeout` seconds, and OSError when the recording cannot be read.
        """
        most = None if timeout is None else _given.seconds("timeout", timeout)
        end = None if most is None else time.monotonic() + most
        while not self._core.told()[3]:
            if end is not None and time.monotonic() >= end:
                raise CameraTimeout(f"{self.target}: the replay of {self._path} is not over after {most:g} s: close the"
                                    " camera that was opened there, or close() this")
            time.sleep(_STEP)
        return self.books

    def close(self) -> None:
        """Ends it; who is connected loses the connection."""
        self._core.close()

    def _leave(self, error: Optional[BaseException]) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<vxcam.Replay of {self._path} at {self.target}>"


class WireEvent(NamedTuple):
    """Something that happened in a recording.

    `kind` is "message", "opened" (a camera, with what `about` says), "lost" and "restored" (the
    connection), "stray" (bytes that belong to no message) or "gap" (the recording lacks blocks there).
    `seconds` is since its beginning, `camera` which one, from 0.

    Of messages and stray bytes `sent` says whether they went to the camera, `payload` are the bytes; of
    messages `name` is as docs/wire.md has it, `id` and `number` are those of the header, `version` of
    the interface, and `taken` False where a receiver drops it for that; `fields` what stands in the
    payload, by name: numbers, texts, or tuples of numbers.
    """

    kind: str
    time: datetime
    time_ns: int
    seconds: float
    camera: int
    sent: Optional[bool] = None
    name: str = ""
    id: Optional[int] = None
    number: Optional[int] = None
    version: Optional[int] = None
    taken: bool = True
    fields: dict[str, Field] = {}
    payload: bytes = b""
    about: Optional[dict[str, Any]] = None


def _number(text: str) -> Union[int, float, str]:
    try:
        return int(text)
    except ValueError:
        pass
    try:
        return float(text)
    except ValueError:
        return text


def _field(text: str) -> Field:
    if text.startswith('"'):
        return text[1:-1]
    if "," in text:
        return tuple(_number(part) for part in text.split(","))
    return _number(text)


def _about(text: str) -> Optional[dict[str, Any]]:
    try:
        told = json.loads(text)
    except ValueError:
        return None
    return told if isinstance(told, dict) else None


class WireEvents(Iterator[WireEvent]):
    """What happened in a recording, one thing after the other: see decode(). Threads take turns."""

    __slots__ = ("_core", "_path", "__weakref__")

    def __init__(self, path: Path) -> None:
        self._path = _given.path("path", path)
        os.stat(self._path)  # raises what is the matter with a name
        self._core = _vxcam.WireEvents(self._path)

    def __iter__(self) -> WireEvents:
        return self

    def __next__(self) -> WireEvent:
        told = self._core.next()
        if told is None:
            raise StopIteration
        kind = told["kind"]
        told["time"] = utc(told["time_ns"])
        told["about"] = _about(told["about"]) if kind == "opened" else None
        if kind not in ("message", "stray"):
            told["sent"] = None
        told["fields"] = {name: _field(text) for name, text in told.get("fields", ())}
        return WireEvent(**told)

    @property
    def condition(self) -> WireCondition:
        """How the recording is, as far as it has been read."""
        return WireCondition(*self._core.condition())

    def __repr__(self) -> str:
        return f"<vxcam.WireEvents of {self._path}>"


def decode(path: Path) -> WireEvents:
    """The messages in a recording of the wire: `for event in vxcam.decode("run.vxw"): print(event.name)`.

    Damaged parts are left out, and told as gaps and by `.condition`. Raises OSError for what cannot be
    read, or is no recording.
    """
    return WireEvents(path)
