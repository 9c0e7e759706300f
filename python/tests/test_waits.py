"""Waits: what ends them, and what goes on meanwhile."""

import json
import signal
import sys
import threading
import time
import types

import pytest

import vxcam
from conftest import SMALL, Silent, run_python, wait_until

# So much later than the signal the wait has to be over: what is promised.
PROMISED = 0.2
# Where what is waited for would take much longer.
GENEROUS = 2


@pytest.fixture
def silent():
    peer = Silent()
    yield peer
    peer.close()


def interrupted(wait, after=0.3):
    """How long the wait took beyond the moment when Ctrl-C was pressed."""
    pressed = []

    def press():
        pressed.append(time.monotonic())
        signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)

    timer = threading.Timer(after, press)
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        wait()
    ended = time.monotonic()
    timer.join()
    return ended - pressed[0]


def test_ctrl_c_ends_a_grab_and_aborts_the_readout(camera):
    assert interrupted(lambda: camera.grab(exposure=1000)) < PROMISED
    assert camera.grab(exposure=0.01).complete
    assert camera.statistics.frames_aborted == 1


def test_ctrl_c_ends_a_stream(camera):
    stream = camera.stream(exposure=1000)
    assert interrupted(lambda: next(stream)) < PROMISED
    assert stream.end == "aborted"
    assert camera.grab(exposure=0.01).complete


@pytest.mark.parametrize("wait", ["record", "record for a time", "flat_exposure", "photon_transfer"])
def test_ctrl_c_ends_what_takes_frames_and_aborts_the_readout(camera, tmp_path, wait):
    camera.trigger_mode = "frame"  # which never comes
    waits = {"record": lambda: camera.record(tmp_path / "a.h5"),
             "record for a time": lambda: camera.record(tmp_path / "a.h5", seconds=3600),
             "flat_exposure": camera.flat_exposure,
             "photon_transfer": camera.photon_transfer}
    assert interrupted(waits[wait]) < GENEROUS
    assert camera.statistics.frames_complete == 0 and not list(tmp_path.iterdir())
    camera.trigger_mode = "off"
    assert camera.grab(exposure=0.01).complete


@pytest.fixture(scope="module")
def large():
    """Two frames of which figures take their time."""
    with vxcam.Camera("sim?sensor=5000x5000&scale=1000") as camera:
        return camera.grab(exposure=1), camera.grab(exposure=1)


@pytest.mark.parametrize("work", [vxcam.Frame.stars, lambda frame: frame.measures,
                                  lambda frame: vxcam.photon_transfer([frame] * 2, [[frame] * 2] * 4)])
def test_ctrl_c_ends_what_is_computed_of_frames(large, work):
    first, second = large
    begin = time.monotonic()
    try:
        work(first)
    except vxcam.Error:
        pass  # of a light that was not steady
    whole = time.monotonic() - begin
    assert interrupted(lambda: work(second), after=whole / 4) < max(PROMISED, whole / 4)


def test_ctrl_c_ends_the_writing_of_a_file_which_never_appears_then(large, tmp_path):
    first, second = large
    begin = time.monotonic()
    first.to_png(tmp_path / "whole.png")
    whole = time.monotonic() - begin
    assert interrupted(lambda: second.to_png(tmp_path / "never.png"), after=whole / 4) < max(PROMISED, whole / 4)
    assert not wait_until((tmp_path / "never.png").exists, most=2 * whole)
    assert [file.name for file in tmp_path.iterdir()] == ["whole.png"]


def test_ctrl_c_ends_the_wait_for_a_replay(simulator, tmp_path):
    with vxcam.Capture(tmp_path / "a.vxw") as capture, vxcam.Camera(simulator, capture=capture):
        pass
    with vxcam.Replay(tmp_path / "a.vxw") as replay:
        assert interrupted(replay.wait) < GENEROUS


def test_ctrl_c_ends_the_wait_for_a_link():
    simulator = vxcam.Simulator((64, 48))
    with vxcam.Camera(simulator) as camera:
        simulator.close()
        assert wait_until(lambda: camera.statistics.connections_lost == 1)
        assert interrupted(lambda: camera.wait_for_link(3600)) < GENEROUS


def test_ctrl_c_ends_the_opening_of_a_silent_peer(silent):
    assert interrupted(lambda: vxcam.Camera(silent.target)) < PROMISED


def test_ctrl_c_ends_a_question_that_is_not_answered(simulator):
    camera = vxcam.Camera(simulator.target)
    simulator.inject("half-open")
    assert interrupted(lambda: camera.gain) < PROMISED
    assert interrupted(lambda: camera.grab()) < PROMISED
    camera.close()


