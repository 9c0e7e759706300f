"""What the tests share: a small, fast simulated camera, and time limits."""

import faulthandler
import os
import subprocess
import sys
import textwrap
import time

import pytest

import vxcam

SMALL = "sim?sensor=64x48&scale=50&heartbeat=0.05"


@pytest.fixture(autouse=True)
def no_test_hangs():
    faulthandler.dump_traceback_later(170, exit=True)
    yield
    faulthandler.cancel_dump_traceback_later()


@pytest.fixture
def camera():
    with vxcam.Camera(SMALL) as opened:
        opened.exposure = 0.01
        yield opened


@pytest.fixture
def simulator():
    with vxcam.Simulator(sensor=(64, 48), scale=50, heartbeat=0.05) as made:
        yield made


def wait_until(condition, most=5.0):
    """Whether the condition came true in time."""
    end = time.monotonic() + most
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.005)
    return True


def run_python(program, *arguments, timeout=30):
    """Runs a program of its own, and returns what it prints; it must end well."""
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    done = subprocess.run(
        [sys.executable, "-c", textwrap.dedent(program), *arguments],
        env=environment, capture_output=True, text=True, timeout=timeout,
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout.strip()
