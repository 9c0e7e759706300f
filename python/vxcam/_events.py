"""What a camera tells unasked, and the thread that calls those who listen."""

from __future__ import annotations

import atexit
import logging
import os
import sys
import threading
import weakref
from collections.abc import Callable
from datetime import datetime
from typing import Any, NamedTuple, Optional

from . import _given, _vxcam
from ._facts import utc
from ._scope import Scope

log = logging.getLogger("vxcam")
"""What cameras tell: below it are the loggers vxcam.link, vxcam.readout, vxcam.camera and vxcam.events,
and vxcam.library with the errors that the library below logs."""
log.addHandler(logging.NullHandler())

_EXIT_PATIENCE = 2.0  # seconds that a handler may take when the interpreter ends


class Event(NamedTuple):
    """Something that a camera told.

    `kind` is "heartbeat", "camera-error", "link-lost", "link-restored", "settings-restored",
    "restore-asked", "readout-ended", "message" or "camera-changed". What an event of its kind does not
    tell is None, or empty: temperatures are those of heartbeats, `code` that of an error or a message,
    `readout` which one ended, or ran when the error came, where the camera had begun with it.
    """

    kind: str
    time: datetime
    time_ns: int
    ccd_temp: Optional[float]
    board_temp: Optional[float]
    code: Optional[int]
    sub_code: Optional[int]
    readout: Optional[int]
    text: str
    bytes: bytes

    def __repr__(self) -> str:
        told = {name: value for name, value in self._asdict().items()
                if name not in ("kind", "time", "time_ns") and value not in (None, "", b"")}
        facts = "".join(f", {name} {value!r}" for name, value in told.items())
        return f"<vxcam.Event {self.kind} at {self.time.isoformat(timespec='milliseconds')}{facts}>"


Handler = Callable[[Event], object]


def _event(facts: dict[str, Any]) -> Event:
    return Event(time=utc(facts["time_ns"]), **facts)


class Subscription(Scope):
    """A handler that is called with the events of a camera, until end()."""

    def __init__(self, handler: Handler) -> None:
        _given.handler("handler", handler)
        self._handler: Optional[Handler] = handler
        self._running = threading.RLock()

    def end(self) -> None:
        """Ends it: the handler does not run any more when this returns, unless it called this itself."""
        with self._running:
            self._handler = None

    @property
    def ended(self) -> bool:
        """Whether it was ended."""
        return self._handler is None

    def _leave(self, error: Optional[BaseException]) -> None:
        self.end()

    def _call(self, event: Event) -> None:
        with self._running:
            if self._handler is None:
                return
            try:
                self._handler(event)
            except Exception:
                log.getChild("events").exception("a handler of events failed: %r", self._handler)


def _tell_log(target: str, event: Event) -> None:
    """The events that are worth a line."""
    if event.kind == "link-lost":
        words = f"; its last words: {event.text}" if event.text else ""
        log.getChild("link").warning("%s: the connection was lost%s", target, words)
    elif event.kind == "link-restored":
        log.getChild("link").info("%s: the connection was made anew", target)
    elif event.kind == "settings-restored":
        level = logging.WARNING if event.text else logging.INFO
        left = f", but for {event.text}" if event.text else ""
        log.getChild("link").log(level, "%s: the settings were restored%s", target, left)
    elif event.kind == "camera-changed":
        log.getChild("link").warning("%s: the camera is not what it was: %s", target, event.text)
    elif event.kind == "restore-asked":
        log.getChild("link").warning("%s: the settings may be lost; restore() sends them again", target)
    elif event.kind == "camera-error":
        log.getChild("camera").error(
            "%s: the camera reports error %d-%d: %s", target, event.code, event.sub_code, event.text
        )
    elif event.kind == "readout-ended":
        quiet = {"complete": logging.DEBUG, "aborted": logging.INFO, "closed": logging.INFO}
        level = quiet.get(event.text, logging.WARNING)
        which = "a readout" if event.readout is None else f"readout {event.readout}"
        log.getChild("readout").log(level, "%s: %s ended: %s", target, which, event.text)


