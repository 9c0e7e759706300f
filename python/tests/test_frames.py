"""What a frame knows of itself."""

import base64
import copy
import fractions
import gc
import io
import os
import pathlib
import pickle
import zlib
from datetime import datetime, timedelta, timezone

import numpy
import pytest

import vxcam
from conftest import SMALL


def test_a_frame_of_16_bits_is_an_array_of_its_rows_and_columns(camera):
    frame = camera.grab()
    assert frame.array.shape == (48, 64) == frame.shape
    assert frame.array.dtype == numpy.uint16
    assert frame.complete and frame.missing_rows == ()
    assert frame.sum == frame.true_sum == int(frame.array.sum(dtype="uint64"))


def test_a_frame_of_8_bits_has_the_upper_halves(camera):
    camera.test_pattern = (2, 255)  # the column, and 255
    frame = camera.grab(bits=8)
    assert frame.array.dtype == numpy.uint8
    assert frame.array[0, 0] == 0 and frame.array[5, 1] == 1 and frame.bits == 8


def test_a_binned_frame_has_sums_of_32_bits(camera):
    camera.test_pattern = (1, 1000)
    frame = camera.grab(binning=(2, 3))
    assert frame.array.dtype == numpy.int32
    assert frame.array.shape == (16, 32) and frame.binning == (2, 3)
    assert (frame.array == 6000).all() and frame.sum == 6000 * 16 * 32


def test_a_frame_is_binned_as_the_camera_is_set_unless_asked_for_otherwise(camera):
    camera.simple_binning = (3, 2)
    frame = camera.grab()
    assert (frame.kind, frame.binning, frame.bits) == ("binned", (2, 3), 32)
    assert [shot.kind for shot in camera.stream(frames=2)] == ["binned", "binned"]
    for asked in ({"bits": 16}, {"bits": 8}, {"area": (0, 0, 8, 8)}, {"kind": "area"}):
        assert camera.grab(**asked).kind == "area", asked
    assert camera.grab(binning=4).binning == (4, 4)
    assert camera.grab(kind="as-set").binning == (2, 3)
    camera.simple_binning = (1, 1)
    assert camera.grab().kind == "area"


def test_pixels_stand_where_the_camera_read_them(camera):
    camera.test_pattern = (4, 7)  # row + column + 7
    rows, columns = numpy.mgrid[0:48, 0:64]
    assert (camera.grab().array == rows + columns + 7).all()
    part = camera.grab(area=(10, 20, 30, 8))
    assert part.area == (10, 20, 30, 8) == vxcam.Area(column=10, row=20, columns=30, rows=8)
    assert (part.array == (rows + columns + 7)[20:28, 10:40]).all()


def test_the_array_is_the_frames_own_memory_and_read_only(camera):
    frame = camera.grab()
    assert frame.array is frame.array
    assert numpy.asarray(frame) is frame.array
    assert not frame.array.flags.writeable
    with pytest.raises(ValueError):
        frame.array[0, 0] = 1
    again = frame._core.array()
    assert again.__array_interface__["data"][0] == frame.array.__array_interface__["data"][0]


def test_a_copy_of_the_pixels_is_made_where_it_is_asked_for(camera):
    """As NumPy 2 does: numpy.array(frame, copy=True)."""
    frame = camera.grab()
    copied = frame.__array__(copy=True)
    assert copied.flags.writeable and (copied == frame.array).all()
    assert frame.__array__(copy=None) is frame.array and frame.__array__(frame.array.dtype) is frame.array


def test_frames_and_arrays_outlive_the_camera():
    with vxcam.Camera(SMALL) as camera:
        frames = list(camera.stream(frames=12, buffers=4, exposure=0.01))
        array = camera.grab().array
    del camera
    gc.collect()
    assert int(array.sum()) > 0
    assert [frame.sum for frame in frames] == [frame.true_sum for frame in frames]
    assert [int(frame.array.sum()) for frame in frames] == [frame.true_sum for frame in frames]


def test_no_held_frame_is_overwritten(camera):
    held = []
    for frame in camera.stream(frames=60, buffers=3, exposure=0):
        held.append(frame)
    assert len({frame.array.__array_interface__["data"][0] for frame in held}) == 60
    assert all(int(frame.array.sum()) == frame.true_sum for frame in held)
    assert len({frame.true_sum for frame in held}) > 30


