"""What frames show in figures, and what a camera is under a steady light."""

import pathlib

import numpy
import pytest

import vxcam
from conftest import HERE, SMALL

PACKAGE = HERE.parent


@pytest.fixture
def lit():
    """A simulated camera of 6 electrons of read noise, an offset of 1000 and a gain of 1: docs/simulator.md."""
    with vxcam.Camera("sim?sensor=200x150&scale=10000") as opened:
        yield opened


def frame_with(frame, pixels):
    """The frame with other pixels."""
    make, (_, *known) = frame.__reduce__()
    return make(pixels.astype(frame.array.dtype).tobytes(), *known)


@pytest.fixture
def drawn():
    """A level sky with noise, and two stars of known shapes and fluxes: one round, one half as long again."""
    with vxcam.Camera("sim?sensor=128x96&scale=1000") as opened:
        frame = opened.grab(exposure=0.01)
    rows, columns = numpy.mgrid[0:96, 0:128]
    sky = numpy.random.default_rng(7).normal(1000, 10, (96, 128))
    for column, row, flux, wide, high in ((30.25, 40.5, 100000, 2, 2), (90, 50, 60000, 3, 2)):
        sky += flux / (2 * numpy.pi * wide * high) * numpy.exp(
            -((columns - column) ** 2 / wide**2 + (rows - row) ** 2 / high**2) / 2)
    return frame_with(frame, numpy.round(sky))


def test_stars_are_where_they_are_and_of_their_shapes(drawn):
    round_one, long_one = drawn.stars()
    assert (round_one.column, round_one.row) == pytest.approx((30.25, 40.5), abs=0.05)
    assert (long_one.column, long_one.row) == pytest.approx((90, 50), abs=0.05)
    assert round_one.flux == pytest.approx(100000, rel=0.03) and long_one.flux == pytest.approx(60000, rel=0.05)
    # Of a gaussian: 2.3548 sigmas wide at half its height, half of its light within as many.
    assert round_one.fwhm == pytest.approx(2.3548 * 2, rel=0.03) and round_one.hfd == pytest.approx(2.3548 * 2, rel=0.04)
    assert round_one.elongation == pytest.approx(1, abs=0.05) and long_one.elongation == pytest.approx(1.5, rel=0.06)
    assert round_one.peak == pytest.approx(100000 / (2 * numpy.pi * 4), rel=0.05)
    assert not round_one.saturated


def test_a_frame_is_measured(drawn):
    measures, pixels = drawn.measures, drawn.array
    assert (measures.min, measures.max) == (pixels.min(), pixels.max())
    assert measures.mean == pytest.approx(pixels.mean()) and measures.median == pytest.approx(numpy.median(pixels), abs=1)
    assert measures.noise == pytest.approx(10, rel=0.1) and measures.saturated == 0
    assert measures.stars == 2 and 4 < measures.hfd < 7 and 4 < measures.fwhm < 7 and 1 < measures.elongation < 1.6
    assert drawn.measures is measures


def test_a_frame_without_stars_has_no_sizes_of_them(drawn):
    measures = frame_with(drawn, numpy.random.default_rng(7).normal(1000, 10, (96, 128))).measures
    assert (measures.stars, measures.hfd, measures.fwhm, measures.elongation) == (0, None, None, None)


def test_photon_transfer_finds_what_the_camera_is(lit):
    told = []
    found = lit.photon_transfer(8, on_progress=told.append)
    assert told[0] == "bias" and "level" in told and told[-8:] == [f"pair {i}/8" for i in range(1, 9)]
    assert found.gain == pytest.approx(1, rel=0.03) and found.read_noise == pytest.approx(6, rel=0.05)
    assert 0 < found.gain_uncertainty < 0.05 and found.offset == pytest.approx(1000, abs=1)
    assert found.full_well == pytest.approx(64535, rel=0.03) and found.full_well_limit == "converter"
    assert len(found.pairs) == 8 and found.pairs[-1].saturated == 1 and found.pairs[-1].signal is None
    exposures = [pair.exposure for pair in found.pairs]
    assert exposures == sorted(exposures)


def test_the_fewest_pairs_are_enough(lit):
    found = lit.photon_transfer(pairs=6)
    assert found.gain == pytest.approx(1, rel=0.04) and found.read_noise == pytest.approx(6, rel=0.06)
    assert found.gain_uncertainty is not None and found.full_well_limit == "converter" and len(found.pairs) == 6
    given = lit.photon_transfer(pairs=4, exposures=(10, 200))
    assert given.gain == pytest.approx(1, rel=0.04) and len(given.pairs) == 4