def _tell_lost(lost: int, before: int, what: str) -> None:
    if lost > before:
        log.getChild("events").warning("%d %s were lost: handlers are too slow", lost - before, what)


def _shielded(call: Callable[..., None], *arguments: Any) -> None:
    """What filters and handlers of the log raise does not end the thread."""
    try:
        call(*arguments)
    except Exception:
        sys.excepthook(*sys.exc_info())


class _Line:
    """Calls handlers on a thread of Python's, for all cameras of this process."""

    def __init__(self) -> None:
        self._core = _vxcam.EventLine()
        self._lock = threading.Lock()
        self._cameras: dict[int, tuple[str, list[Subscription]]] = {}
        self._handles: dict[int, int] = {}  # to the cameras' numbers
        self._next = 1
        self._thread = threading.Thread(target=self._run, name="vxcam-events", daemon=True)
        self._thread.start()

    def attach(self, core: Any, target: str) -> tuple[int, Any]:
        with self._lock:
            number = self._next
            self._next += 1
            self._cameras[number] = (target, [])
            self._handles[core.handle()] = number
        return number, core.listen(self._core, number)

    def add(self, number: int, handler: Handler) -> Subscription:
        subscription = Subscription(handler)
        with self._lock:
            if number in self._cameras:
                self._cameras[number][1].append(subscription)
        return subscription

    def detach(self, number: int) -> None:
        """Behind the events that wait."""
        self._core.mark(number)

    def stop(self) -> None:
        self._core.stop()
        if threading.current_thread() is not self._thread:
            self._thread.join(_EXIT_PATIENCE)

    def _run(self) -> None:
        events_lost, lines_lost = 0, 0
        while True:
            taken = self._core.take()
            for line in taken["lines"]:
                _shielded(self._log, *line)
            _shielded(_tell_lost, taken["events_lost"], events_lost, "events")
            _shielded(_tell_lost, taken["lines_lost"], lines_lost, "lines of the log")
            events_lost, lines_lost = taken["events_lost"], taken["lines_lost"]
            for number, facts in taken["events"]:
                _shielded(self._deliver, number, facts)
            if taken["is_end"]:
                return

    def _log(self, handle: int, logger: str, text: str) -> None:
        """An error that the library logged."""
        with self._lock:
            target, _ = self._cameras.get(self._handles.get(handle, 0), (logger, None))
        log.getChild("library").error("%s: %s", target, text)

    def _deliver(self, number: int, facts: Optional[dict[str, Any]]) -> None:
        with self._lock:
            if facts is None:
                self._cameras.pop(number, None)
                self._handles = {handle: one for handle, one in self._handles.items() if one != number}
                return
            if number not in self._cameras:
                return
            target, all_subscriptions = self._cameras[number]
            all_subscriptions[:] = [one for one in all_subscriptions if not one.ended]
            subscriptions = list(all_subscriptions)
        event = _event(facts)
        _shielded(_tell_log, target, event)
        for subscription in subscriptions:
            subscription._call(event)


_line: Optional[_Line] = None
_line_lock = threading.Lock()
_open: weakref.WeakSet[Any] = weakref.WeakSet()


def line() -> _Line:
    """That of this process; its thread starts with the first camera."""
    global _line
    with _line_lock:
        if _line is None:
            _line = _Line()
        return _line


def opened(camera: Any) -> None:
    """It is closed before the interpreter ends: threads that wait for it would hold that up."""
    _open.add(camera)


def _end() -> None:
    global _line
    for camera in list(_open):
        camera.close()
    with _line_lock:
        ending, _line = _line, None
    if ending is not None:
        ending.stop()


def _forget() -> None:
    """In a forked child, where the cameras and the thread are not."""
    global _line, _line_lock, _open
    _line = None
    _line_lock = threading.Lock()
    _open = weakref.WeakSet()


atexit.register(_end)
os.register_at_fork(after_in_child=_forget)
