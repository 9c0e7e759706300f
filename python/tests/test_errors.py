"""Failures: which class they are, and what they say."""

import copy
import gc
import socket
import threading
import weakref

import pytest

import vxcam
from conftest import SMALL, wait_until
from vxcam import _vxcam


def free_port():
    with socket.socket() as unused:
        unused.bind(("127.0.0.1", 0))
        return unused.getsockname()[1]


def test_each_kind_of_the_table_has_its_class():
    for kind, name in _vxcam.error_classes.items():
        if kind == "file":
            assert name == "OSError"
        else:
            assert issubclass(getattr(vxcam, name), vxcam.Error)


def test_classes_are_those_of_python_too():
    assert issubclass(vxcam.UsageError, ValueError)
    assert issubclass(vxcam.NotFoundError, ConnectionError)
    assert issubclass(vxcam.CameraTimeout, TimeoutError)
    assert issubclass(vxcam.LinkLost, ConnectionError)
    assert issubclass(vxcam.AccessError, AttributeError)


def test_no_camera_is_told_with_the_place():
    place = f"127.0.0.1:{free_port()}"
    with pytest.raises(vxcam.NotFoundError, match=place):
        vxcam.Camera(place)


@pytest.mark.parametrize("target", ["", "nowhere", "host:99999", "sim?color=red", "sim?fault=nonsense"])
def test_a_target_that_is_none_is_refused(target):
    with pytest.raises(vxcam.UsageError):
        vxcam.Camera(target)


@pytest.mark.parametrize("target", [None, 5, b"sim"])
def test_what_cannot_be_a_target_is_refused(target):
    with pytest.raises(vxcam.UsageError, match="target"):
        vxcam.Camera(target)


def test_a_camera_holds_its_simulator_until_it_is_closed():
    camera = vxcam.Camera(vxcam.Simulator((64, 48), scale=50))
    simulator = weakref.ref(camera._held)
    gc.collect()
    assert camera.grab(exposure=0.01).complete
    camera.close()
    gc.collect()
    assert simulator() is None


def test_a_target_alone_holds_no_simulator():
    with pytest.raises(vxcam.NotFoundError):
        vxcam.Camera(vxcam.Simulator((64, 48)).target)


def test_a_camera_that_serves_somebody_else_is_busy(simulator):
    with vxcam.Camera(simulator.target):
        with pytest.raises(vxcam.BusyError, match="somebody else"):
            vxcam.Camera(simulator.target)


def test_an_error_of_the_camera_has_its_numbers(camera):
    with pytest.raises(vxcam.CameraError, match="gain 9 is above 7") as caught:
        camera.gain = 9
    assert caught.value.code > 0 and caught.value.sub_code > 0


def test_a_lost_link_ends_a_readout_and_comes_back():
    with vxcam.Simulator((64, 48), ["reset:readout=1,packet=20"]) as simulator:
        with vxcam.Camera(simulator.target) as camera:
            camera.gain = 2
            with pytest.raises(vxcam.LinkLost):
                camera.grab(exposure=0.01)
            assert camera.wait_for_link(10)
            assert camera.grab(exposure=0.01).settings["gain"] == 2
            assert camera.statistics.connections_lost == 1


def test_a_camera_cannot_be_copied_and_stays_open(camera):
    with pytest.raises(TypeError, match="cannot be copied"):
        copy.copy(camera)
    assert camera.grab().complete


def test_a_closed_camera_says_so(camera):
    camera.close()
    for use in (camera.grab, camera.stream, lambda: camera.gain):
        with pytest.raises(vxcam.Error, match="closed"):
            use()
    assert camera.closed and camera.statistics.bytes_received > 0


def test_waiting_for_the_cooler_of_a_closed_camera_says_that_it_is_closed(camera):
    camera.cooler.ramp_to(0)
    camera.close()
    with pytest.raises(vxcam.Aborted, match="the camera is closed"):
        camera.cooler.wait(1)


def test_a_file_that_is_there_is_no_error_of_the_camera(camera, tmp_path):
    frame = camera.grab()
    frame.to_fits(tmp_path / "a.fits")
    with pytest.raises(FileExistsError, match="a.fits: exists already; give another name, or overwrite=True$"):
        frame.to_fits(tmp_path / "a.fits")
    with pytest.raises(FileNotFoundError):
        frame.to_fits(tmp_path / "none" / "a.fits")


