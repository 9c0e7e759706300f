"""Sequences: plans that are read, run, interrupted and gone on with."""

import os
import pathlib
import signal
import threading
import time
from datetime import datetime, timezone

import pytest

import vxcam
from conftest import SMALL, run_python, wait_until

PLAN = """
sensor: [64, 48]
header: ["OBSERVER=Anna"]
steps:
  - set: {gain: 2}
  - lights: {name: M31, count: 3, exposure: 20ms, gain: 1}
  - repeat:
      times: 2
      steps:
        - darks: {count: 1, exposure: 10ms}
        - wait: 100ms
  - bias: {count: 2}
"""
FILES = ["M31-0001", "M31-0002", "M31-0003", "dark-0004", "dark-0005", "bias-0006", "bias-0007"]


@pytest.fixture
def plan(tmp_path):
    def write(text=PLAN, name="night.yaml"):
        path = tmp_path / name
        path.write_text(text)
        return path

    return write


def names(report):
    return [pathlib.Path(file.path).stem for file in report.files]


def test_a_plan_says_what_it_comes_to(plan, tmp_path):
    sequence = vxcam.Sequence(plan())
    assert sequence.frames == 7 and sequence.target == "" and sequence.sensor == (64, 48)
    assert sequence.exposure == pytest.approx(0.08)
    assert sequence.duration == pytest.approx(0.08 + 0.2 + 7 * 0.1, abs=0.1)
    assert 7 * 64 * 48 * 2 < sequence.disk_need < 7 * 64 * 48 * 2 + 7 * 20_000
    assert sequence.folder == str(tmp_path / "night") and not (tmp_path / "night").exists()
    kinds = [(step.kind, step.line, step.number) for step in sequence.steps]
    assert kinds == [("set", 5, 1), ("lights", 6, 3), ("repeat", 7, 2), ("bias", 12, 2)]
    settings, lights, repeat, _ = sequence.steps
    assert settings.settings == {"gain": 2} and lights.settings == {"gain": 1}
    assert lights.name == "M31" and lights.exposure == pytest.approx(0.02)
    assert [(step.kind, step.line) for step in repeat.steps] == [("darks", 10), ("wait", 11)]
    assert repeat.steps[1].delay == pytest.approx(0.1)
    assert repr(sequence) == f"<vxcam.Sequence {plan()}, 7 frames to {tmp_path / 'night'}>"


def test_what_is_wrong_with_a_plan_is_told_with_its_line(plan):
    path = plan("steps:\n  - lights: {count: 3, exposure: 1s, gian: 2}\n  - darks: {count: -1, exposure: 1s}\n")
    with pytest.raises(vxcam.PlanError, match="night.yaml:2: .*gian") as caught:
        vxcam.Sequence(path)
    assert isinstance(caught.value, vxcam.UsageError)
    assert [line for line, _ in caught.value.mistakes] == [2, 3]
    assert "gian" in caught.value.mistakes[0][1] and "count" in caught.value.mistakes[1][1]
    with pytest.raises(vxcam.PlanError, match="night.yaml"):
        vxcam.Sequence(plan("steps: [lights"))


def test_a_plan_that_is_not_there_is_told(tmp_path):
    with pytest.raises(FileNotFoundError):
        vxcam.Sequence(tmp_path / "none.yaml")
    with pytest.raises(OSError, match="no regular file"):
        vxcam.Sequence(tmp_path)


def test_a_sequence_takes_its_frames(plan, tmp_path):
    fits = pytest.importorskip("astropy.io.fits")
    told, threads = [], set()

    def tell(progress):
        told.append(progress)
        threads.add(threading.current_thread())

    report = vxcam.Sequence(plan()).run(SMALL, on_progress=tell)
    assert report.complete and (report.runs, report.frames, report.taken, report.before) == (1, 7, 7, 0)
    assert names(report) == FILES and report.failures == ()
    assert report.journal == str(tmp_path / "night" / "night.journal")
    assert threads == {threading.main_thread()}
    assert [progress.file for progress in told if progress.file] == [file.path for file in report.files]
    assert [progress.taken for progress in told if progress.file] == list(range(1, 8))
    assert all(progress.frames == 7 and 0 <= progress.done <= 1 and progress.doing for progress in told)
    for file in report.files:
        assert os.path.getsize(file.path) == file.bytes and vxcam.verify(file.path).good
    with fits.open(report.files[0].path) as file:
        assert file[0].header["OBSERVER"] == "Anna" and file[0].header["SEQFRAME"] == 1


