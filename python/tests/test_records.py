"""Records of many frames, as others read them."""

import datetime
import errno
import threading
import time
import zlib

import numpy
import pytest

import vxcam
from conftest import SMALL, run_python, wait_until


@pytest.fixture
def seen(simulator):
    """A simulator that knows what it sent, and a camera."""
    with vxcam.Camera(simulator) as opened:
        opened.exposure = 0.01
        yield simulator, opened


def test_a_record_in_hdf5_has_what_was_sent(seen, tmp_path):
    h5py = pytest.importorskip("h5py")
    simulator, camera = seen
    record = camera.record(tmp_path / "night.h5", frames=12)
    assert (record.frames, record.incomplete, record.dropped) == (12, 0, 0)
    assert record.pixel_bytes == 12 * 64 * 48 * 2
    assert [(file.path, file.frames) for file in record.files] == [(str(tmp_path / "night.h5"), 12)]
    with h5py.File(tmp_path / "night.h5", "r") as file:
        data = file["entry/data/data"][:]
        assert data.shape == (12, 48, 64) and data.dtype == numpy.uint16
        sent = simulator.frames
        assert [int(frame.sum()) for frame in data] == [frame.sum for frame in sent]
        assert [zlib.crc32(frame.tobytes()) for frame in data] == [frame.crc for frame in sent]


@pytest.mark.parametrize("compress", ["none", "rice", "gzip"])
def test_a_record_in_fits_has_its_cards_and_pixels(seen, tmp_path, compress):
    fits = pytest.importorskip("astropy.io.fits")
    simulator, camera = seen
    camera.record(tmp_path / "night.fits", frames=3, compress=compress, header={"OBJECT": "M31"})
    with fits.open(tmp_path / "night.fits") as file:
        assert file[0].header["OBJECT"] == "M31" and file[0].header["RECEND"] == "complete"
        frames = file[0].data if compress == "none" else [part.data for part in file[1:4]]
        assert [int(frame.sum(dtype="uint64")) for frame in frames] == [frame.sum for frame in simulator.frames]


@pytest.mark.parametrize("name", ["a.h5", "a.fits", "a.tif", "a.ser", "a.raw"])
def test_a_record_is_good_as_it_was_written(camera, tmp_path, name):
    camera.record(tmp_path / name, frames=5)
    verdict = vxcam.verify(tmp_path / name)
    assert verdict.good and verdict.frames == 5 and verdict.ended == "complete"
    assert verdict.path == str(tmp_path / name)


def test_a_pixel_that_was_changed_is_found(camera, tmp_path):
    camera.record(tmp_path / "a.raw", frames=5)
    with open(tmp_path / "a.raw", "r+b") as file:
        file.seek(3 * 64 * 48 * 2 + 100)
        byte = file.read(1)[0]
        file.seek(-1, 1)
        file.write(bytes([byte ^ 1]))
    verdict = vxcam.verify(tmp_path / "a.raw")
    assert not verdict.good
    assert {(finding.check, finding.frame) for finding in verdict.findings} >= {("sum", 3), ("crc", 3)}
    assert all(finding.text for finding in verdict.findings)


def test_a_record_is_split(camera, tmp_path):
    record = camera.record(tmp_path / "a.raw", frames=6, exposure=7.5, split=2 * 64 * 48 * 2)
    assert record.frames == sum(file.frames for file in record.files) == 6 and len(record.files) > 1
    assert [file.path for file in record.files][:2] == [str(tmp_path / f"a-000{i}.raw") for i in (1, 2)]
    assert all(vxcam.verify(file.path).good for file in record.files)


def test_a_record_that_is_there_is_not_replaced_unless_it_shall_be(camera, tmp_path):
    camera.record(tmp_path / "a.h5", frames=2)
    with pytest.raises(FileExistsError, match="a.h5"):
        camera.record(tmp_path / "a.h5", frames=1)
    assert vxcam.verify(tmp_path / "a.h5").frames == 2
    assert camera.record(tmp_path / "a.h5", frames=1, overwrite=True).frames == 1


@pytest.mark.parametrize("name, options, what", [
    ("a.h5", {"compress": "zip"}, "compress"), ("a.jpg", {}, "a.jpg"), ("a.raw", {"compress": "gzip"}, "a.raw"),
    ("a.raw", {"split": -1}, "split"), ("a.raw", {"header": {"AIRMASS": None}}, "AIRMASS")])
def test_a_record_that_cannot_be_is_refused_before_a_frame_is_taken(camera, tmp_path, name, options, what):
    with pytest.raises(vxcam.UsageError, match=what):
        camera.record(tmp_path / name, frames=1, **options)
    assert camera.statistics.frames_complete == 0 and not list(tmp_path.iterdir())


def test_incomplete_frames_are_counted(tmp_path):
    with vxcam.Camera(SMALL + "&fault=missing-packet:readout=1,frame=2,packet=3") as camera:
        record = camera.record(tmp_path / "a.h5", frames=3, exposure=0.01)
    assert (record.frames, record.incomplete) == (3, 1)
    verdict = vxcam.verify(tmp_path / "a.h5")
    assert (verdict.good, verdict.frames, verdict.incomplete) == (True, 3, 1)


