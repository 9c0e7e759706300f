"""A program of a user, which type checkers have to be content with."""

from __future__ import annotations

import asyncio
import os
import tempfile
from datetime import datetime, timedelta
from typing import Optional

import vxcam


def told(event: vxcam.Event) -> None:
    print(event.kind, event.time, event.ccd_temp)


def take(target: str) -> float:
    with vxcam.Camera(target) as camera:
        camera.exposure = 0.02
        camera.exposure = timedelta(milliseconds=20)
        camera.target_temp = -20
        camera.mirroring = (False, True)
        camera.register[16] = 5
        camera.gpio[3] = "high"
        exposure: float = camera.exposure
        gain: int = camera.gain
        mirrored: bool = camera.mirroring.vertical
        area: Optional[vxcam.Area] = camera.area
        word: int = camera.register[16]
        print(exposure, gain, mirrored, area, word, camera.gpio & 8)
        print(camera.properties["gain"].range, camera.statistics.bytes_received, vxcam.statistics.reconnects)
        with camera.on_event(told):
            frame: vxcam.Frame = camera.grab(exposure=0.01, bits=16, area=(0, 0, 8, 8), timeout=10)
        middle: datetime = frame.times.middle
        uncertainty: timedelta = frame.times.uncertainty
        rows: tuple[int, ...] = frame.missing_rows
        print(middle, uncertainty, rows, frame.settings["gain"])
        total = 0
        for one in camera.stream(frames=3, buffers=4, when_full="drop"):
            total += one.sum
        camera.cooler.ramp_to(-20, rate=2)
        sharpness: Optional[float] = frame.measures.hfd
        print(sharpness, [star.elongation for star in frame.stars()])
        return total / frame.statistics.mean


def measured(target: str) -> float:
    with vxcam.Camera(target) as camera:
        exposure: float = camera.flat_exposure(0.5, longest=600).exposure
        found: vxcam.PhotonTransfer = camera.photon_transfer(4, (exposure / 10, timedelta(seconds=exposure)))
        well: Optional[float] = found.full_well
        return found.gain + (well or 0)


def again(folder: str) -> int:
    path = os.path.join(folder, "run.vxw")
    with vxcam.Capture(path) as capture, vxcam.Camera("sim?sensor=8x8&scale=50", capture=capture) as camera:
        total = camera.grab(exposure=0.01).sum
        record: vxcam.Record = camera.record(os.path.join(folder, "a.raw"), seconds=timedelta(seconds=0.2), exposure=0)
    with vxcam.Replay(path, speed=0) as replay, vxcam.Camera(replay) as camera:
        assert camera.grab(exposure=0.01).sum == total
    names: list[str] = [event.name for event in vxcam.decode(path) if event.sent]
    return len(names) + record.frames


async def watch(camera: vxcam.Camera) -> int:
    count = 0
    async for frame in camera.astream(frames=2):
        count += frame.number
    return count


def follow(progress: vxcam.SequenceProgress) -> None:
    print(progress.taken, progress.left, progress.file)


def night(folder: str) -> int:
    path = os.path.join(folder, "night.yaml")
    with open(path, "w") as file:
        file.write("steps: [{lights: {count: 2, exposure: 10ms}}]")
    try:
        sequence = vxcam.Sequence(path)
    except vxcam.PlanError as error:
        raise SystemExit(f"{error.mistakes[0][0]}")
    need: Optional[int] = sequence.disk_need
    seconds: list[float] = [step.exposure or 0 for step in sequence.steps]
    report: vxcam.SequenceReport = sequence.run("sim?sensor=8x8&scale=50", on_progress=follow)
    return report.taken + (need or 0) + len(seconds)


def main() -> None:
    with vxcam.Simulator(sensor=(64, 48), faults=["missing-packet:frame=9"]) as simulator:
        try:
            print(take(simulator.target))
            with vxcam.Camera(simulator) as camera:
                print(asyncio.run(watch(camera)))
        except vxcam.IncompleteFrame as error:
            print(error.frame.missing_rows)
        except vxcam.CameraError as error:
            print(error.code, error.sub_code)
    with tempfile.TemporaryDirectory() as folder:
        print(night(folder), again(folder))
    print(measured("sim?sensor=64x64&scale=10000"))
    print([found.target for found in vxcam.discover()])


if __name__ == "__main__":
    main()
