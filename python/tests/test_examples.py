"""The examples, run."""

import io
import json
import os
import pathlib
import subprocess
import sys
from contextlib import redirect_stdout

import pytest
from astropy.io import fits
from astropy.table import Table

import vxcam

EXAMPLES = pathlib.Path(__file__).parent.parent / "examples"
sys.path.append(str(EXAMPLES))


def run(name, *arguments, cwd):
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    done = subprocess.run([sys.executable, str(EXAMPLES / name), *arguments], cwd=cwd, env=environment,
                          capture_output=True, text=True, timeout=100)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@pytest.mark.parametrize("gain", [0, 3])
def test_the_photon_transfer_curve_finds_gain_and_read_noise(gain):
    import photon_transfer

    with vxcam.Camera("sim?sensor=512x512&scale=50") as camera:
        camera.gain = gain
        found = photon_transfer.measure(camera, exposures=(1, 4, 16))
        assert found.read_noise == pytest.approx(camera.readout_noise.first, rel=0.03)
    assert found.gain == pytest.approx(gain + 1, rel=0.03)  # counts per electron of the simulated camera
    assert found.signals == sorted(found.signals) and found.variances == sorted(found.variances)


def test_the_quick_look_leaves_a_picture(tmp_path):
    printed = run("quick_look.py", "--target", "sim?sensor=256x128", "--exposure", "0.1", cwd=tmp_path)
    assert (tmp_path / "frame.png").read_bytes().startswith(b"\x89PNG")
    with fits.open(tmp_path / "frame.fits") as files:
        assert files[0].data.shape == (128, 256) and files[0].header["OBSERVER"] == "quick look"
    assert "256 x 128 pixels of 16 bits" in printed


def test_the_time_series_is_a_table_of_astropy(tmp_path):
    run("time_series.py", "--frames", "4", "--file", "s.ecsv", cwd=tmp_path)
    table = Table.read(tmp_path / "s.ecsv", format="ascii.ecsv")
    assert len(table) == 4 and (table["flux"] > 0).all()
    assert (table["time"][1:] > table["time"][:-1]).all()
    assert abs(table["column"].max() - table["column"].min()) < 1


def test_the_focus_is_found():
    import focus

    position = [0.0]

    class Sized:
        """A camera whose stars grow with the distance from 2.5, as those out of focus do."""

        def grab(self, exposure):
            size = (4 + 9 * (position[0] - 2.5) ** 2) ** 0.5
            star = vxcam.Star(1, 1, 100, size, size, False)
            return type("Frame", (), {"stars": lambda self: (star,)})()

    with redirect_stdout(io.StringIO()):
        best, size = focus.best_focus(Sized(), lambda where: position.__setitem__(0, where), -8, 8, 9, 0.1)
    assert best == pytest.approx(2.5, abs=0.01) and size == pytest.approx(2, abs=0.01)


@pytest.mark.skipif("VXCAM_PROGRAMS" not in os.environ, reason="the programs are not built")
def test_the_focus_is_found_with_the_simulated_camera(tmp_path):
    programs = os.environ["VXCAM_PROGRAMS"].split(":")
    path = os.pathsep.join([*programs, os.environ["PATH"]])
    simulator = subprocess.Popen(
        ["vxcamsim", "--item-port", "12987", "--sensor", "256x256", "--time-scale", "10", "--json"],
        env=dict(os.environ, PATH=path), stdout=subprocess.PIPE, text=True)
    try:
        port = json.loads(simulator.stdout.readline())["port"]
        os.environ["PATH"] = path
        printed = run("focus.py", "--target", f"127.0.0.1:{port}", "--steps", "7",
                      "--move", "vxcam items 127.0.0.1:12987 set defocus {}", "-7", "5", cwd=tmp_path)
    finally:
        simulator.terminate()
        simulator.wait()
    best = float(printed.split("best focus at ")[1].split(",")[0])
    assert abs(best) < 0.7


def test_the_notebook_runs(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    notebook = json.loads((EXAMPLES / "quick_start.ipynb").read_text())
    names = {}
    with redirect_stdout(io.StringIO()) as printed:
        for cell in notebook["cells"]:
            if cell["cell_type"] == "code":
                exec("".join(cell["source"]), names)
    assert names["gain"] == pytest.approx(names["true_gain"], rel=0.03)
    assert names["read_noise"] == pytest.approx(names["true_read_noise"], rel=0.03)
    assert "counts per electron" in printed.getvalue()
