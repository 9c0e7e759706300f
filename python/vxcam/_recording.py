"""Records: many frames in one file, written at the rate at which they come, and looked at again."""

from __future__ import annotations

import errno
import os
import time
import weakref
from typing import Any, NamedTuple, Optional

from . import _given, _vxcam
from ._cooler import Seconds
from ._errors import CameraTimeout, UsageError
from ._facts import Header, cards, software
from ._frame import Frame
from ._given import Path
from ._scope import Scope


class RecordedFile(NamedTuple):
    """A file of a record, with the frames and bytes that are in it."""

    path: str
    frames: int
    bytes: int


class Record(NamedTuple):
    """What is in a record: frames, how many of them are incomplete, how many were dropped before the
    last one, bytes of pixels, and its files."""

    frames: int
    incomplete: int
    dropped: int
    pixel_bytes: int
    files: tuple[RecordedFile, ...]


class Finding(NamedTuple):
    """Something in a record that is not as it should be; `frame` counts from 0, or is None."""

    check: str
    frame: Optional[int]
    text: str


class Verdict(NamedTuple):
    """What verify() found. `ended` is "complete" or "stopped" as the record says it, or "running".

    `incomplete` counts the frames that say so themselves, which is no finding.
    """

    path: str
    format: str
    frames: int
    ended: str
    findings: tuple[Finding, ...]
    incomplete: int = 0

    @property
    def good(self) -> bool:
        """Whether there are no findings."""
        return not self.findings


_running: weakref.WeakSet[Recorder] = weakref.WeakSet()  # that were begun, and have not ended
_COMPRESSIONS = ("none", "gzip", "rice")
_ENDS = ("complete", "stopped", "failed")


def _count(name: str, value: int, least: int = 0) -> int:
    return _given.whole(name, value, least, 2**63 - 1)


class Recorder(Scope):
    """A record of frames: `with vxcam.Recorder("night.h5") as record: record.write(frame)`.

    The ending of the name says how: .h5, .fits, .tif, .ser, .raw. Frames must be of one size.
    compress: "none", "gzip" or "rice", as the format has it.
    split: bytes; when a file has so many, another one is begun. 0: one file.
    overwrite: replace files that exist.
    header: further cards, as in Frame.to_fits().
    buffers: frames that wait for the disk, at most; write() waits while there are more.
    reserve: bytes of the disk that stay free.
    measure: keep level, noise and stars of each frame beside it, as Frame.measures has them.

    Whoever opens the file has all frames but the last tenth of a second, also when this process is
    killed. Raises UsageError for what cannot be, FileExistsError and other OSErrors for files.
    """

    __slots__ = ("_core", "__weakref__")

    def __init__(
        self,
        path: Path,
        *,
        compress: str = "none",
        split: int = 0,
        overwrite: bool = False,
        header: Optional[Header] = None,
        buffers: int = 4,
        reserve: int = 0,
        measure: bool = False,
    ) -> None:
        self._core = _vxcam.Recorder(
            _given.path("path", path), _given.word("compress", compress, _COMPRESSIONS),
            _given.flag("overwrite", overwrite), _count("split", split), _count("buffers", buffers, 1),
            _count("reserve", reserve), _given.flag("measure", measure), software(), cards(header))
        _running.add(self)

    def write(self, frame: Frame) -> None:
        """Takes a frame, which is written behind this call; waits while too many are held.

        What goes wrong then is raised by a later write(), or by finish(), which ends a with block:
        OSError when the disk is full or takes no more, UsageError for a frame of another size than the
        first one. What was written stays readable.
        """
        if not isinstance(frame, Frame):
            _given.refuse_type("frame", frame, "a vxcam.Frame")
        self._write(frame._core)

    def _write(self, frame: _vxcam.Frame) -> None:
        if not self._core.write(frame):
            self._core.throw_failure()
            raise UsageError("the record has ended, and takes no more frames")

    def finish(self, how: str = "complete", dropped: Optional[int] = None) -> Record:
        """Waits until all is on the disk, and tells what is in the record.

        `how` is written in it ("complete", "stopped", "failed"), and how many frames were dropped in
        all. Raises as write() does.
        """
        end = _given.word("how", how, _ENDS), None if dropped is None else _count("dropped", dropped)
        try:
            self._core.finish(*end)
        finally:
            _running.discard(self)
        return self.record

    @property
    def record(self) -> Record:
        """What is in it so far."""
        frames, incomplete, dropped, pixel_bytes, files = self._core.books()
        return Record(frames, incomplete, dropped, pixel_bytes, tuple(RecordedFile(*file) for file in files))

    def _end(self, error: BaseException, dropped: Optional[int] = None) -> None:
        try:
            self.finish("stopped" if isinstance(error, KeyboardInterrupt) else "failed", dropped)
        except Exception:
            pass  # the error that ended it is told

    def _leave(self, error: Optional[BaseException]) -> None:
        if error is None:
            self.finish()
        else:
            self._end(error)

    def __repr__(self) -> str:
        record = self.record
        return f"<vxcam.Recorder: {record.frames} frames in {', '.join(file.path for file in record.files) or 'no file yet'}>"


