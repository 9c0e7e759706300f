"""Arguments that cannot be: each refusal says what was given, and what is possible."""

import asyncio
import inspect
import math
from datetime import timedelta

import pytest

import vxcam
from conftest import SMALL


class Wrong:
    """Of a type that nothing takes."""

    def __repr__(self):
        return "<wrong>"


# What an argument may not be told as: the words of Python, of the bindings, and of the extension.
NO_WORDS = ("incompatible", "_vxcam", "arg0", "cannot be interpreted", "Unable to cast", "not iterable",
            "has no attribute", "could not convert", "unpack", "expected str")


# What is possible, or why this is not.
POSSIBLE = ("give ", "write ", "not the name", "has all", "is a number from", "the name of a PNG", "the name of a FITS",
            "no format: .h5", "no part of the sensor of 64 x 48", "cannot be negative")


def check(text, given):
    assert given in text and not any(words in text for words in NO_WORDS), text
    assert any(words in text for words in POSSIBLE), text


class Stage:
    """All that has arguments, and what they are usually."""

    def __init__(self, folder):
        self.camera = vxcam.Camera(SMALL)
        self.frame = self.camera.grab(exposure=0)
        plan = folder / "plan.yaml"
        plan.write_text(f"folder: {folder / 'frames'}\nsteps: [{{lights: {{count: 1, exposure: 10ms}}}}]")
        self.recorder = vxcam.Recorder(folder / "one.raw")
        self.sequence = vxcam.Sequence(plan)
        self.camera.cooler.ramp_to(-20, rate=0.01)
        self.simulator = vxcam.Simulator((64, 48))
        with vxcam.Capture(folder / "run.vxw") as self.capture, vxcam.Camera(self.simulator, capture=self.capture):
            pass
        self.replay = vxcam.Replay(folder / "run.vxw")
        self.usual = {"path": folder / "two.raw", "name": "gain", "value": 1, "target": SMALL, "plan": plan,
                      "frame": self.frame, "profile": "{}", "handler": print, "fault": "half-open",
                      "bias": [self.frame] * 2, "flats": [[self.frame] * 2] * 2}

    def astream(self, **given):
        async def first():
            async for frame in self.camera.astream(**given):
                return frame

        return asyncio.run(first())

    def usual_of(self, function, but):
        if function is vxcam.Cooler.ramp_to:
            return {"target": 5}
        return {name: self.usual[name] for name, one in inspect.signature(function).parameters.items()
                if one.default is one.empty and name not in ("self", but)}

    def close(self):
        self.recorder.finish()
        self.replay.close()
        self.simulator.close()
        self.camera.close()


@pytest.fixture(scope="module")
def stage(tmp_path_factory):
    made = Stage(tmp_path_factory.mktemp("stage"))
    yield made
    made.close()


# Each with what it is called on, and what of it cannot be called.
OWNERS = {
    vxcam.Camera: lambda stage: stage.camera,
    vxcam.Capture: lambda stage: stage.capture,
    vxcam.Cooler: lambda stage: stage.camera.cooler,
    vxcam.Frame: lambda stage: stage.frame,
    vxcam.Settings: lambda stage: stage.frame.settings,
    vxcam.Recorder: lambda stage: stage.recorder,
    vxcam.Replay: lambda stage: stage.replay,
    vxcam.Sequence: lambda stage: stage.sequence,
    vxcam.Simulator: lambda stage: stage.simulator,
    vxcam.Stream: None,
    vxcam.Subscription: None,
}
MAPPING = {"get", "keys", "values", "items"}


