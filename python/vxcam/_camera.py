"""One open camera."""

from __future__ import annotations

import errno
import operator
import os
import tempfile
import threading
from collections.abc import Iterable, Sequence
from typing import Any, NoReturn, Optional, Protocol, Union

from . import _events, _given, _vxcam
from ._cooler import Cooler, Seconds
from ._errors import Aborted, IncompleteFrame, UsageError
from ._events import Handler, Subscription
from ._facts import Header
from ._frame import Frame
from ._given import Path
from ._measure import Measuring
from ._properties import CameraProperties
from ._recording import Record, Recorder, recorded, seconds_of
from ._records import Identity, LinkCheck, Outcome, Setting, Statistics
from ._scope import Scope
from ._stream import AsyncStream, Stream
from ._table import Properties, fields_of, known_name, properties, shown
from ._wire import Capture


class HasTarget(Protocol):
    """What can be opened: a Simulator, or a camera that was found."""

    @property
    def target(self) -> str: ...


_RESTORE = ("all", "none", "ask")
_WHEN_FULL = ("wait", "drop")
_KINDS = ("area", "binned", "mask-binned", "as-set")
_TYPES = ("light", "dark", "bias", "flat")
_MOST_CHECKED = 2**31 - 1  # messages
_MOST_FRAMES = 32767  # of a readout

_totals = Statistics()  # of the cameras that were closed
_totals_lock = threading.Lock()


def _added(first: Statistics, second: Statistics) -> Statistics:
    return Statistics(*map(operator.add, first, second))


def process_statistics() -> Statistics:
    """What all cameras of this process have done together, those that were closed included."""
    with _totals_lock:
        total = _totals
        cameras = [camera for camera in list(_events._open) if camera._final is None]
    for camera in cameras:
        total = _added(total, camera.statistics)
    return total


def _plan(
    kind: Optional[str],
    bits: Optional[int],
    binning: Union[int, Sequence[int], None],
    area: Optional[Sequence[int]],
    regions: Optional[Iterable[Sequence[int]]],
    type: str,
    mode: int,
    settings: bool,
    **given: Any,
) -> dict[str, Any]:
    pair = _given.binning(binning)
    _given.no_exposure_of_bias(type, given["exposure"])
    if kind is not None:
        _given.word("kind", kind, _KINDS)
    elif pair is not None:
        kind = "binned"
    elif bits is not None:
        kind = "area"
    return {
        "kind": kind,
        "bits": None if bits is None else _given.whole("bits", bits),
        "binning": pair,
        "area": _given.area(area),
        "regions": _given.regions(regions),
        "type": _given.word("type", type, _TYPES),
        "mode": _given.whole("mode", mode),
        "settings": _given.flag("settings", settings),
        **given,
    }


def _check_flight_file(path: str) -> None:
    folder = os.path.dirname(path) or os.curdir
    if not os.path.isdir(folder):
        raise FileNotFoundError(errno.ENOENT, "flight_file: there is no such folder", folder)
    if os.path.isdir(path):
        raise IsADirectoryError(errno.EISDIR, "flight_file: this is a folder", path)
    try:
        tempfile.TemporaryFile(dir=folder).close()
    except OSError as error:
        why = os.strerror(error.errno or 0)
        raise PermissionError(errno.EACCES, f"flight_file: no file can be made in this folder: {why}", folder) from None


def _count(name: str, value: Optional[int]) -> int:
    return 0 if value is None else _given.whole(name, value)