def test_times_lie_around_the_exposure():
    with vxcam.Simulator(sensor=(64, 48)) as simulator, vxcam.Camera(simulator) as camera:
        before = datetime.now(timezone.utc)
        frame = camera.grab(exposure=0.1)
        after = datetime.now(timezone.utc)
        truth = simulator.frames[-1]
    times = frame.times
    assert before <= times.begin <= times.middle <= times.end <= after
    assert times.middle.utcoffset() == timedelta(0)
    assert times.how == "commanded"
    assert timedelta(0) < times.uncertainty < timedelta(seconds=1)
    assert abs(times.middle_ns / 1e9 - times.middle.timestamp()) < 1e-5
    assert abs(times.begin - truth.begin) <= times.uncertainty + timedelta(microseconds=1)


def test_a_frame_carries_the_settings_in_force(camera):
    camera.gain = 3
    camera.target_temp = -20
    frame = camera.grab()
    assert frame.settings["gain"] == 3
    assert frame.settings["target_temp"] == frame.settings["target-temp"] == -20
    assert frame.settings["mirroring"].horizontal is False
    assert "gain" in list(frame.settings) and len(frame.settings) > 10
    camera.gain = 1
    assert frame.settings["gain"] == 3
    with pytest.raises(KeyError):
        frame.settings["gian"]


def test_facts_are_read_only(camera):
    frame = camera.grab()
    for name in ("sum", "rows", "array", "times", "complete", "anything"):
        with pytest.raises(AttributeError):
            setattr(frame, name, 0)
    with pytest.raises(AttributeError):
        frame.times.middle = None
    with pytest.raises(AttributeError):
        frame.statistics.mean = 0
    with pytest.raises(TypeError):
        frame.settings["gain"] = 0


def test_statistics_are_those_of_numpy(camera):
    frame = camera.grab(exposure=1)
    figures = frame.statistics
    assert figures.mean == pytest.approx(frame.array.mean())
    assert figures.std == pytest.approx(frame.array.std())
    assert (figures.min, figures.max) == (frame.array.min(), frame.array.max())
    assert figures.saturated == int((frame.array == 65535).sum())


def test_a_dark_frame_keeps_the_shutter_closed(camera):
    dark, light = camera.grab(exposure=5, type="dark"), camera.grab(exposure=5)
    assert dark.type == "dark" and light.type == "light"
    assert dark.statistics.mean < light.statistics.mean


def test_a_bias_frame_has_no_exposure_and_takes_none(camera):
    assert camera.grab(type="bias").exposure == 0 == camera.grab(exposure=0, type="bias").exposure
    for take in (camera.grab, camera.stream, lambda **given: camera.record("never.raw", 1, **given)):
        with pytest.raises(vxcam.UsageError, match='exposure: 1 is not possible, give none with type="bias"'):
            take(exposure=1, type="bias")
    assert camera.exposure == 0.01 and camera.statistics.frames_complete == 2


@pytest.mark.parametrize("name", ["b.fits.gz", "B.FITS.GZ", b"b.gz", pathlib.Path("b.gz")])
def test_a_name_of_a_compressed_file_is_refused(camera, tmp_path, monkeypatch, name):
    monkeypatch.chdir(tmp_path)
    frame = camera.grab()
    for write in (frame.to_fits, frame.to_tiff, frame.to_png):
        with pytest.raises(vxcam.UsageError, match="(?i)path: .*gz' is not possible, give a name without .gz"):
            write(name)
    assert not list(tmp_path.iterdir())


@pytest.mark.parametrize("name, kind", [("b.jpg", "JPEG"), ("b.h5", "HDF5"), ("b.RAW", "raw"), ("b.bmp", "BMP")])
def test_a_name_of_another_kind_of_file_is_refused(camera, tmp_path, name, kind):
    frame = camera.grab()
    for write in (frame.to_fits, frame.to_tiff, frame.to_png):
        with pytest.raises(vxcam.UsageError, match=f"{name}' is the name of a {kind} file"):
            write(tmp_path / name)
    assert not list(tmp_path.iterdir())


def test_astropy_writes_what_a_header_does_not_take(camera, tmp_path):
    fits = pytest.importorskip("astropy.io.fits")
    frame = camera.grab()
    with pytest.raises(vxcam.UsageError, match="HISTORY"):
        frame.to_fits(tmp_path / "a.fits", header={"HISTORY": "flat 3"})
    hdu = frame.to_hdu()
    hdu.header.add_history("flat 3")
    hdu.writeto(tmp_path / "a.fits")
    with fits.open(tmp_path / "a.fits") as file:
        assert list(file[0].header["HISTORY"]) == ["flat 3"] and (file[0].data == frame.array).all()


@pytest.mark.parametrize("place", [lambda simulator: simulator, lambda simulator: simulator.target])
def test_a_simulator_is_known_with_its_time_scale_and_what_it_sent(place):
    with vxcam.Simulator(sensor=(64, 48), scale=10) as simulator, vxcam.Camera(place(simulator)) as camera:
        assert camera.time_scale == 10
        frame = camera.grab(exposure=2)  # 0.2 s of the clock
        assert 0.19 < (frame.times.end_ns - frame.times.begin_ns) / 1e9 < 0.21
        assert frame.true_sum == frame.sum == simulator.frames[-1].sum