def test_what_came_before_a_failure_is_readable(camera, tmp_path):
    stopper = threading.Thread(target=lambda: wait_until(lambda: camera.statistics.frames_complete >= 3)
                               and camera.abort())
    stopper.start()
    with pytest.raises(vxcam.Aborted):
        camera.record(tmp_path / "a.raw")
    stopper.join()
    verdict = vxcam.verify(tmp_path / "a.raw")
    assert verdict.ended == "failed" and verdict.frames >= 1
    assert {finding.check for finding in verdict.findings} <= {"ended"}


def test_ctrl_c_ends_a_record_in_order(tmp_path):
    printed = run_python(f"""
        import os, signal, sys, threading, time, vxcam
        with vxcam.Camera({SMALL!r}) as camera:
            camera.exposure = 0.01
            def press():
                while not os.path.exists(sys.argv[1]):  # which the first frame makes
                    time.sleep(0.005)
                os.kill(os.getpid(), signal.SIGINT)
            threading.Thread(target=press).start()
            try:
                camera.record(sys.argv[1])
            except KeyboardInterrupt:
                verdict = vxcam.verify(sys.argv[1])
                print(verdict.ended, verdict.frames >= 1)
    """, str(tmp_path / "a.h5"))
    assert printed == "stopped True"


def test_frames_of_ones_own_choice_are_recorded(camera, tmp_path):
    with vxcam.Recorder(tmp_path / "odd.h5") as recorder:
        for frame in camera.stream(frames=6):
            if frame.number % 2:
                recorder.write(frame)
    assert recorder.record.frames == 3 and vxcam.verify(tmp_path / "odd.h5").frames == 3
    with pytest.raises(vxcam.UsageError, match="has ended"):
        recorder.write(frame)


def test_a_frame_of_another_size_ends_a_record(camera, tmp_path):
    recorder = vxcam.Recorder(tmp_path / "a.raw")
    recorder.write(camera.grab())
    with pytest.raises(vxcam.UsageError):
        recorder.write(camera.grab(area=(0, 0, 16, 16)))
        recorder.finish()
    assert vxcam.verify(tmp_path / "a.raw").frames == 1


def test_what_is_no_record_is_told(tmp_path):
    with pytest.raises(FileNotFoundError):
        vxcam.verify(tmp_path / "none.h5")
    (tmp_path / "a.txt").write_text("no frames")
    with pytest.raises(vxcam.UsageError, match="a.txt"):
        vxcam.verify(tmp_path / "a.txt")


@pytest.mark.parametrize("name", ["a.h5", "a.fits"])
def test_a_record_that_still_grows_says_so(camera, tmp_path, name):
    path = tmp_path / name
    with vxcam.Recorder(path) as recorder:
        recorder.write(camera.grab())
        assert wait_until(lambda: recorder.record.frames == 1 and path.exists())
        try:
            assert vxcam.verify(path).ended == "running"
        except OSError as error:  # HDF5 does not open what it is writing itself
            assert name == "a.h5" and error.errno == errno.EBUSY and "this process still writes the record" in str(error)
    assert vxcam.verify(path).ended == "complete"


@pytest.mark.parametrize("given", [0.3, datetime.timedelta(seconds=0.3)])
def test_a_record_of_some_time_is_complete(camera, tmp_path, given):
    begin = time.monotonic()
    record = camera.record(tmp_path / "a.h5", seconds=given)
    assert 0.3 <= time.monotonic() - begin < 10
    verdict = vxcam.verify(tmp_path / "a.h5")
    assert verdict.good and verdict.ended == "complete" and verdict.frames == record.frames > 0
    assert camera.grab().complete


def test_frames_may_end_a_record_before_its_time(camera, tmp_path):
    record = camera.record(tmp_path / "a.h5", frames=2, seconds=3600)
    assert record.frames == 2 and vxcam.verify(tmp_path / "a.h5").ended == "complete"


def test_a_time_in_which_no_frame_came_makes_no_record(camera, tmp_path):
    with pytest.raises(vxcam.CameraTimeout, match=r"^sim.*no record was made: no frame came within 0.2 s; record for longer"):
        camera.record(tmp_path / "a.h5", seconds=0.2, exposure=4000)
    assert not list(tmp_path.iterdir())
    assert camera.grab(exposure=0.01).complete


@pytest.mark.parametrize("given", [0, -1, "1", float("nan"), datetime.timedelta(0), True])
def test_a_time_that_cannot_be_is_refused(camera, tmp_path, given):
    with pytest.raises(vxcam.UsageError, match="seconds"):
        camera.record(tmp_path / "a.h5", seconds=given)
    assert not list(tmp_path.iterdir())


def test_what_is_measured_stands_beside_the_frames(camera, tmp_path):
    h5py = pytest.importorskip("h5py")
    camera.record(tmp_path / "a.h5", frames=2, measure=True)
    camera.record(tmp_path / "b.h5", frames=2)
    names = []
    for name in ("a.h5", "b.h5"):
        with h5py.File(tmp_path / name, "r") as file:
            found = set()
            file.visit(found.add)
            names.append(found)
    assert {path.rpartition("/")[2] for path in names[0] - names[1]} >= {"noise", "stars", "hfd"}
    assert vxcam.verify(tmp_path / "a.h5").good