def test_a_closed_simulator_refuses_faults(simulator):
    simulator.close()
    simulator.close()
    with pytest.raises(vxcam.UsageError):
        simulator.inject("half-open")
    assert simulator.frames == ()


@pytest.mark.parametrize("sensor", [(0, 5), (-1, 5), (16385, 5), (65537, 1), (1 << 40, 1)])
def test_a_sensor_that_cannot_be_is_refused(sensor):
    with pytest.raises(vxcam.UsageError):
        vxcam.Simulator(sensor=sensor)


def test_a_timeout_ends_the_readout(camera):
    with pytest.raises(vxcam.CameraTimeout):
        camera.grab(exposure=500, timeout=0.2)
    assert camera.grab(exposure=0.01).complete
    stream = camera.stream(exposure=500, timeout=0.2)
    with pytest.raises(vxcam.CameraTimeout, match="0.2 s"):
        next(stream)
    assert stream.end == "aborted"


def test_a_trigger_is_waited_for_as_long_as_it_takes(camera):
    camera.trigger_mode = "frame"
    stream = camera.stream(frames=1, exposure=0.01)
    assert stream.progress.phase == "waiting"
    threading.Timer(0.2, lambda: camera.set("trigger", 1)).start()
    assert next(stream).times.how == "triggered"


def test_events_reach_the_log(caplog):
    with caplog.at_level("INFO", logger="vxcam"):
        with vxcam.Camera(SMALL + "&fault=missing-packet:packet=3") as camera:
            with pytest.raises(vxcam.IncompleteFrame):
                camera.grab(exposure=0.01)
            with pytest.raises(vxcam.CameraError):
                camera.gain = 9
            assert wait_until(lambda: {"vxcam.readout", "vxcam.camera"} <= {r.name for r in caplog.records})
    assert "ended: incomplete" in caplog.text and "gain 9 is above 7" in caplog.text


def test_an_unknown_property_is_told_with_what_was_meant(camera):
    with pytest.raises(vxcam.UsageError, match="^sim.*: unknown property 'gian', did you mean gain"):
        camera.set("gian", 1)
    with pytest.raises(vxcam.UsageError, match=r"list\(camera.properties\) has all$"):
        camera.get("xyzzy")


def test_a_closed_camera_opens_no_with_block(camera):
    camera.close()
    with pytest.raises(vxcam.Aborted, match="closed"):
        with camera:
            pass


def test_a_closed_camera_has_no_handle(camera):
    assert camera.handle >= 0
    camera.close()
    assert camera.handle == -1


def test_a_sensor_that_cannot_be_is_told_once():
    with pytest.raises(vxcam.UsageError, match="^simulated camera: its sensor"):
        vxcam.Simulator(sensor=(0, 5))


def test_a_flight_file_that_cannot_be_made_is_refused(tmp_path):
    with pytest.raises(FileNotFoundError, match="flight_file"):
        vxcam.Camera(SMALL, flight_file=tmp_path / "none" / "flight")
    with pytest.raises(IsADirectoryError, match="flight_file"):
        vxcam.Camera(SMALL, flight_file=tmp_path)
    with pytest.raises(PermissionError, match="flight_file: no file can be made in this folder"):
        vxcam.Camera(SMALL, flight_file="/proc/flight")
    assert not list(tmp_path.iterdir())
    with vxcam.Camera(SMALL, flight_file=tmp_path / "flight") as camera:
        assert camera.grab(exposure=0.01).complete


def test_a_cooler_that_nobody_began_is_not_waited_for(camera):
    for stop in (False, True):
        if stop:
            camera.cooler.ramp_to(-5)
            camera.cooler.stop()
        with pytest.raises(vxcam.UsageError, match="ramp_to"):
            camera.cooler.wait()
    assert repr(camera.cooler).endswith(": idle>")


def test_a_camera_opens_in_a_folder_that_is_gone(tmp_path, monkeypatch):
    gone = tmp_path / "gone"
    gone.mkdir()
    monkeypatch.chdir(gone)
    gone.rmdir()
    try:
        with vxcam.Camera(SMALL) as camera:
            assert camera.grab(exposure=0.01).complete
    finally:
        monkeypatch.chdir(tmp_path)


