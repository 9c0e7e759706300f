"""Sequences: many frames by a plan that is written down, begun and gone on with."""

from __future__ import annotations

import os
from collections.abc import Callable, Mapping
from datetime import datetime, timezone
from typing import Any, NamedTuple, Optional, Union

from . import _given, _vxcam
from ._camera import Camera, HasTarget
from ._facts import software
from ._given import Path


class SequenceStep(NamedTuple):
    """A step of a plan, and the line where it stands.

    `kind` is "lights", "darks", "bias", "flats", "temperature", "warm-up", "set", "wait", "run" or
    "repeat". `number` is how many frames, or how often; `name` what the names of the files begin
    with; `exposure` and `delay` are seconds, `temperature` degrees, `ramp` degrees a minute;
    `settings` are set before the first frame; `command` runs as the step, or between frames.
    """

    kind: str
    line: int
    number: int
    name: str
    exposure: Optional[float]
    settings: Mapping[str, Any]
    temperature: Optional[float]
    ramp: float
    delay: float
    command: str
    steps: tuple[SequenceStep, ...]


class SequenceNeeds(NamedTuple):
    """What a plan comes to.

    Frames, commands, seconds of exposure and, commands not counted, in all, by the camera's clock;
    bytes on the disk, None while the sensor is not known.
    """

    frames: int
    commands: int
    exposure: float
    duration: float
    disk_need: Optional[int]


class SequenceProgress(NamedTuple):
    """Where a run is.

    `taken` frames of `frames`, those of earlier runs included; `done` of the time, 0 to 1; `left`
    seconds; `doing` is a text for people. `file` has just been written, or is None.
    """

    taken: int
    frames: int
    done: float
    left: float
    doing: str
    file: Optional[str]


class SequenceFile(NamedTuple):
    """The file of a frame that was taken."""

    path: str
    bytes: int


class SequenceFailure(NamedTuple):
    """Something that went wrong, though the sequence may have gone on: when (UTC), and what."""

    time: datetime
    text: str


class SequenceReport(NamedTuple):
    """What became of a sequence in all its runs.

    `frames` is how many the plan has, `taken` how many there are, `before` how many there were when
    run() began (all of them where it did not); `files` are theirs, in their order; `failures` all
    that went wrong.
    """

    journal: str
    runs: int
    frames: int
    before: int
    complete: bool
    files: tuple[SequenceFile, ...]
    failures: tuple[SequenceFailure, ...]

    @property
    def taken(self) -> int:
        """Frames that are taken."""
        return len(self.files)


Listener = Callable[[SequenceProgress], object]


def _folder(folder: Optional[Path]) -> Optional[str]:
    return None if folder is None else _given.path("folder", folder)


def _step(given: Mapping[str, Any]) -> SequenceStep:
    usual: dict[str, Any] = {"exposure": None, "temperature": None, "ramp": 0.0}
    usual.update(given, steps=tuple(_step(one) for one in given["steps"]))
    return SequenceStep(**usual)


def _failure(utc: str, text: str) -> SequenceFailure:
    return SequenceFailure(datetime.fromisoformat(utc).replace(tzinfo=timezone.utc), text)


def _report(told: tuple[Any, ...]) -> SequenceReport:
    journal, runs, frames, before, complete, files, failures = told
    return SequenceReport(journal, runs, frames, before, complete, tuple(SequenceFile(*file) for file in files),
                          tuple(_failure(*failure) for failure in failures))