def seconds_of(name: str, value: Seconds) -> float:
    """A time that is longer than 0."""
    seconds = _given.seconds(name, value)
    if seconds == 0:
        _given.refuse(name, value, "more than 0 seconds")
    return seconds


def recorded(camera: Any, recorder: Recorder, frames: int, seconds: Optional[float], stream_of: Any) -> Record:
    """Streams into the record, and ends it: after so many frames or seconds; 0 and None: until it is stopped."""
    dropped, taken = None, 0
    end = None if seconds is None else time.monotonic() + seconds

    def is_over() -> bool:
        return 0 < frames <= taken or (end is not None and time.monotonic() >= end)

    try:
        recorder._core.listen(camera._core)
        with stream_of() as stream:
            while not is_over():
                left = None if end is None else max(end - time.monotonic(), 0.0)
                frame = stream._core.next(stream._timeout, left)
                if frame is None:
                    break
                recorder._write(frame)
                taken += 1
                dropped = stream.dropped
            stream.stop()
            while not 0 < frames <= taken:  # what had come before the end
                frame = stream._core.next(0, None)
                if frame is None:
                    break
                recorder._write(frame)
                taken += 1
            dropped = stream.dropped
    except BaseException as error:
        recorder._end(error, dropped)
        raise
    record = recorder.finish("complete", dropped)
    if seconds is not None and taken == 0:
        raise CameraTimeout(f"{camera.target}: no record was made: no frame came within {seconds:g} s;"
                            " record for longer than an exposure, and look whether a trigger is waited for")
    return record


def verify(path: Path, truth: Optional[Path] = None) -> Verdict:
    """Looks at each frame of a record, or of one FITS file of a frame: `vxcam.verify("night.h5").good`.

    Its pixels against its sum and check value, rows that are missing, that numbers and times go on,
    and that the file is whole. One in HDF5 that this process is writing is refused until it has ended.
    `truth` is a file with what a simulated camera printed with --json.
    Raises OSError for what cannot be read at all, UsageError for a name that says no format.
    """
    file = _given.path("path", path)
    told = "" if truth is None else _given.path("truth", truth)
    os.stat(file)  # raises what is the matter with a name
    try:
        name, format, frames, ended, findings, incomplete = _vxcam.verify(file, told)
    except OSError:
        if not _is_running(file):
            raise
        raise OSError(errno.EBUSY, "this process still writes the record, and can read it when that has ended;"
                      " another one can at any time, such as vxcam verify", file) from None
    return Verdict(name, format, frames, ended, tuple(Finding(*finding) for finding in findings), incomplete)


def _is_running(path: str) -> bool:
    for recorder in list(_running):
        try:
            if any(os.path.samefile(file.path, path) for file in recorder.record.files):
                return True
        except (OSError, UsageError):
            pass  # the file is gone, or the record is that of a parent process
    return False