def functions():
    """Name, what gets it of the stage, and the function, of all that is public and has arguments."""
    for name in ("verify", "discover", "decode", "photon_transfer"):
        yield name, (lambda stage, name=name: getattr(vxcam, name)), getattr(vxcam, name)
    for owner, of in OWNERS.items():
        if owner not in (vxcam.Cooler, vxcam.Settings, vxcam.Frame, vxcam.Stream):
            yield owner.__name__, (lambda stage, owner=owner: owner), owner.__init__
        for name, function in inspect.getmembers(owner, inspect.isfunction):
            if name.startswith("_") or (owner is vxcam.Settings and name in MAPPING):
                continue
            if name == "astream":
                yield f"{owner.__name__}.{name}", (lambda stage: stage.astream), function
            else:
                yield (f"{owner.__name__}.{name}",
                       (lambda stage, of=of, name=name: getattr(of(stage), name)), function)


ARGUMENTS = [pytest.param(get, function, argument, id=f"{name}-{argument}")
             for name, get, function in functions()
             for argument in inspect.signature(function).parameters if argument != "self"]


def test_the_walk_has_all_classes_that_take_arguments():
    for name in vxcam.__all__:
        thing = getattr(vxcam, name)
        if not inspect.isclass(thing) or thing in OWNERS or issubclass(thing, (tuple, vxcam.Error)):
            continue
        for member, function in inspect.getmembers(thing, inspect.isfunction):
            if not member.startswith("_") and member not in MAPPING:
                assert list(inspect.signature(function).parameters) == ["self"], (name, member)
    assert len(ARGUMENTS) > 90


@pytest.mark.parametrize("get, function, argument", ARGUMENTS)
def test_an_argument_of_a_wrong_type_is_refused_in_words(stage, get, function, argument):
    given = {**stage.usual_of(function, argument), argument: Wrong()}
    with pytest.raises((vxcam.UsageError, KeyError)) as caught:
        get(stage)(**given)
    check(str(caught.value), "<wrong>")