def test_what_is_missing_is_told_and_is_zero():
    fault = "missing-packet:readout=1,packet=20"
    with vxcam.Simulator(sensor=(64, 48), faults=[fault]) as simulator:
        with vxcam.Camera(simulator.target) as camera:
            with pytest.raises(vxcam.IncompleteFrame) as caught:
                camera.grab(exposure=0.01)
            frame = caught.value.frame
            assert not frame.complete
            assert frame.missing_rows == (19,)
            assert (frame.packets_missing, frame.packets_expected) == (1, 48)
            assert (frame.array[19] == 0).all() and (frame.array[18] > 0).all()
            assert frame.sum == simulator.frames[0].sent_sum != simulator.frames[0].sum
            assert camera.grab().complete


def test_a_stream_hands_out_incomplete_frames_and_says_so():
    with vxcam.Simulator((64, 48), ["missing-packet:frame=2,packet=1"], scale=50) as simulator:
        with vxcam.Camera(simulator.target) as camera:
            stream = camera.stream(frames=3, exposure=0.01)
            assert [frame.missing_rows for frame in stream] == [(), (0,), ()]
            assert (stream.complete, stream.incomplete, stream.end) == (2, 1, "incomplete")


def test_stars_are_found_in_a_frame():
    with vxcam.Camera("sim?sensor=256x256&scale=50") as camera:
        stars = camera.grab(exposure=2).stars()
    assert stars and stars[0].flux >= stars[-1].flux
    assert all(0 <= star.row < 256 and 0 < star.hfd < 50 for star in stars)


def known_of(frame):
    """All that a frame tells of itself."""
    told = {name: getattr(frame, name) for name in dir(frame)
            if not name.startswith("_") and not callable(getattr(frame, name)) and name not in ("array", "times")}
    told["times"] = {name: getattr(frame.times, name) for name in dir(frame.times) if not name.startswith("_")}
    told["settings"] = {name: (value, frame.settings.text(name)) for name, value in frame.settings.items()}
    return told


@pytest.mark.parametrize("given", [{}, {"bits": 8}, {"binning": (4, 2)}, {"area": (3, 5, 20, 10)},
                                   {"regions": [(0, 0, 8, 4), (16, 8, 12, 2)]}])
def test_a_pickled_frame_is_the_same_frame(camera, given):
    camera.gain = 3
    frame = camera.grab(**given)
    again = pickle.loads(pickle.dumps(frame))
    assert again.array.dtype == frame.array.dtype and (again.array == frame.array).all()
    assert known_of(again) == known_of(frame)
    assert not again.array.flags.writeable


def test_a_pickled_incomplete_frame_says_what_is_missing():
    with vxcam.Camera(SMALL + "&fault=missing-packet:packet=3") as camera:
        with pytest.raises(vxcam.IncompleteFrame) as caught:
            camera.grab(exposure=0.01)
    again = pickle.loads(pickle.dumps(caught.value.frame))
    assert not again.complete and again.missing_rows == caught.value.frame.missing_rows != ()


def test_a_pickled_frame_that_is_not_one_is_refused(camera):
    make, (pixels, *rest) = camera.grab().__reduce__()
    with pytest.raises(vxcam.UsageError, match="size"):
        make(pixels[:-2], *rest)
    with pytest.raises(vxcam.UsageError, match="not known"):
        make(pixels, {**rest[0], "kind": "nonsense"}, *rest[1:])


@pytest.mark.parametrize("name, told", [
    ("trigger_mode", (7, 0, 0)), ("gain", -3), ("exposure_ex", 99999999999), ("target_temp", 500.0),
    ("target_temp", float("nan"))])
def test_a_pickled_frame_knows_what_could_not_be_set(camera, name, told):
    make, (pixels, facts, times, settings) = camera.grab().__reduce__()
    name = next(one for one, _, _ in settings if one.replace("-", "_") == name)
    text = ",".join(str(part) for part in told) if isinstance(told, tuple) else str(told)
    strange = tuple((name, told, text) if one[0] == name else one for one in settings)
    again = make(pixels, facts, times, strange)
    assert again.settings[name] == told or text in again.settings.text(name)


def test_a_whole_number_of_thousands_of_digits_is_refused_by_its_name(camera):
    with pytest.raises(vxcam.UsageError, match="header: AIRMASS.*18 digits"):
        camera.grab().to_hdu(header={"AIRMASS": 10**5000})


