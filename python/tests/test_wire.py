"""Recordings of the wire: made, played, and read."""

import json
import os
import struct
import subprocess

import pytest

import vxcam
from conftest import wait_until


@pytest.fixture
def recorded(simulator, tmp_path):
    """A recording, the frame in it, and how many bytes went each way."""
    path = tmp_path / "run.vxw"
    with vxcam.Capture(path) as capture, vxcam.Camera(simulator, capture=capture) as camera:
        camera.gain = 2
        frame = camera.grab(exposure=0.01)
        figures = camera.statistics
    return path, frame, capture.books, figures


def test_a_capture_has_all_bytes(recorded):
    path, _, books, figures = recorded
    assert books.cameras == 1 and books.file_bytes == path.stat().st_size
    assert books.received >= figures.bytes_received > 64 * 48 * 2 and books.sent >= figures.bytes_sent > 0
    headers = sum(12 + len(event.payload) for event in vxcam.decode(path) if event.kind == "message" and not event.sent)
    assert headers == books.received


def test_a_recording_is_decoded_as_the_program_does(recorded):
    path, frame, _, _ = recorded
    programs = os.environ.get("VXCAM_PROGRAMS")
    if not programs:
        pytest.skip("the program was not built")
    printed = subprocess.run([os.path.join(programs.split(":")[0], "vxcam"), "decode", str(path), "--json", "--payload"],
                             capture_output=True, text=True, check=True, timeout=60).stdout
    *lines, end = [json.loads(line) for line in printed.splitlines()]
    events = vxcam.decode(path)
    told = list(events)
    assert len(told) == len(lines) > 50
    for event, line in zip(told, lines):
        assert (event.kind, event.camera) == (line["event"], line["camera"])
        assert event.seconds == pytest.approx(line["t"], abs=1e-6)
        if event.kind == "message":
            assert (event.name, event.id, event.number) == (line["name"], line["id"], line["number"])
            assert event.sent == (line["direction"] == "sent") and event.payload.hex() == line["payload"]
            shown = {name: list(value) if isinstance(value, tuple) else value for name, value in event.fields.items()}
            assert shown == line.get("fields", {})
    assert events.condition.whole and events.condition.blocks == end["blocks"]


def test_messages_say_what_was_asked(recorded):
    path, frame, _, _ = recorded
    events = list(vxcam.decode(path))
    assert events[0].kind == "opened" and events[0].about["software"].startswith("vxcam.py")
    gain, = [event for event in events if event.name == "SetGain"]
    assert gain.sent and gain.fields == {"gain": 2} and gain.payload == struct.pack("<I", 2) and gain.taken
    packets = [event for event in events if event.name == "16-bit pixel packet"]
    assert b"".join(event.payload[-event.fields["pixel_bytes"]:] for event in packets) == frame.array.tobytes()
    assert {event.fields["packets"] for event in packets} == {len(packets)}
    assert all(0 <= event.seconds < 60 and event.time.tzinfo for event in events)


def test_a_replay_is_the_camera_once_more(recorded):
    path, frame, _, _ = recorded
    with vxcam.Replay(path, speed=0) as replay:
        with vxcam.Camera(replay) as camera:
            camera.gain = 2
            again = camera.grab(exposure=0.01)
        books = replay.wait(30)
        assert again.complete and (again.array == frame.array).all()
        assert books.complete and books.skipped == 0 and books.played > 50
        assert replay.plays == 1 and replay.condition.whole
    with pytest.raises(vxcam.NotFoundError):
        vxcam.Camera(replay)


def test_a_replay_serves_one_client_after_another(recorded):
    path, frame, _, _ = recorded
    with vxcam.Replay(path, speed=0, loop=True) as replay:
        for _ in range(2):
            with vxcam.Camera(replay.target) as camera:
                camera.gain = 2
                assert camera.grab(exposure=0.01).sum == frame.sum
        assert wait_until(lambda: replay.plays == 2)
        with pytest.raises(vxcam.CameraTimeout, match="not over after 0.1 s: close the camera"):
            replay.wait(0.1)


def test_a_recording_that_was_cut_off_says_so(recorded, tmp_path):
    path = recorded[0]
    (tmp_path / "cut.vxw").write_bytes(path.read_bytes()[:-50])
    events = vxcam.decode(tmp_path / "cut.vxw")
    list(events)
    assert not events.condition.whole and not events.condition.ended and "whole" in events.condition.text


def test_files_that_are_none_are_told(tmp_path, recorded):
    (tmp_path / "a.txt").write_text("no recording, but longer than the head of one")
    for use in (vxcam.decode, vxcam.Replay):
        with pytest.raises(FileNotFoundError, match="none.vxw"):
            use(tmp_path / "none.vxw")
        with pytest.raises(OSError, match="a.txt: is no recording of the wire"):
            use(tmp_path / "a.txt")
    with pytest.raises(FileExistsError, match="run.vxw"):
        vxcam.Capture(recorded[0])
    vxcam.Capture(recorded[0], overwrite=True).finish()
    assert list(vxcam.decode(recorded[0])) == []


@pytest.mark.parametrize("given", [{"port": 70000}, {"port": "x"}, {"speed": -1}, {"speed": 1e9}, {"speed": "max"},
                                   {"camera": 256}, {"loop": 2}])
def test_a_replay_that_cannot_be_is_refused(recorded, given):
    with pytest.raises(vxcam.UsageError, match=list(given)[0]):
        vxcam.Replay(recorded[0], **given)


def test_a_port_that_is_taken_is_told(recorded):
    with vxcam.Replay(recorded[0]) as replay:
        port = int(replay.target.rpartition(":")[2])
        with pytest.raises(vxcam.BusyError, match=str(port)):
            vxcam.Replay(recorded[0], port=port)


def test_what_is_no_capture_is_refused(simulator):
    with pytest.raises(vxcam.WrongTypeError, match="capture"):
        vxcam.Camera(simulator, capture="run.vxw")