VALUES = {
    "exposure='abc'": (lambda s: setattr(s.camera, "exposure", "abc"), "'abc'"),
    "exposure=True": (lambda s: setattr(s.camera, "exposure", True), "True"),
    "exposure=None": (lambda s: setattr(s.camera, "exposure", None), "None"),
    "gain=False": (lambda s: setattr(s.camera, "gain", False), "False"),
    "gain='7.5'": (lambda s: setattr(s.camera, "gain", "7.5"), "'7.5'"),
    "register['x']": (lambda s: s.camera.register["x"], "'x'"),
    "register[True]": (lambda s: s.camera.register[True], "True"),
    "register[-1]": (lambda s: s.camera.register[-1], "-1"),
    "gpio[99]": (lambda s: s.camera.gpio[99], "99"),
    "properties[5]": (lambda s: s.camera.properties[5], "5"),
    "settings['gian']": (lambda s: s.frame.settings["gian"], "'gian'"),
    "settings[5]": (lambda s: s.frame.settings[5], "5"),
    "grab(bits='16')": (lambda s: s.camera.grab(bits="16"), "'16'"),
    "grab(bits=12)": (lambda s: s.camera.grab(bits=12), "bits 12"),
    "grab(bits=True)": (lambda s: s.camera.grab(bits=True), "True"),
    "grab(exposure=-1)": (lambda s: s.camera.grab(exposure=-1), "-1"),
    "grab(exposure=nan)": (lambda s: s.camera.grab(exposure=math.nan), "nan"),
    "grab(timeout='1')": (lambda s: s.camera.grab(timeout="1"), "'1'"),
    "grab(area=5)": (lambda s: s.camera.grab(area=5), "5"),
    "grab(area='0,0,8,8')": (lambda s: s.camera.grab(area="0,0,8,8"), "'0,0,8,8'"),
    "grab(area=(1, 2, 3))": (lambda s: s.camera.grab(area=(1, 2, 3)), "(1, 2, 3)"),
    "grab(area=(1, 2, 3, 4.5))": (lambda s: s.camera.grab(area=(1, 2, 3, 4.5)), "4.5"),
    "grab(area=(0, 0, 800, 8))": (lambda s: s.camera.grab(area=(0, 0, 800, 8)), "0,0,800,8"),
    "grab(regions=(1, 2, 3, 4))": (lambda s: s.camera.grab(regions=(1, 2, 3, 4)), "1"),
    "grab(binning='2')": (lambda s: s.camera.grab(binning="2"), "'2'"),
    "grab(binning=2.5)": (lambda s: s.camera.grab(binning=2.5), "2.5"),
    "grab(binning=(1, 2, 3))": (lambda s: s.camera.grab(binning=(1, 2, 3)), "(1, 2, 3)"),
    "grab(binning=0)": (lambda s: s.camera.grab(binning=0), "binning 0"),
    "grab(type='lihgt')": (lambda s: s.camera.grab(type="lihgt"), "'lihgt'"),
    "grab(kind='foo')": (lambda s: s.camera.grab(kind="foo"), "'foo'"),
    "grab(settings='no')": (lambda s: s.camera.grab(settings="no"), "'no'"),
    "stream(frames=-2)": (lambda s: s.camera.stream(frames=-2), "frames -2"),
    "stream(frames=40000)": (lambda s: s.camera.stream(frames=40000), "frames 40000"),
    "stream(frames=2**40)": (lambda s: s.camera.stream(frames=2**40), str(2**40)),
    "stream(buffers=-1)": (lambda s: s.camera.stream(buffers=-1), "buffers -1"),
    "stream(when_full='x')": (lambda s: s.camera.stream(when_full="x"), "'x'"),
    "record(frames=-1)": (lambda s: s.camera.record("a.raw", frames=-1), "-1"),
    "record(compress='zip')": (lambda s: s.camera.record("a.raw", compress="zip"), "'zip'"),
    "record(split=-1)": (lambda s: s.camera.record("a.raw", split=-1), "-1"),
    "record('a.txt')": (lambda s: s.camera.record("a.txt"), "a.txt"),
    "to_fits('a.png')": (lambda s: s.frame.to_fits("a.png"), "'a.png'"),
    "to_png('a.fits')": (lambda s: s.frame.to_png("a.fits"), "'a.fits'"),
    "to_tiff('a.fit')": (lambda s: s.frame.to_tiff("a.fit"), "'a.fit'"),
    "to_fits('a\\0.fits')": (lambda s: s.frame.to_fits("a\0.fits"), "a\\x00"),
    "to_fits(header={5: 1})": (lambda s: s.frame.to_fits("a.fits", header={5: 1}), "5"),
    "Camera(5)": (lambda s: vxcam.Camera(5), "5"),
    "Camera('\\ud800')": (lambda s: vxcam.Camera("\ud800"), "\\ud800"),
    "Camera(restore='some')": (lambda s: vxcam.Camera(SMALL, restore="some"), "'some'"),
    "Simulator(sensor=5)": (lambda s: vxcam.Simulator(sensor=5), "5"),
    "Simulator(sensor=(1, 2, 3))": (lambda s: vxcam.Simulator(sensor=(1, 2, 3)), "(1, 2, 3)"),
    "Simulator(faults=[5])": (lambda s: vxcam.Simulator((8, 8), [5]), "5"),
    "Simulator(seed=-1)": (lambda s: vxcam.Simulator((8, 8), seed=-1), "-1"),
    "Simulator(scale='2')": (lambda s: vxcam.Simulator((8, 8), scale="2"), "'2'"),
    "wait_for_link(-1)": (lambda s: s.camera.wait_for_link(-1), "-1"),
    "wait_for_link(nan)": (lambda s: s.camera.wait_for_link(math.nan), "nan"),
    "check_link(-1)": (lambda s: s.camera.check_link(-1), "-1"),
    "check_link(2**40)": (lambda s: s.camera.check_link(2**40), str(2**40)),
    "ramp_to('5')": (lambda s: s.camera.cooler.ramp_to("5"), "'5'"),
    "Recorder(buffers=0)": (lambda s: vxcam.Recorder("a.raw", buffers=0), "0"),
    "write(array)": (lambda s: s.recorder.write(s.frame.array), "array"),
    "finish('over')": (lambda s: s.recorder.finish("over"), "'over'"),
    "Frame(array)": (lambda s: vxcam.Frame(s.frame.array), "array"),
    "Stream(1, 2, 3)": (lambda s: vxcam.Stream(1, 2, 3), "2"),
}