def test_times_settings_and_values_are_pickled_alone(camera):
    frame = camera.grab()
    times, settings = pickle.loads(pickle.dumps((frame.times, frame.settings)))
    assert known_of(frame)["times"] == {name: getattr(times, name) for name in known_of(frame)["times"]}
    assert dict(settings) == dict(frame.settings) and settings.text("gain") == frame.settings.text("gain")
    camera.mirroring = (True, False)
    again = pickle.loads(pickle.dumps(camera.mirroring))
    assert again == (True, False) and again.horizontal is True


def test_a_whole_number_in_a_header_is_kept_exactly(camera):
    header = camera.grab().to_hdu(header={"MOST": 10**18 - 1, "LEAST": 1 - 10**18}).header
    assert (header["MOST"], header["LEAST"]) == (999999999999999999, -999999999999999999)


def test_a_copy_of_a_frame_is_the_frame(camera):
    frame = camera.grab()
    assert copy.copy(frame) is frame and copy.deepcopy(frame) is frame


def test_a_path_may_be_bytes(camera, tmp_path):
    camera.grab().to_fits(os.fsencode(tmp_path / "by\udcff.fits"))
    assert os.listdir(os.fsencode(tmp_path)) == [b"by\xff.fits"]


@pytest.mark.parametrize("value", [None, float("nan"), float("inf"), (1, "a", "b"), [1], (None, "nothing"),
                                   10**18, -(10**400), fractions.Fraction(10**400, 3)])
def test_a_card_that_cannot_be_is_refused_by_its_name(camera, tmp_path, value):
    with pytest.raises(vxcam.UsageError, match="header: AIRMASS"):
        camera.grab().to_fits(tmp_path / "a.fits", header={"AIRMASS": value})
    assert not os.listdir(tmp_path)


@pytest.fixture(params=[{"bits": 8}, {"bits": 16}, {"binning": 2}], ids=["8 bits", "16 bits", "binned"])
def sent(request):
    """A frame of each kind of pixels, and what the simulated camera sent."""
    with vxcam.Simulator((64, 48), scale=50) as simulator, vxcam.Camera(simulator) as camera:
        frame = camera.grab(exposure=1, **request.param)
        yield frame, simulator.frames[-1]


def test_astropy_has_the_pixels_that_were_sent(sent, tmp_path):
    fits = pytest.importorskip("astropy.io.fits")
    frame, truth = sent
    hdu, data = frame.to_hdu(header={"OBJECT": "M31"}), frame.to_ccddata()
    frame.to_fits(tmp_path / "a.fits")
    for pixels in (hdu.data, data.data, fits.getdata(tmp_path / "a.fits")):
        assert pixels.shape == frame.shape == (truth.rows, truth.columns)
        assert int(pixels.sum(dtype="uint64")) == truth.sum == frame.sum
        little = pixels.astype({8: "<u1", 16: "<u2", 32: "<u4"}[frame.bits])
        assert zlib.crc32(little.tobytes()) == truth.crc
    assert hdu.header["OBJECT"] == "M31" and hdu.header["EXPTIME"] == frame.exposure == 1
    assert str(data.unit) == "adu" and data.mask is None and data.meta["EXPTIME"] == 1
    data.data[:] = 0  # a copy
    assert frame.sum == truth.sum


def test_rows_that_are_missing_are_masked_for_astropy():
    pytest.importorskip("astropy.nddata")
    with vxcam.Camera(SMALL + "&fault=missing-packet:packet=20") as camera:
        with pytest.raises(vxcam.IncompleteFrame) as caught:
            camera.grab(exposure=0.01)
    frame = caught.value.frame
    mask = frame.to_ccddata().mask
    assert frame.missing_rows == (19,) and mask[19].all() and mask.sum() == 64


@pytest.mark.parametrize("sensor, shown", [((64, 48), (64, 48)), ((3000, 1500), (1000, 500)), ((1024, 1025), (512, 512))])
def test_a_frame_shows_itself_as_a_picture(sensor, shown):
    image = pytest.importorskip("PIL.Image")
    with vxcam.Camera("sim?sensor={}x{}&scale=1000".format(*sensor)) as camera:
        frame = camera.grab(exposure=2)
    picture = image.open(io.BytesIO(frame._repr_png_()))
    picture.load()
    assert picture.format == "PNG" and picture.mode == "L" and picture.size == shown
    grays = numpy.asarray(picture)
    # It shows what is there: where the frame is bright, so is the picture.
    brightest = numpy.unravel_index(frame.array.argmax(), frame.shape)
    step = sensor[0] // shown[0]
    row, column = (min(place // step, most - 1) for place, most in zip(brightest, grays.shape))
    assert grays[row, column] > grays.mean() + 50 and grays.std() > 1
    whole = base64.b64encode(frame._repr_png_()).decode()
    assert whole in frame._repr_html_()