def test_a_simulated_camera_has_the_sensor_of_the_plan(plan):
    assert vxcam.Sequence(plan("target: sim?scale=50\n" + PLAN)).target == "sim?scale=50"
    report = vxcam.Sequence(plan("target: sim?scale=50\n" + PLAN)).run()
    assert report.complete and report.files[0].bytes < 64 * 48 * 2 + 20_000


def test_what_a_camera_cannot_do_is_told_before_anything_is_done(plan, camera, tmp_path):
    sent = camera.statistics.messages_sent
    for text, what in ((PLAN.replace("[64, 48]", "[128, 48]"), "sensor"),
                       ("steps: [{lights: {count: 1, exposure: 1s, area: [0, 0, 65, 4]}}]", "night.yaml:1: .*area")):
        sequence = vxcam.Sequence(plan(text))
        with pytest.raises(vxcam.UsageError, match=what):
            sequence.check(camera)
        with pytest.raises(vxcam.UsageError, match=what):
            sequence.run(camera)
    assert camera.statistics.messages_sent == sent
    needs = vxcam.Sequence(plan("steps: [{lights: {count: 2, exposure: 1s}}]")).check(camera)
    assert needs.frames == 2 and needs.disk_need > 2 * 64 * 48 * 2


def test_a_run_that_is_interrupted_is_gone_on_with(plan, tmp_path):
    sequence = vxcam.Sequence(plan(PLAN.replace("20ms", "10s")))  # 0.2 s

    def interrupt(progress):
        if progress.file and progress.taken == 2:
            raise RuntimeError("of the program")

    with vxcam.Camera(SMALL) as camera:
        with pytest.raises(RuntimeError, match="of the program"):
            sequence.run(camera, on_progress=interrupt)
        assert wait_until(lambda: camera.grab(exposure=0.01).complete)  # which is free again
        begun = sequence.report()
        assert not begun.complete and 2 <= begun.taken < 7 and begun.runs == 1
        with pytest.raises(FileExistsError, match="resume"):
            sequence.run(camera, resume=False)
        report = sequence.run(camera)
        assert report.complete and names(report) == FILES
        assert (report.runs, report.before) == (2, begun.taken)
        frames = camera.statistics.frames_complete
        assert sequence.run(camera) == report._replace(before=7)
        assert camera.statistics.frames_complete == frames, "nothing is left to do"
    elsewhere = sequence.run(SMALL, folder=tmp_path / "elsewhere", resume=False)
    assert elsewhere.complete and elsewhere.journal == str(tmp_path / "elsewhere" / "night.journal")


def test_ctrl_c_ends_a_run_in_order(plan, tmp_path):
    path = plan("sensor: [64, 48]\nsteps: [{lights: {count: 1, exposure: 10ms}}, {lights: {count: 1, exposure: 10min}}]")
    printed = run_python(f"""
        import os, signal, sys, threading, time, vxcam
        pressed = []
        def press(progress):
            if progress.taken == 1 and "exposing" in progress.doing and not pressed:
                pressed.append(time.monotonic())
                threading.Timer(0.1, lambda: (pressed.append(time.monotonic()), os.kill(os.getpid(), signal.SIGINT))).start()
        sequence = vxcam.Sequence(sys.argv[1])
        with vxcam.Camera({SMALL!r}) as camera:
            try:
                sequence.run(camera, on_progress=press)
            except KeyboardInterrupt:
                took = time.monotonic() - pressed[1]
                report = sequence.report()
                print(took < 0.2 or took, report.taken, report.complete)
                print(camera.grab(exposure=0.01).complete, camera.statistics.frames_aborted)
    """, str(path))
    assert printed.split() == ["True", "1", "False", "True", "1"]


