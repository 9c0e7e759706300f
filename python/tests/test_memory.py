"""Memory while frames come."""

import threading

import vxcam

MIB = 1 << 20


def resident():
    with open("/proc/self/statm") as figures:
        return int(figures.read().split()[1]) * 4096


def test_ten_thousand_frames_leave_memory_as_it_was_and_are_all_right():
    busy = threading.Event()
    counted = [0]

    def compute():
        while not busy.wait(0.0005):
            counted[0] += sum(number * number for number in range(200))

    thread = threading.Thread(target=compute, daemon=True)
    thread.start()
    held, wrong, known, taken, after_100, most = [], 0, 0, 0, 0, 0
    with vxcam.Camera("sim?sensor=320x240&scale=1000&heartbeat=0.05") as camera:
        for frame in camera.stream(frames=10_000, buffers=8, exposure=0, settings=False):
            taken += 1
            known += frame.true_sum is not None
            wrong += frame.true_sum is not None and int(frame.array.sum()) != frame.true_sum
            wrong += not frame.complete or frame.number != taken
            held.append((frame, frame.sum))
            if len(held) > 6:
                early, its_sum = held.pop(0)
                wrong += int(early.array.sum()) != its_sum
            if taken == 100:
                after_100 = resident()
            if taken > 100 and taken % 500 == 0:
                most = max(most, resident())
    busy.set()
    thread.join()
    assert (taken, wrong) == (10_000, 0)
    assert known == 10_000
    assert counted[0] > 0
    assert most - after_100 < 2 * MIB, (most - after_100) / MIB


def test_cameras_that_come_and_go_leave_memory_as_it_was():
    def use():
        with vxcam.Camera("sim?sensor=64x48&scale=1000") as camera:
            camera.on_event(lambda event: None)
            camera.grab(exposure=0)._repr_html_()

    for _ in range(20):
        use()
    before = resident()
    for _ in range(40):
        use()
    assert resident() - before < 4 * MIB, (resident() - before) / MIB


def test_properties_leave_memory_as_it_was(camera):
    def use():
        for _ in range(300):
            camera.mirroring = camera.mirroring
            camera.snapshot()
        for _ in range(300):
            try:
                camera.gain = "x"
            except vxcam.UsageError:
                pass

    use()
    before = resident()
    use()
    assert resident() - before < 2 * MIB, (resident() - before) / MIB