def test_photon_transfer_is_found_from_frames_that_are_there(lit):
    lit.gain = 3  # 4 counts for an electron
    bias = list(lit.stream(frames=2, type="bias"))
    flats = [list(lit.stream(frames=2, exposure=exposure, type="flat")) for exposure in (10, 30, 100)]
    found = vxcam.photon_transfer(bias, flats)
    assert found.gain == pytest.approx(0.25, rel=0.04) and found.read_noise == pytest.approx(6, rel=0.06)
    assert found.full_well is None and found.full_well_limit is None
    assert [pair.exposure for pair in found.pairs] == [10, 30, 100]
    with pytest.raises(vxcam.UsageError, match="bias"):
        vxcam.photon_transfer(bias[:1], flats)
    with pytest.raises(vxcam.WrongTypeError, match="flats"):
        vxcam.photon_transfer(bias, [1])
    with pytest.raises(vxcam.UsageError):
        vxcam.photon_transfer(bias, flats[:1])


def test_an_exposure_for_flats_is_found(lit):
    found = lit.flat_exposure(0.4, longest=600)
    frame = lit.grab(exposure=found.exposure, type="flat")
    signal = numpy.median(frame.array) - 1000
    assert signal == pytest.approx(0.4 * 65535 - 1000, rel=0.03)
    assert found.tries[-1][0] == found.exposure and found.tries[-1][1] == pytest.approx(0.4 * 65535, rel=0.03)
    adu = lit.flat_exposure(20000, longest=600, area=(0, 0, 32, 32))
    assert adu.tries[-1][1] == pytest.approx(20000, rel=0.03)
    assert lit.flat_exposure(0.5, bits=8, longest=600).tries[-1][1] == pytest.approx(127.5, rel=0.05)


def test_light_that_is_of_no_use_is_told_with_the_camera_and_what_to_do(lit):
    with pytest.raises(vxcam.CameraError, match=r"^sim\S*: too dark, even for 20ms; change the light, or give another"):
        lit.flat_exposure(longest=0.02)
    with pytest.raises(vxcam.CameraError, match="too dark, even for 20ms; a steady light before the sensor is needed"):
        lit.photon_transfer(longest=0.02)


@pytest.mark.parametrize("given", [{"level": 0}, {"level": 0.99}, {"level": 65000}, {"level": "x"}, {"tolerance": 0},
                                   {"bits": 32}, {"longest": 0}, {"first": -1}, {"area": (0, 0, 500, 500)}])
def test_a_flat_that_cannot_be_is_refused(lit, given):
    with pytest.raises(vxcam.UsageError):
        lit.flat_exposure(**given)


@pytest.mark.parametrize("given", [{"pairs": 3}, {"pairs": 201}, {"exposures": (1,)}, {"exposures": (2, 1)}, {"exposures": 5},
                                   {"pairs": 5}, {"exposures": (0, 0)}, {"exposures": (1, "x")}, {"pairs": 3, "exposures": (1, 2)},
                                   {"longest": 0}, {"on_progress": 5}])
def test_a_photon_transfer_that_cannot_be_is_refused_before_a_frame(lit, given):
    with pytest.raises(vxcam.UsageError):
        lit.photon_transfer(**given)
    assert lit.statistics.frames_complete == 0


def test_what_a_listener_raises_ends_it(lit):
    def stop(what):
        if what != "bias":
            raise RuntimeError(what)

    with pytest.raises(RuntimeError, match="level"):
        lit.photon_transfer(on_progress=stop)
    assert lit.grab(exposure=0.01).complete


def test_a_frame_that_is_incomplete_ends_it():
    with vxcam.Camera(SMALL + "&fault=missing-packet:readout=2,packet=3") as camera:
        with pytest.raises(vxcam.IncompleteFrame) as caught:
            camera.flat_exposure()
        assert caught.value.frame.type == "flat" and not caught.value.frame.complete


def test_the_package_that_pip_installs_has_all_files():
    meson = (PACKAGE / "meson.build").read_text()
    there = {path.name for path in (PACKAGE / "vxcam").iterdir() if path.suffix in (".py", ".pyi")} | {"py.typed"}
    assert {pathlib.Path(line.strip(" ',\n")).name for line in meson.splitlines() if "'vxcam/" in line} == there