def test_a_read_that_is_answered_late_is_asked_again(simulator):
    with vxcam.Camera(simulator) as camera:
        camera.register[1], camera.register[2] = 11, 22
        simulator.inject("late-answer:id=0x70,seconds=0.3")
        assert [camera.register[1], camera.register[2], camera.register[1]] == [11, 22, 11]
        assert camera.statistics.requests_timed_out == 1


def test_reads_wait_for_their_turn(camera):
    """While another thread makes the camera do something that takes long."""
    checking = threading.Thread(target=lambda: camera.check_link(2000))
    checking.start()
    gains = [camera.gain for _ in range(20)]
    checking.join()
    assert gains == [0] * 20


def test_ctrl_c_ends_the_wait_for_the_cooler(camera):
    camera.cooler.ramp_to(-20, rate=0.01)
    assert interrupted(camera.cooler.wait) < PROMISED
    camera.cooler.stop()


def test_ctrl_c_ends_a_search(camera):
    assert interrupted(vxcam.discover, after=0.1) < PROMISED


def test_a_handler_that_does_not_raise_goes_on(camera):
    pressed = []
    before = signal.signal(signal.SIGUSR1, lambda *_: pressed.append(camera.gain))
    try:
        threading.Timer(
            0.1, lambda: signal.pthread_kill(threading.main_thread().ident, signal.SIGUSR1)).start()
        frame = camera.grab(exposure=15)  # 0.3 s
    finally:
        signal.signal(signal.SIGUSR1, before)
    assert frame.complete and pressed == [0]


@pytest.mark.besides("silence.py")
def test_a_silent_peer_is_told_within_15_seconds(besides):
    outcomes = json.loads(besides())
    assert {name: told for name, (told, _) in outcomes.items()} == dict.fromkeys(
        ["open", "read", "read twice", "first grab", "second grab", "stream"], "CameraTimeout"), outcomes
    assert max(seconds for _, seconds in outcomes.values()) < 15, outcomes


def test_other_threads_run_while_one_waits(camera):
    counted, waiting = [0], threading.Event()

    def count():
        waiting.wait()
        while waiting.is_set():
            counted[0] += 1

    def rate(wait):
        counted[0] = 0
        start = time.process_time()
        waiting.set()
        wait()
        done, spent = counted[0], time.process_time() - start
        return done / max(spent, 1e-9)

    thread = threading.Thread(target=count, daemon=True)
    thread.start()
    alone = rate(lambda: time.sleep(0.3))
    meanwhile = rate(lambda: camera.grab(exposure=15))
    waiting.clear()
    thread.join()
    assert meanwhile > alone / 3


def test_many_threads_use_a_camera_at_once(camera):
    failures = []

    def use(number):
        try:
            for value in range(20):
                camera.register[number] = value
                assert camera.register[number] == value
        except BaseException as error:
            failures.append(error)

    threads = [threading.Thread(target=use, args=(number,), daemon=True) for number in range(6)]
    for thread in threads:
        thread.start()
    frames = [frame.complete for frame in camera.stream(frames=10, exposure=1)]
    for thread in threads:
        thread.join()
    assert not failures and frames == [True] * 10


def test_handlers_run_on_a_thread_of_python_and_may_use_the_camera(camera):
    seen = []

    def handle(event):
        if event.kind == "heartbeat" and len(seen) < 3:
            seen.append((threading.current_thread().name, camera.gain, event.ccd_temp, event.time.tzinfo))

    with camera.on_event(handle) as subscription:
        assert wait_until(lambda: len(seen) == 3)
    assert subscription.ended
    assert {name for name, *_ in seen} == {"vxcam-events"}
    assert all(gain == 0 and temperature > -273 and zone for _, gain, temperature, zone in seen)


def test_an_event_tells_nothing_that_it_does_not_know(camera):
    seen = {}
    with camera.on_event(lambda event: seen.setdefault(event.kind, event)):
        camera.grab(exposure=0.01)
        with pytest.raises(vxcam.CameraError):
            camera.gain = 9
        assert wait_until(lambda: {"heartbeat", "readout-ended", "camera-error"} <= seen.keys())
    beat, end, error = seen["heartbeat"], seen["readout-ended"], seen["camera-error"]
    assert beat.ccd_temp > -273 and beat.board_temp > -273
    assert (beat.readout, beat.code, beat.sub_code) == (None, None, None)
    assert (end.ccd_temp, end.board_temp, end.code, end.sub_code, end.readout) == (None, None, None, None, 1)
    assert error.code > 0 and error.sub_code > 0 and (error.readout, error.ccd_temp) == (None, None)
    assert repr(end).endswith(", readout 1, text 'complete'>") and "readout" not in repr(beat)


def test_a_readout_that_never_began_is_told_without_a_number(camera):
    seen = []
    camera.on_event(seen.append)
    camera.stream(exposure=1000).stop()
    assert wait_until(lambda: [event.readout for event in seen if event.kind == "readout-ended"] == [None])