def test_a_camera_that_is_silent_does_not_keep_ctrl_c(plan, simulator):
    sequence = vxcam.Sequence(plan("steps: [{lights: {count: 2, exposure: 10min}}]"))
    pressed = []

    def press():
        pressed.append(time.monotonic())
        signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)

    def silence(progress):
        if "exposing" in progress.doing and not pressed:
            simulator.inject("half-open")
            press()

    camera = vxcam.Camera(simulator)
    with pytest.raises(KeyboardInterrupt):
        sequence.run(camera, on_progress=silence)
    assert time.monotonic() - pressed[0] < 0.3
    camera.close()


def test_another_thread_stops_a_run(plan):
    sequence = vxcam.Sequence(plan("sensor: [64, 48]\nsteps: [{lights: {count: 100, exposure: 500ms}}]"))
    outcome = []

    def run():
        try:
            sequence.run(SMALL)
        except vxcam.Aborted:
            outcome.append(sequence.report().taken)

    sequence.stop()  # nothing runs
    thread = threading.Thread(target=run)
    thread.start()
    assert wait_until(lambda: (sequence.report() or sequence).frames and (sequence.report() and sequence.report().taken))
    sequence.stop(behind_frame=True)
    thread.join(10)
    assert outcome and 1 <= outcome[0] < 100


def test_other_threads_run_meanwhile(plan, camera):
    counted = [0]

    def count():
        while counted[0] >= 0:
            counted[0] += 1

    thread = threading.Thread(target=count, daemon=True)
    thread.start()
    vxcam.Sequence(plan("steps: [{wait: 10s}]")).run(camera)  # 0.2 s
    assert counted[0] > 1000
    counted[0] = -10**9
    thread.join(5)


def test_a_lost_link_is_waited_for_and_told(plan):
    target = "sim?sensor=64x48&scale=50&heartbeat=0.05&fault=close:readout=2"
    before = datetime.now(timezone.utc)
    report = vxcam.Sequence(plan()).run(target)
    assert report.complete and names(report) == FILES
    assert len(report.failures) == 1 and "M31 2" in report.failures[0].text
    assert before <= report.failures[0].time.astimezone(timezone.utc) <= datetime.now(timezone.utc)


def test_a_camera_that_fails_at_last_is_raised(plan):
    sequence = vxcam.Sequence(plan("retries: 1\nsteps: [{lights: {count: 2, exposure: 20ms}}]"))
    with pytest.raises(vxcam.IncompleteFrame):
        sequence.run("sim?sensor=64x48&scale=50&fault=missing-packet:packet=3,times=0")
    report = sequence.report()
    assert not report.complete and report.taken == 0 and len(report.failures) == 2


def test_commands_run_and_one_that_fails_is_told(plan, camera, tmp_path):
    sequence = vxcam.Sequence(plan("""
steps:
  - run: "echo $VXCAM_FRAMES > said"
  - lights: {count: 1, exposure: 10ms}
  - run: "exit 3"
""".replace("said", str(tmp_path / "said"))))
    assert sequence.check().commands == 2
    with pytest.raises(vxcam.HookError, match="code 3"):
        sequence.run(camera)
    assert (tmp_path / "said").read_text() == "1\n" and sequence.report().taken == 1


def test_a_plan_that_was_changed_is_refused(plan, camera):
    vxcam.Sequence(plan()).run(camera)
    changed = vxcam.Sequence(plan(PLAN.replace("20ms", "30ms")))
    for call in (changed.report, lambda: changed.run(camera)):
        with pytest.raises(vxcam.UsageError, match="another plan"):
            call()


def test_what_is_no_listener_and_no_camera_is_refused(plan, camera, tmp_path):
    with pytest.raises(TypeError):
        vxcam.Sequence(plan()).run(camera, on_progress="tell")
    with pytest.raises(vxcam.UsageError, match="5"):
        vxcam.Sequence(plan()).run(5)
    with pytest.raises(vxcam.UsageError, match="give an open camera"):
        vxcam.Sequence(plan()).check(SMALL)
    assert not (tmp_path / "night").exists()
    assert vxcam.Sequence(plan()).report() is None


def test_a_sequence_that_runs_is_not_run_twice(plan, camera):
    sequence = vxcam.Sequence(plan())
    refused = []

    def again(progress):
        if not refused:
            with pytest.raises(OSError, match="runs already"):
                vxcam.Sequence(plan()).run(SMALL)
            refused.append(True)

    assert sequence.run(camera, on_progress=again).complete and refused