@pytest.mark.parametrize("call, given", VALUES.values(), ids=VALUES)
def test_a_value_that_cannot_be_is_refused_in_words(stage, tmp_path, monkeypatch, call, given):
    monkeypatch.chdir(tmp_path)
    with pytest.raises((vxcam.UsageError, KeyError)) as caught:
        call(stage)
    check(str(caught.value), given)
    assert not list(tmp_path.iterdir())


def test_a_wrong_type_is_told_as_pythons_own(camera):
    for error in (TypeError, ValueError, vxcam.UsageError, vxcam.WrongTypeError):
        with pytest.raises(error):
            camera.grab(bits="16")
    with pytest.raises(vxcam.UsageError) as caught:
        camera.grab(bits=12)
    assert not isinstance(caught.value, TypeError)


class Quantity:
    """As of astropy."""

    unit = "s"

    def to_value(self, unit):
        return 1.0

    def __float__(self):
        return 1.0

    def __len__(self):
        return 0

    def __getitem__(self, at):
        raise IndexError(at)

    def tolist(self):
        raise NotImplementedError("cannot make a list of Quantities")

    def __repr__(self):
        return "<Quantity 1 s>"


@pytest.mark.parametrize("given", [None, True, [1], (1, 2), b"1", {}, Quantity()])
@pytest.mark.parametrize("name", ["exposure", "gain", "target_temp"])
def test_a_property_of_a_wrong_type_is_told_as_pythons_own(camera, name, given):
    with pytest.raises(TypeError, match=f"^sim.*{name.replace('_', '-')}"):
        setattr(camera, name, given)
    with pytest.raises(TypeError):
        camera.check(name, given)


@pytest.mark.parametrize("given", ["1s", True, [1], b"1", {}, Quantity()])
def test_a_time_of_a_wrong_type_is_told_as_pythons_own(camera, given):
    for take in (camera.grab, camera.stream):
        for name in ("exposure", "timeout"):
            with pytest.raises(vxcam.WrongTypeError, match=f"{name}: .* is not possible, give seconds from 0 on"):
                take(**{name: given})
    with pytest.raises(vxcam.WrongTypeError, match="timeout"):
        camera.wait_for_link(given)


def test_an_exposure_is_whole_milliseconds_or_refused(camera):
    for given in (0.0105, 0.0005, 1e-7):
        with pytest.raises(vxcam.UsageError, match="the finest step is 1 ms"):
            camera.grab(exposure=given)
    camera.exposure = 0.0123
    assert camera.exposure == 0.012 == camera.grab().exposure
    assert camera.grab(exposure=0.003).exposure == 0.003


def test_a_long_value_is_told_by_its_beginning(camera):
    with pytest.raises(vxcam.UsageError) as caught:
        camera.grab(binning="x" * 10_000)
    assert len(str(caught.value)) < 300


def test_numbers_of_numpy_and_timedeltas_are_taken(camera):
    numpy = pytest.importorskip("numpy")
    frame = camera.grab(bits=numpy.int64(8), area=numpy.array([0, 0, 8, 4]), settings=numpy.bool_(False),
                        exposure=timedelta(milliseconds=10), timeout=numpy.float32(10))
    assert frame.shape == (4, 8) and frame.bits == 8
    assert camera.grab(exposure=0, binning=numpy.array([2, 2])).binning == (2, 2)
    assert camera.wait_for_link(timedelta(seconds=1))
    camera.cooler.ramp_to(numpy.float64(5))
    with pytest.raises(vxcam.CameraTimeout, match="after 0.001 s"):
        camera.cooler.wait(timedelta(milliseconds=1))