# ---- What failures say: what was tried, on which camera, what happened, and what to do.


@pytest.fixture
def failing(simulator, tmp_path, monkeypatch):
    """Has each kind of failure happen: by its kind, the call, its class, and words of it."""
    monkeypatch.chdir(tmp_path)
    target, nowhere = simulator.target, f"127.0.0.1:{free_port()}"

    def opened(use, at=target, fault=None):
        with vxcam.Camera(at) as camera:
            if fault is not None:
                simulator.inject(fault)
            use(camera)

    def closed(use):
        with vxcam.Camera(target) as camera:
            pass
        use(camera)

    def busy():
        with vxcam.Camera(target):
            vxcam.Camera(target)

    def aborted(camera):
        stream = camera.stream(exposure=1000)
        camera.abort()
        next(stream)

    def twice(camera):
        for _ in range(2):
            camera.grab(exposure=0.01).to_fits("a.fits")

    return {
        "not-found": (lambda: vxcam.Camera(nowhere), vxcam.NotFoundError, nowhere, "no camera answers", "discover()"),
        "busy": (busy, vxcam.BusyError, target, "serves somebody else", "end the program"),
        "time-out": (lambda: opened(lambda camera: camera.grab(exposure=1000, timeout=0.2)), vxcam.CameraTimeout,
                     target, "no frame: none came within 0.2 s", "still there?"),
        "link-lost": (lambda: opened(lambda camera: camera.grab(exposure=0.01), fault="reset:packet=20"), vxcam.LinkLost,
                      target, "lost during the readout", "wait_for_link()"),
        "camera-error": (lambda: opened(lambda camera: camera.set("gain", 9)), vxcam.CameraError, target,
                         "SetGain refused: gain 9 is above 7", "flight()"),
        "incomplete": (lambda: opened(lambda camera: camera.grab(exposure=0.01), fault="missing-packet:packet=20"),
                       vxcam.IncompleteFrame, target, "1 of 48 packets", ".frame"),
        "aborted": (lambda: opened(aborted), vxcam.Aborted, target, "the readout was aborted", ""),
        "closed": (lambda: closed(lambda camera: camera.gain), vxcam.Aborted, target, "is closed", "open it anew"),
        "closed cooler": (lambda: closed(lambda camera: camera.cooler.ramp_to(0)), vxcam.Aborted, target, "is closed",
                          "open it anew"),
        "closed events": (lambda: closed(lambda camera: camera.on_event(print)), vxcam.Aborted, target, "is closed",
                          "open it anew"),
        "usage": (lambda: opened(lambda camera: camera.set("gain", "x")), vxcam.UsageError, target, "gain 'x'", "write a whole"),
        "usage name": (lambda: opened(lambda camera: camera.get("gian")), vxcam.UsageError, target, "'gian'", "gain?"),
        "usage read-only": (lambda: opened(lambda camera: setattr(camera, "ccd_temp", 1)), vxcam.AccessError, target,
                            "'ccd-temp'", "only be read"),
        "usage plan": (lambda: opened(lambda camera: camera.grab(bits=12)), vxcam.UsageError, target, "bits 12", "8 or 16"),
        "usage time": (lambda: opened(lambda camera: camera.grab(exposure=-1)), vxcam.UsageError, target, "exposure: -1",
                       "seconds from 0 on"),
        "file": (lambda: opened(twice), FileExistsError, "a.fits", "exists already", "overwrite=True"),
        "file record": (lambda: opened(lambda camera: camera.record("none/a.h5", frames=1)), FileNotFoundError,
                        "none/a.h5", "there is no folder", "none"),
        "cooler": (lambda: opened(lambda camera: camera.cooler.wait()), vxcam.UsageError, target, "nothing to wait for",
                   "ramp_to()"),
    }


def test_each_failure_says_what_was_tried_where_and_what_to_do(failing):
    assert {kind.partition(" ")[0] for kind in failing} >= set(_vxcam.error_classes)
    for kind, (call, its_class, *words) in failing.items():
        with pytest.raises(its_class) as caught:
            call()
        text = str(caught.value)
        assert all(word in text for word in words), f"{kind}: {text}"
        assert text.startswith(words[0]) or isinstance(caught.value, OSError), f"{kind}: {text}"
