"""Cameras of the local networks, in a network of the test's own."""

import os
import shutil
import subprocess
import sys

import pytest

from conftest import environment

# A simulated camera at each of two addresses.
NETWORK = """
    ip link set lo up
    ip addr add 10.77.0.1/24 brd 10.77.0.255 dev lo
    "$SIMULATOR" --sensor 64x48 --serial 42 --discovery --quiet --bind 10.77.0.1 --port 2042 >told & first=$!
    "$SIMULATOR" --sensor 32x16 --serial 7 --discovery --quiet --bind 127.0.0.1 --port 2007 >told2 & second=$!
    for i in $(seq 200); do [ -s told ] && [ -s told2 ] && break; sleep 0.05; done
    "$PYTHON" -c "$PROGRAM"
    code=$?
    kill $first $second
    exit $code
"""
PROGRAM = """
import vxcam
for found in sorted(vxcam.discover(), key=lambda one: one.serial):
    with vxcam.Camera(found) as camera:
        print(found.serial, found.target, found.interfaces, camera.sensor, camera.grab(exposure=0).complete)
with vxcam.Camera("serial:42") as camera:
    print(camera.address)
try:
    vxcam.Camera("serial:43")
except vxcam.NotFoundError as error:
    print(error)
"""


def test_cameras_of_the_networks_are_found_and_opened(tmp_path):
    programs = os.environ.get("VXCAM_PROGRAMS", "").split(":")
    if len(programs) < 2 or not shutil.which("ip"):
        pytest.skip("the simulated camera was not built, or there is no ip")
    if subprocess.run(["unshare", "-n", "true"], capture_output=True).returncode != 0:
        pytest.skip("no network can be made here")
    told = dict(environment(), PROGRAM=PROGRAM, PYTHON=sys.executable,
                SIMULATOR=os.path.join(programs[1], "vxcamsim"))
    done = subprocess.run(["unshare", "-n", "sh", "-c", NETWORK], cwd=tmp_path, env=told, capture_output=True, text=True,
                          timeout=60)
    first, second, address, refused = done.stdout.splitlines()
    assert first == "7 127.0.0.1:2007 ('127.0.0.1',) (32, 16) True"
    assert second == "42 10.77.0.1:2042 ('10.77.0.1',) (64, 48) True"
    assert address == "10.77.0.1:2042"
    assert "no camera with serial number 43" in refused and "vxcam.discover()" in refused
