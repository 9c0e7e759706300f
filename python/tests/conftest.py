"""What the tests share: a small, fast simulated camera, and time limits."""

import faulthandler
import os
import pathlib
import signal
import socket
import subprocess
import sys
import textwrap
import time

import pytest

import vxcam

HERE = pathlib.Path(__file__).parent
SMALL = "sim?sensor=64x48&scale=50&heartbeat=0.05"

# Ctrl-C is nothing to programs that a shell has begun in the background, nor to what they begin.
signal.signal(signal.SIGINT, signal.default_int_handler)


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


class Silent:
    """Something that takes connections and never says a word."""

    def __init__(self):
        self._socket = socket.socket()
        self._socket.bind(("127.0.0.1", 0))
        self._socket.listen(8)
        self.target = f"127.0.0.1:{self._socket.getsockname()[1]}"

    def close(self):
        self._socket.close()


def wait_until(condition, most=5.0):
    """Whether the condition came true in time."""
    end = time.monotonic() + most
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.005)
    return True


def environment():
    """For programs that import what the tests import."""
    return dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))


def run_python(program, *arguments, timeout=30):
    """Runs a program of its own, and returns what it prints; it must end well."""
    done = subprocess.run(
        [sys.executable, "-c", textwrap.dedent(program), *arguments],
        env=environment(), capture_output=True, text=True, timeout=timeout,
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout.strip()


# ---- Tests that mostly wait: their programs run while the other tests do.


def pytest_configure(config):
    config.addinivalue_line("markers", "besides(program): begins with the first test, and is looked at behind the last one")


def pytest_collection_modifyitems(items):
    items.sort(key=lambda item: item.get_closest_marker("besides") is not None)


@pytest.fixture(scope="session", autouse=True)
def programs(request):
    """The programs of the tests that were chosen, by their names."""
    marks = [item.get_closest_marker("besides") for item in request.session.items]
    running = {mark.args[0]: subprocess.Popen([sys.executable, HERE / mark.args[0]], env=environment(), text=True,
                                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
               for mark in marks if mark}
    yield running
    for program in running.values():
        program.kill()
        program.communicate()


@pytest.fixture
def besides(request, programs):
    """What the test's program prints; it must end well."""
    def printed():
        program = programs[request.node.get_closest_marker("besides").args[0]]
        told, errors = program.communicate(timeout=60)
        assert program.returncode == 0, told + errors
        return told

    return printed
