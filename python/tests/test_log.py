"""The library's own log: in Python's logging, and nowhere else."""

import contextlib
import logging
import os
import socket
import subprocess
import sys
import textwrap
import threading

import pytest

import vxcam
from conftest import SMALL, wait_until

MISSING = SMALL + "&fault=missing-packet:packet=3"


def errors_of(program):
    """What a program of its own prints, and what it prints on standard error."""
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    environment.pop("TCLOG_SUPPRESS_ERR_CONSOLE", None)
    done = subprocess.run([sys.executable, "-c", textwrap.dedent(program)], env=environment,
                          capture_output=True, text=True, timeout=30)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout.strip(), done.stderr.strip()


def test_an_opening_that_ctrl_c_left_behind_prints_nothing_when_the_program_ends():
    told, errors = errors_of("""
        import atexit, os, signal, socket, threading, time
        peer = socket.socket()
        peer.bind(("127.0.0.1", 0))
        peer.listen(8)

        def threads():
            return len(os.listdir("/proc/self/task"))

        @atexit.register  # runs behind those of vxcam
        def hang_up():
            before = threads()
            accepted.shutdown(socket.SHUT_RDWR)
            peer.close()
            end = time.monotonic() + 10
            while threads() >= before and time.monotonic() < end:
                time.sleep(0.005)
            print("given up" if threads() < before else "still opening")

        import vxcam

        def press():
            global accepted
            accepted = peer.accept()[0]
            os.kill(os.getpid(), signal.SIGINT)

        threading.Thread(target=press).start()
        try:
            vxcam.Camera(f"127.0.0.1:{peer.getsockname()[1]}")
        except KeyboardInterrupt:
            pass
    """)
    assert (told, errors) == ("given up", "")


def library_lines(caplog):
    return [record for record in caplog.records if record.name == "vxcam.library"]


def test_what_the_library_logs_is_an_error_of_its_logger_with_the_camera(caplog):
    with vxcam.Camera(MISSING) as camera:
        with pytest.raises(vxcam.IncompleteFrame):
            camera.grab(exposure=0.01)
        assert wait_until(lambda: library_lines(caplog))
    line = library_lines(caplog)[0]
    assert line.levelno == logging.ERROR
    assert line.getMessage().startswith(MISSING + ": ") and "is incomplete" in line.getMessage()


def test_a_camera_that_does_not_open_is_told_to_the_log(caplog):
    with socket.socket() as peer:
        peer.bind(("127.0.0.1", 0))
        peer.listen(8)

        def hang_up():
            for _ in range(4):
                try:
                    peer.accept()[0].close()
                except OSError:
                    return

        threading.Thread(target=hang_up, daemon=True).start()
        with pytest.raises(vxcam.Error):
            vxcam.Camera(f"127.0.0.1:{peer.getsockname()[1]}")
        assert wait_until(lambda: library_lines(caplog))
        peer.shutdown(socket.SHUT_RDWR)
    assert library_lines(caplog)[0].getMessage().startswith("VXCAM")


@pytest.mark.parametrize("handler", ["logging.basicConfig(stream=sys.stdout)", "pass"])
def test_nothing_is_printed_but_by_a_handler(handler):
    printed, errors = errors_of(f"""
        import logging, sys, vxcam
        {handler}
        with vxcam.Camera({MISSING!r}) as camera:
            try:
                camera.grab(exposure=0.01)
            except vxcam.IncompleteFrame:
                pass
    """)
    assert errors == ""
    assert ("ERROR:vxcam.library:" in printed) == (handler != "pass"), printed


def test_a_forked_child_has_a_log_of_its_own():
    printed, errors = errors_of(f"""
        import logging, os, sys, vxcam
        logging.basicConfig(stream=sys.stdout)
        with vxcam.Camera({SMALL!r}) as camera:
            child = os.fork()
            if child == 0:
                with vxcam.Camera({MISSING!r}) as own:
                    try:
                        own.grab(exposure=0.01)
                    except vxcam.IncompleteFrame:
                        pass
                sys.exit(0)
            print(os.waitpid(child, 0)[1])
    """)
    assert "ERROR:vxcam.library:" in printed and errors == "", (printed, errors)


def test_lines_that_nobody_takes_in_time_are_dropped_and_counted(caplog):
    entered, leave = threading.Event(), threading.Event()

    def hold(event):
        entered.set()
        leave.wait(60)

    with vxcam.Camera(SMALL + "&fault=error-storm:id=0x60,times=0,count=1000") as camera:
        camera.on_event(hold)
        assert entered.wait(10)
        try:
            while camera.statistics.camera_errors < 12_000:
                with contextlib.suppress(vxcam.CameraError):
                    camera.exposure
        finally:
            leave.set()
        assert wait_until(lambda: "lines of the log were lost" in caplog.text, 30)

        def lost():
            return sum(record.args[0] for record in list(caplog.records) if "lines of the log" in record.getMessage())

        assert lost() > 0
        assert wait_until(lambda: lost() + len(library_lines(caplog)) == camera.statistics.camera_errors, 30)


def test_a_filter_that_raises_keeps_no_events_from_handlers():
    printed, errors = errors_of(f"""
        import logging, threading, vxcam
        def refuse(record):
            raise RuntimeError("a filter's own trouble")
        logging.getLogger("vxcam.library").addFilter(refuse)
        beats = threading.Semaphore(0)
        with vxcam.Camera("{MISSING}") as camera:
            try:
                camera.grab(exposure=0.01)
            except vxcam.IncompleteFrame:
                pass
            camera.on_event(lambda event: beats.release())
            print(all(beats.acquire(timeout=10) for _ in range(5)))
    """)
    assert printed == "True"
    assert "a filter's own trouble" in errors


def test_children_that_are_forked_while_errors_are_logged_open_their_own():
    printed, _ = errors_of(f"""
        import logging, os, signal, threading, time, vxcam
        is_over = threading.Event()
        def storm():
            while not is_over.is_set():
                try:
                    vxcam.Camera("127.0.0.1:1")
                except vxcam.Error:
                    pass
        storms = [threading.Thread(target=storm) for _ in range(2)]
        for one in storms:
            one.start()
        good = 0
        for _ in range(20):
            child = os.fork()
            if child == 0:
                signal.alarm(20)
                vxcam._vxcam.EventLine()
                os._exit(0)
            good += os.waitpid(child, 0)[1] == 0
        is_over.set()
        for one in storms:
            one.join()
        print(good)
    """)
    assert printed == "20"