class Sequence:
    """A plan that was read and checked: `vxcam.Sequence("night.yaml").run()`.

    How plans are written: docs/sequence.md. Raises PlanError, which names each mistake with its
    line, and OSError for a file that cannot be read.
    """

    __slots__ = ("_core", "_path", "_run", "__weakref__")

    def __init__(self, plan: Path) -> None:
        self._path = _given.path("plan", plan)
        os.stat(self._path)  # raises what is the matter with a name
        self._core = _vxcam.Sequence(self._path)
        self._run: Optional[_vxcam.SequenceRun] = None

    @property
    def path(self) -> str:
        """Of the plan."""
        return self._path

    @property
    def target(self) -> str:
        """The camera that the plan names; empty if it names none."""
        return self._core.target()

    @property
    def folder(self) -> str:
        """Where frames and journal go if run() says no other."""
        return self._core.folder()

    @property
    def sensor(self) -> Optional[tuple[int, int]]:
        """Columns and rows of the sensor that the plan is made for, if it says so."""
        return self._core.sensor()

    @property
    def steps(self) -> tuple[SequenceStep, ...]:
        """What is done, one after the other."""
        return tuple(_step(one) for one in self._core.steps())

    @property
    def frames(self) -> int:
        """How many frames that makes, repeats counted."""
        return self.check().frames

    @property
    def exposure(self) -> float:
        """Seconds that they are exposed in all."""
        return self.check().exposure

    @property
    def duration(self) -> float:
        """Seconds that all takes, as far as it can be known; commands count for nothing."""
        return self.check().duration

    @property
    def disk_need(self) -> Optional[int]:
        """Bytes of all files; None if the plan does not say which sensor it is for: see check()."""
        return self.check().disk_need

    def check(self, camera: Optional[Camera] = None) -> SequenceNeeds:
        """What the plan comes to, with this camera if one is given.

        Raises UsageError for what that camera cannot do: another sensor than the plan's, areas that
        reach beyond it, settings that it cannot take. Nothing is sent to it. run() does the same.
        """
        if camera is None:
            return SequenceNeeds(*self._core.needs())
        if not isinstance(camera, Camera):
            _given.refuse_type("camera", camera, "an open camera: with vxcam.Camera(...) as camera: ...")
        return SequenceNeeds(*self._core.check(camera._core))

    def run(
        self,
        camera: Union[Camera, str, HasTarget, None] = None,
        *,
        folder: Optional[Path] = None,
        resume: bool = True,
        on_progress: Optional[Listener] = None,
    ) -> SequenceReport:
        """Takes the frames, or those that are left, and tells what became of all.

        camera: an open one; or a target, which is opened for so long; else the plan's target.
        folder: where frames and journal go; else as the plan says.
        resume: go on behind the last frame if the sequence has been begun there; when it is complete,
            nothing is done. False: FileExistsError then.
        on_progress: called on this thread with a SequenceProgress, for each file and some times a
            second. What it raises ends the run, and is raised.

        A link that is lost is waited for, and a frame that fails is taken again some times, as the
        plan says: the report tells it. Ctrl-C aborts the exposure, and is raised; whatever ends a
        run, the next one goes on behind the last frame on the disk. Raises UsageError for what this
        camera cannot do, before anything is done, HookError when a command fails, OSError for the
        disk, and what the camera fails with at last; report() tells what there is then.
        """
        if on_progress is not None:
            _given.handler("on_progress", on_progress)
        if not (camera is None or isinstance(getattr(camera, "target", camera), str)):
            _given.refuse_type("camera", camera, "an open camera, a Simulator or a target")
        run = self._run = self._core.begin(_folder(folder), _given.flag("resume", resume), software())
        try:
            if not run.complete():
                self._take(run, camera, on_progress)
            return _report(run.report())
        finally:
            self._run = None
            run.close()

    def _take(
        self, run: _vxcam.SequenceRun, camera: Union[Camera, str, HasTarget, None], listener: Optional[Listener]
    ) -> None:
        def tell(*told: Any) -> None:
            if listener is not None:
                listener(SequenceProgress(*told))

        if isinstance(camera, Camera):
            run.run(camera._core, tell)
            return
        with Camera(self._fitting(camera or self.target or "sim")) as opened:
            run.run(opened._core, tell)

    def _fitting(self, target: Union[str, HasTarget]) -> Union[str, HasTarget]:
        """A simulated camera has the sensor that the plan is for."""
        if self.sensor is None or not isinstance(target, str) or "sensor=" in target:
            return target
        kind, _, options = target.partition("?")
        size = "sensor={}x{}".format(*self.sensor)
        return "&".join([f"sim?{size}", *filter(None, [options])]) if kind == "sim" else target

    def stop(self, behind_frame: bool = False) -> None:
        """Ends the run that another thread waits for, there with Aborted; at once, or behind the frame
        that is under way. Does nothing when there is none."""
        run, is_later = self._run, _given.flag("behind_frame", behind_frame)
        if run is not None:
            run.stop(is_later)

    def report(self, folder: Optional[Path] = None) -> Optional[SequenceReport]:
        """What became of the sequence so far, by its journal in the folder; None if it was not begun."""
        told = self._core.report(_folder(folder))
        return None if told is None else _report(told)

    def __repr__(self) -> str:
        return f"<vxcam.Sequence {self._path}, {self.frames} frames to {self.folder}>"