class Camera(CameraProperties, Measuring, Scope):
    """An open camera.

    `target` is "192.168.1.20:2000", "serial:17" for the camera with that serial number on the local
    networks, "sim" for a simulated one in this process ("sim?sensor=1024x1024&seed=3&scale=10"), or
    a Found, a Replay or a Simulator, which goes on for as long as the camera is open; who gives no more than
    `simulator.target` keeps the Simulator. Every property of the table is an attribute: `camera.exposure = 0.5`.

    `restore` is what becomes of the settings when the connection was lost and made anew: they are
    sent again ("all"), or not ("none"), or restore() does it ("ask"). `flight_file` is where the
    last 10,000 things that happened are written to when something fails. `capture` records all bytes
    between host and camera: see Capture.

    Raises NotFoundError when nothing listens there, BusyError when the camera serves somebody else,
    CameraTimeout when something is there that does not answer like a camera, UsageError for a target
    that is none. Any thread may use a camera. Use it in a with block, or close() it.
    """

    __slots__ = ("_core", "_target", "_line", "_number", "_listener", "_final", "_closing", "_held",
                 "__weakref__")

    def __init__(
        self,
        target: Union[str, HasTarget] = "sim",
        *,
        restore: str = "all",
        flight_file: Optional[Path] = None,
        capture: Optional[Capture] = None,
    ) -> None:
        self._final: Optional[Statistics] = None
        self._closing = threading.Lock()
        _given.word("restore", restore, _RESTORE)
        text = _given.text("target", getattr(target, "target", target),
                           "a text, a Simulator or what discover() found")
        flight = "" if flight_file is None else _given.path("flight_file", flight_file)
        if flight:
            _check_flight_file(flight)
        if capture is not None and not isinstance(capture, Capture):
            _given.refuse_type("capture", capture, 'a vxcam.Capture: vxcam.Capture("run.vxw")')
        self._line = _events.line()  # takes what the opening logs
        self._core = _vxcam.Camera(text, restore, flight, None if capture is None else capture._core)
        self._target = text
        self._held = target  # a Simulator goes on for as long as it is open
        self._number, self._listener = self._line.attach(self._core, self._target)
        _events.opened(self)

    # ---- Properties

    def get(self, name: str) -> Any:
        """What the camera says of a property: get("gain"), get("register:0x10").

        The same as the attribute, which is called `target_temp` where the property is "target-temp".
        """
        name = known_name(name, self._target)
        return shown(name, self._core.get(name))

    def set(self, name: str, value: Any) -> Any:
        """Has the camera take a value of a property, waits until it has, and returns what it says.

        Raises UsageError for a name or a value that there is not, before anything is sent, and
        CameraError for what this camera does not take, such as a gain that it has not.
        """
        name = known_name(name, self._target)
        with _given.told_as_given(self._target, name, value, fields_of(name)):
            return shown(name, self._core.set(name, value))

    def check(self, name: str, value: Any) -> Any:
        """The value in the form that the property has. Raises UsageError as set() does.

        Nothing is sent: what only the camera knows, such as its highest gain, is met when it is set.
        """
        name = known_name(name, self._target)
        with _given.told_as_given(self._target, name, value, fields_of(name)):
            return shown(name, self._core.checked(name, value))

    @property
    def properties(self) -> Properties:
        """The table of properties: properties["gain"].range, .unit, .help."""
        return properties

    def snapshot(self) -> dict[str, Setting]:
        """All properties that the camera tells, asked for now.

        Raises CameraTimeout when it answers to nothing any more, within 25 s.
        """
        entries = (Setting(name, shown(name, value), text, trouble)
                   for name, value, text, trouble in self._core.snapshot())
        return {entry.name: entry for entry in entries}

    def profile(self, with_mask: bool = False) -> str:
        """All settings as JSON, for a file; the mask of the bins, some seconds of questions, on demand.

        Raises as snapshot() does.
        """
        return str(self._core.profile(_given.flag("with_mask", with_mask)))

    def apply(self, profile: str) -> tuple[Outcome, ...]:
        """Sets what a profile says, and tells what became of each setting."""
        text = _given.text("profile", profile, "the text of one, as profile() makes it")
        return tuple(Outcome(name, how, shown(name, asked), shown(name, told), why, restored)
                     for name, how, asked, told, why, restored in self._core.apply(text))

    # ---- Frames

    def grab(
        self,
        exposure: Optional[Seconds] = None,
        bits: Optional[int] = None,
        area: Optional[Sequence[int]] = None,
        timeout: Optional[Seconds] = None,
        *,
        type: str = "light",
        kind: Optional[str] = None,
        binning: Union[int, Sequence[int], None] = None,
        regions: Optional[Iterable[Sequence[int]]] = None,
        mode: int = 0,
        settings: bool = True,
    ) -> Frame:
        """Takes one frame.

        exposure: seconds or a timedelta, of whole milliseconds (as a property it is rounded to such); what
            the camera is set to if it is not given.
        bits: 8 or 16, which is what is taken when it is not given; binned frames have 32.
        area: (column, row, columns, rows) of the sensor; what the camera is set to if not given.
        timeout: seconds until the frame has to be there; not given, ten seconds of silence beyond
            the moment when something is due, and any time while a trigger is waited for.
        type: "light", "dark", "bias" (shutter closed, no exposure, and none may be given) or "flat".
        binning: columns and rows in a bin, or one number for both; kind: "area", "binned",
            "mask-binned" or "as-set"; regions: several areas; mode: the number of the binning table, 0 to
            7; of areas, flags of the camera beyond those that type and bits stand for.
            When nothing of this, no area and no bits are given, the frame is binned if the camera's
            simple_binning is set to more than one pixel.
        settings: whether the frame carries the properties in force.

        What is given holds for this frame. Raises IncompleteFrame, which has the frame, when some of
        it is missing, CameraTimeout, LinkLost, CameraError, Aborted, and UsageError for what this
        camera cannot take. Ctrl-C ends it at once and aborts the readout.
        """
        plan = _plan(kind, bits, binning, area, regions, type, mode, settings, exposure=exposure, frames=1)
        return Frame(self._core.grab(plan, timeout))

    def stream(
        self,
        frames: Optional[int] = None,
        buffers: Optional[int] = None,
        when_full: str = "wait",
        *,
        exposure: Optional[Seconds] = None,
        bits: Optional[int] = None,
        area: Optional[Sequence[int]] = None,
        timeout: Optional[Seconds] = None,
        type: str = "light",
        kind: Optional[str] = None,
        binning: Union[int, Sequence[int], None] = None,
        regions: Optional[Iterable[Sequence[int]]] = None,
        mode: int = 0,
        settings: bool = True,
    ) -> Stream:
        """Starts a readout of many frames: `for frame in camera.stream(frames=100): ...`.

        frames: how many, up to 32767; None or 0: until it is stopped.
        buffers: that hold frames between camera and program; 8 unless they are too large.
        when_full: what happens when the program is too slow: "wait" holds the camera back, "drop"
            drops frames, counts them in `stream.dropped` and tells it in `frame.dropped`.
        timeout: seconds until the next frame has to be there; else as in grab(), like the rest.

        Frames may be kept as long as one likes: no frame is overwritten while it is held.
        """
        plan = _plan(kind, bits, binning, area, regions, type, mode, settings, exposure=exposure,
                     frames=_count("frames", frames), buffers=_count("buffers", buffers),
                     when_full=_given.word("when_full", when_full, _WHEN_FULL))
        return Stream(self, self._core.start(plan, timeout), timeout)

    def astream(
        self,
        frames: Optional[int] = None,
        buffers: Optional[int] = None,
        when_full: str = "wait",
        *,
        exposure: Optional[Seconds] = None,
        bits: Optional[int] = None,
        area: Optional[Sequence[int]] = None,
        timeout: Optional[Seconds] = None,
        type: str = "light",
        kind: Optional[str] = None,
        binning: Union[int, Sequence[int], None] = None,
        regions: Optional[Iterable[Sequence[int]]] = None,
        mode: int = 0,
        settings: bool = True,
    ) -> AsyncStream:
        """As stream(), for asyncio: `async for frame in camera.astream(frames=100): ...`."""
        return AsyncStream(lambda: self.stream(
            frames, buffers, when_full, exposure=exposure, bits=bits, area=area, timeout=timeout, type=type,
            kind=kind, binning=binning, regions=regions, mode=mode, settings=settings))

    def record(
        self,
        path: Path,
        frames: Optional[int] = None,
        buffers: Optional[int] = None,
        when_full: str = "wait",
        *,
        seconds: Optional[Seconds] = None,
        measure: bool = False,
        compress: str = "none",
        split: int = 0,
        overwrite: bool = False,
        header: Optional[Header] = None,
        reserve: int = 0,
        exposure: Optional[Seconds] = None,
        bits: Optional[int] = None,
        area: Optional[Sequence[int]] = None,
        timeout: Optional[Seconds] = None,
        type: str = "light",
        kind: Optional[str] = None,
        binning: Union[int, Sequence[int], None] = None,
        regions: Optional[Iterable[Sequence[int]]] = None,
        mode: int = 0,
    ) -> Record:
        """Takes frames into one file and tells what is in it: `camera.record("night.h5", frames=100)`.

        frames: how many; None or 0: until `seconds` have passed, or Ctrl-C, which ends the record and
            is raised. With both, whatever comes first; what had come by then is in the record.
        buffers, when_full, timeout and the rest: as in stream(); compress, split, overwrite, header,
            reserve, measure: as of Recorder. What the camera tells meanwhile is written, too.

        Frames that are incomplete are counted in the result. Raises what stream() and Recorder do;
        what came before is in the file. Raises CameraTimeout when no frame came in `seconds`: then
        there is no file. A camera that falls silent in the last ten seconds of `seconds` is not known to
        have failed: the record is complete, with the frames that came.
        """
        wanted = 0 if frames is None else _given.whole("frames", frames, 0)
        most = None if seconds is None else seconds_of("seconds", seconds)
        recorder = Recorder(path, compress=compress, split=split, overwrite=overwrite, header=header,
                            reserve=reserve, measure=measure)
        return recorded(self, recorder, wanted, most, lambda: self.stream(
            0 if wanted > _MOST_FRAMES else wanted, buffers, when_full, exposure=exposure, bits=bits, area=area,
            timeout=timeout, type=type, kind=kind, binning=binning, regions=regions, mode=mode))

    def abort(self) -> None:
        """Ends the readout that runs, if one does; whoever waits for its frames gets Aborted."""
        self._core.abort()

    # ---- The rest

    @property
    def cooler(self) -> Cooler:
        """Cools the sensor slowly: camera.cooler.ramp_to(-20, rate=2)."""
        return Cooler(self)

    def on_event(self, handler: Handler) -> Subscription:
        """Calls the handler with all that the camera tells from now on, until the subscription ends.

        It is called on a thread of Python's, one event at a time, and may use the camera. What it
        raises goes to the log.
        """
        _given.handler("handler", handler)
        self._core.own()
        if self.closed:
            raise Aborted(f"{self._target}: the camera is closed, and tells nothing any more; open it anew")
        self._listener.hear_heartbeats()
        return self._line.add(self._number, handler)

    @property
    def statistics(self) -> Statistics:
        """What the camera has done since it was opened."""
        final = self._final
        return final if final is not None else Statistics(**self._core.statistics())

    @property
    def target(self) -> str:
        """As it was opened."""
        return self._target

    @property
    def address(self) -> str:
        """Where that is: "127.0.0.1:40123"."""
        return str(self._core.address())

    @property
    def sensor(self) -> tuple[int, int]:
        """Columns and rows of the sensor."""
        columns, rows = self._core.sensor()
        return (int(columns), int(rows))

    @property
    def identity(self) -> Identity:
        """Who the camera says it is: name, serial, version, bits."""
        return Identity(*self._core.identity())

    @property
    def time_scale(self) -> float:
        """Camera time by wall-clock time: 1, except for a simulated camera of this process."""
        return float(self._core.time_scale())

    @property
    def handle(self) -> int:
        """Of the C interface, for what that offers beyond; -1 when closed."""
        return int(self._core.handle())

    def wait_for_link(self, timeout: Seconds = 10) -> bool:
        """Waits until a connection that was lost is there again; False after `timeout` seconds."""
        return bool(self._core.wait_for_link(timeout))

    def restore(self) -> str:
        """Sends the settings that were made here again; what could not be restored, empty if all was."""
        return str(self._core.restore())

    def check_link(self, messages: int = 100) -> LinkCheck:
        """Has the camera send messages of random bytes back, and compares them."""
        return LinkCheck(*self._core.check_link(_given.whole("messages", messages, 1, _MOST_CHECKED)))

    def flight(self) -> str:
        """The last 10,000 things that happened to the camera: a JSON object a line."""
        return str(self._core.flight())

    # ---- Its end

    @property
    def closed(self) -> bool:
        """Whether it was closed."""
        return self._final is not None

    def close(self) -> None:
        """Closes the camera; a readout, and waits of other threads, end with Aborted. Frames stay.

        Does nothing in a forked child, whose camera it is not.
        """
        global _totals
        if self._core.is_foreign():  # the lock may be held by a thread that is not there
            return
        with self._closing:
            if self._final is not None:
                return
            figures = Statistics(**self._core.statistics())
            try:
                self._core.close()
            finally:
                with _totals_lock:
                    self._final = figures
                    _totals = _added(_totals, figures)
                self._held = self._target
                self._line.detach(self._number)

    def __copy__(self) -> NoReturn:
        raise TypeError("a camera cannot be copied: any thread may use the one there is")

    def __enter__(self) -> Camera:
        if self.closed:
            raise Aborted(f"{self._target}: the camera is closed; open it anew")
        return self

    def _leave(self, error: Optional[BaseException]) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_listener", None) is not None and not self.closed:
            try:
                self.close()
            except Exception:
                pass  # there is nobody to tell

    def __repr__(self) -> str:
        if self.closed:
            return f"<vxcam.Camera {self._target}, closed>"
        columns, rows = self.sensor
        return f"<vxcam.Camera {self._target}, {columns} x {rows} pixels>"