def test_heartbeats_wake_nobody_who_has_not_asked_for_them():
    assert run_python(f"""
        import vxcam
        from vxcam import _vxcam
        with vxcam.Camera({SMALL!r}) as camera:
            line = _vxcam.EventLine()
            listener = camera._core.listen(line, 1)
            before = camera.statistics.heartbeats
            while camera.statistics.heartbeats < before + 3:
                pass
            camera.grab(exposure=0)
            print([facts["kind"] for _, facts in line.take()["events"]])
            listener.hear_heartbeats()
            print([facts["kind"] for _, facts in line.take()["events"]][:1])
    """) == "['readout-ended']\n['heartbeat']"


def test_an_ended_subscription_is_not_called(camera):
    calls = []
    subscription = camera.on_event(calls.append)
    assert wait_until(lambda: calls)
    subscription.end()
    before = len(calls)
    later = []
    camera.on_event(later.append)
    assert wait_until(lambda: len(later) > 2)
    assert len(calls) == before


def test_a_handler_that_fails_is_told_to_the_log(camera, caplog):
    def fail(event):
        raise RuntimeError("of the handler")

    with camera.on_event(fail):
        assert wait_until(lambda: "of the handler" in caplog.text)
    assert camera.grab().complete


def test_events_that_came_before_the_close_are_delivered():
    seen = []
    with vxcam.Camera(SMALL) as camera:
        camera.on_event(seen.append)
        camera.grab(exposure=0.01)
    assert wait_until(lambda: [e.text for e in seen if e.kind == "readout-ended"] == ["complete"])


def test_the_cooler_settles_and_warms_up():
    with vxcam.Camera("sim?sensor=8x8&scale=300&heartbeat=0.01") as camera:
        camera.cooler.ramp_to(10, rate=60, tolerance=1, settle=1)
        state = camera.cooler.wait(timeout=30)
        assert state.phase == "settled" and abs(state.temperature - 10) < 1.5
        camera.cooler.warm_up()
        assert camera.cooler.wait(timeout=30).phase == "warm"
        camera.cooler.ramp_to(-20, rate=0.01)
        with pytest.raises(vxcam.CameraTimeout):
            camera.cooler.wait(timeout=0.1)
        with pytest.raises(vxcam.UsageError):
            camera.cooler.ramp_to(-20, rate=-1)


def test_a_temperature_out_of_reach_is_told():
    with vxcam.Camera("sim?sensor=8x8&scale=300&heartbeat=0.01") as camera:
        camera.cooler.ramp_to(-110, patience=20)
        with pytest.raises(vxcam.CameraError):
            camera.cooler.wait(timeout=30)


@pytest.mark.parametrize("text, advice", [("the camera tells no temperature of its sensor", "is it still there"),
                                          ("it came no nearer than 5 C", "nearer to the surroundings")])
def test_a_cooler_that_failed_says_what_to_do(text, advice):
    failed = ("failed", None, 0.0, 0.0, 0.0, text, True)
    core = types.SimpleNamespace(cooling_state=lambda: failed, wait_for_cooler=lambda timeout: failed)
    with pytest.raises(vxcam.CameraError, match=f"^there: cooling failed: {text}; .*{advice}"):
        vxcam.Cooler(types.SimpleNamespace(closed=False, target="there", _core=core)).wait()


def test_frames_that_come_at_the_end_of_a_slice_are_no_timeouts():
    with vxcam.Camera("sim?sensor=16x16") as camera:
        for milliseconds in (49, 50, 51, 99, 100, 101) * 3:
            assert camera.grab(exposure=milliseconds / 1000).complete


@pytest.fixture
def released():
    """Whether a call lets go of the interpreter lock: a thread that waits for the lock, which nobody takes from
    the one that has it, gets it then. One call may be over before that thread wakes up: so there are many."""
    before = sys.getswitchinterval()
    sys.setswitchinterval(1000)

    def while_calling(call, most):
        got = []
        asleep = threading.Thread(target=lambda: (time.sleep(0.05), got.append(True)))
        asleep.start()
        awake = time.monotonic() + 0.2
        while time.monotonic() < awake:
            pass
        assert not got  # it waits for the lock now
        for _ in range(most):
            call()
            if got:
                break
        told = bool(got)
        asleep.join()
        return told

    yield while_calling
    sys.setswitchinterval(before)


def test_pixels_are_copied_without_the_interpreter_lock(released):
    with vxcam.Camera("sim?sensor=2048x2048&scale=1000") as camera:
        frame = camera.grab(exposure=0)
    make, parts = frame.__reduce__()
    assert released(frame._core.pixels, 100)
    assert released(lambda: type(frame._core).of(*parts), 100)
    assert make(*parts).sum == frame.sum
    assert not released(lambda: frame.array.tobytes(), 10)  # NumPy's keeps it: what is looked for can be seen
