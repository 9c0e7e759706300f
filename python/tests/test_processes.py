"""Processes, interpreters, and what importing does."""

import pytest

from conftest import run_python


def test_importing_opens_no_port_and_starts_no_thread():
    printed = run_python("""
        import os
        os.environ.pop("DBGD_DISABLE", None)
        before = set(os.listdir("/proc/self/fd"))
        import vxcam
        after = set(os.listdir("/proc/self/fd"))
        sockets = [fd for fd in after - before if os.path.exists(f"/proc/self/fd/{fd}")
                   and "socket" in os.readlink(f"/proc/self/fd/{fd}")]
        print(sockets, len(os.listdir("/proc/self/task")))
    """)
    assert printed == "[] 1"


def test_the_program_prints_versions_and_takes_a_frame():
    printed = run_python("""
        import runpy, sys
        sys.argv = ["vxcam"]
        try:
            runpy.run_module("vxcam", run_name="__main__")
        except SystemExit as end:
            assert end.code == 0
    """)
    assert printed.startswith("vxcam 3.") and "512 x 512, 16 bits" in printed


def test_the_program_says_what_it_is_for():
    printed = run_python("""
        import runpy, sys
        sys.argv = ["vxcam", "--help"]
        try:
            runpy.run_module("vxcam", run_name="__main__")
        except SystemExit as end:
            assert end.code == 0
    """)
    assert printed.startswith("usage: python -m vxcam [-h] [TARGET]") and "serial:17" in printed


def test_a_forked_child_is_told_that_the_camera_is_not_its_own():
    printed = run_python("""
        import os, sys, vxcam
        camera = vxcam.Camera("sim?sensor=64x48&scale=50")
        stream = camera.stream(exposure=0.01)
        frame = next(stream)
        expected = int(frame.array.sum())
        child = os.fork()
        if child == 0:
            told = 0
            for use in (lambda: camera.gain, camera.grab, lambda: next(stream), lambda: camera.on_event(print),
                        lambda: setattr(camera, "gain", 1)):
                try:
                    use()
                except vxcam.UsageError as error:
                    told += "fork" in str(error) and "spawn" in str(error)
            right = told == 5 and int(frame.array.sum()) == expected
            del stream, camera, frame
            sys.exit(0 if right else 1)  # the ordinary way, with all that ends an interpreter
        _, status = os.waitpid(child, 0)
        assert next(stream).complete
        stream.stop()
        print(status, camera.grab().complete)
    """)
    assert printed == "0 True"


def test_a_forked_child_opens_cameras_of_its_own():
    printed = run_python("""
        import os, sys, vxcam
        camera = vxcam.Camera("sim?sensor=64x48&scale=50")
        camera.grab(exposure=0.01)
        seen = []
        camera.on_event(seen.append)
        child = os.fork()
        if child == 0:
            with vxcam.Camera("sim?sensor=32x16&scale=50") as own:
                heard = []
                own.on_event(heard.append)
                right = own.grab(exposure=0.01).array.shape == (16, 32)
            sys.exit(0 if right else 1)
        print(os.waitpid(child, 0)[1], camera.grab().complete)
    """)
    assert printed == "0 True"


def test_a_forked_child_leaves_its_with_blocks():
    printed = run_python("""
        import os, sys, vxcam
        with vxcam.Simulator(sensor=(64, 48), scale=50) as simulator:
            with vxcam.Camera(simulator.target) as camera:
                with camera.stream(exposure=0.01) as stream:
                    next(stream)
                    child = os.fork()
                    if child == 0:
                        sys.exit(7)  # passes the ends of the blocks
                    _, status = os.waitpid(child, 0)
                    print(os.waitstatus_to_exitcode(status), next(stream).complete)
    """)
    assert printed == "7 True"


@pytest.mark.parametrize("method", ["spawn", "fork"])
def test_multiprocessing_works(method, tmp_path):
    program = tmp_path / "program.py"
    program.write_text(f"""
import multiprocessing, vxcam

def work(number):
    with vxcam.Camera(f"sim?sensor=64x48&scale=50&seed={{number}}") as camera:
        return camera.grab(exposure=0.01).sum

if __name__ == "__main__":
    with multiprocessing.get_context("{method}").Pool(2) as pool:
        sums = pool.map(work, [1, 2, 1])
    print(sums[0] == sums[2] != sums[1])
""")
    assert run_python(f"import runpy; runpy.run_path({str(program)!r}, run_name='__main__')"
                      if method == "fork" else
                      f"import subprocess, sys; sys.exit(subprocess.call([sys.executable, {str(program)!r}]))"
                      ) == "True"


def test_frames_travel_between_processes(tmp_path):
    program = tmp_path / "program.py"
    program.write_text("""
import multiprocessing, vxcam

def work(frame):
    return frame, int(frame.array.sum())

if __name__ == "__main__":
    with vxcam.Camera("sim?sensor=64x48&scale=50") as camera:
        frames = list(camera.stream(frames=3, exposure=0.01))
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        back = pool.map(work, frames)
    print([(one.number, one.sum == its_sum) for one, its_sum in back])
""")
    assert run_python(f"import subprocess, sys; sys.exit(subprocess.call([sys.executable, {str(program)!r}]))"
                      ) == "[(1, True), (2, True), (3, True)]"


REFUSED = """
import sys
sys.path[:] = {paths!r}
try:
    import vxcam
except ImportError as error:
    assert "sub-interpreter" in str(error), error
else:
    raise SystemExit("it was imported")
"""


@pytest.mark.parametrize("first", ["vxcam", "sys"])
def test_a_sub_interpreter_refuses(first):
    printed = run_python("""
        import sys, importlib, _xxsubinterpreters as interpreters
        importlib.import_module(sys.argv[1])
        sub = interpreters.create()
        interpreters.run_string(sub, sys.argv[2].format(paths=sys.path))
        interpreters.destroy(sub)
        import vxcam
        with vxcam.Camera("sim?sensor=8x8&scale=50") as camera:
            print(camera.grab(exposure=0).array.shape)
    """, first, REFUSED)
    assert printed == "(8, 8)"


def test_the_module_can_be_imported_again():
    assert run_python("""
        import sys, vxcam
        first = vxcam._vxcam
        for name in [name for name in sys.modules if name.startswith("vxcam")]:
            del sys.modules[name]
        import vxcam as again
        print(again.Camera("sim?sensor=8x8&scale=50").grab(exposure=0).array.shape)
    """) == "(8, 8)"


def test_an_interpreter_ends_with_cameras_open_and_threads_waiting():
    assert run_python("""
        import threading, vxcam
        camera = vxcam.Camera("sim?sensor=64x48")
        stream = camera.stream(exposure=1000)
        def wait():
            try:
                next(stream)
            except vxcam.Aborted:
                print("aborted", flush=True)
        threading.Thread(target=wait, daemon=True).start()
        camera.on_event(lambda event: None)
        import time
        time.sleep(0.2)
    """) == "aborted"


def test_a_camera_that_nobody_closes_is_closed_with_its_last_owner():
    assert run_python("""
        import gc, vxcam
        with vxcam.Simulator(sensor=(8, 8)) as simulator:
            for _ in range(3):
                camera = vxcam.Camera(simulator)
                camera.grab(exposure=0)
                del camera
                gc.collect()
            print(vxcam.statistics.frames_complete)
    """) == "3"
