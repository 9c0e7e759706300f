"""Many frames."""

import asyncio
import gc
import threading

import pytest

import vxcam
from conftest import SMALL, wait_until


def test_a_stream_brings_its_frames_in_order(camera):
    stream = camera.stream(frames=20, buffers=8)
    assert [frame.number for frame in stream] == list(range(1, 21))
    assert (stream.end, stream.dropped, stream.complete, stream.taken) == ("complete", 0, 20, 20)
    with pytest.raises(StopIteration):
        next(stream)


def test_a_loop_that_is_left_ends_the_readout(camera):
    for frame in camera.stream(exposure=0.01):
        if frame.number == 3:
            break
    del frame
    assert camera.grab().complete


def test_a_with_block_ends_the_readout(camera):
    with camera.stream() as stream:
        assert next(stream).complete
    assert stream.end == "aborted"
    assert camera.grab().complete


def test_one_readout_at_a_time(camera):
    with camera.stream(exposure=1):
        with pytest.raises(vxcam.UsageError):
            camera.grab()
    assert camera.grab().complete


def test_waiting_holds_the_camera_back_and_loses_nothing(camera):
    stream = camera.stream(frames=30, buffers=2, exposure=0)
    assert wait_until(lambda: stream.complete >= 1)
    assert [frame.number for frame in stream] == list(range(1, 31))
    assert stream.dropped == 0


def test_what_is_dropped_is_counted_and_told(camera):
    stream = camera.stream(frames=40, buffers=2, when_full="drop", exposure=0)
    assert wait_until(lambda: stream.end != "running")
    numbers = [(frame.number, frame.dropped) for frame in stream_until_incomplete(stream)]
    assert stream.dropped == 40 - len(numbers) > 0
    assert all(number == taken + 1 + dropped for taken, (number, dropped) in enumerate(numbers))


def stream_until_incomplete(stream):
    while True:
        try:
            yield next(stream)
        except (StopIteration, vxcam.IncompleteFrame, vxcam.Error):
            return


def test_an_abort_is_told_to_who_waits(camera):
    stream = camera.stream(exposure=500)
    thread = threading.Timer(0.1, camera.abort)
    thread.start()
    with pytest.raises(vxcam.Aborted):
        next(stream)
    thread.join()
    assert camera.grab(exposure=0.01).complete


def test_closing_with_streams_alive_ends_them():
    camera = vxcam.Camera(SMALL)
    stream = camera.stream(exposure=1)
    first = next(stream)
    camera.close()
    with pytest.raises(vxcam.Aborted):
        while True:
            next(stream)
    assert stream.end == "closed"
    assert int(first.array.sum()) == first.true_sum
    camera.close()  # again, which is nothing


def test_a_stream_keeps_its_camera_open():
    stream = vxcam.Camera(SMALL).stream(frames=2)
    gc.collect()
    assert len(list(stream)) == 2


def test_only_one_thread_takes_frames(camera):
    stream = camera.stream(exposure=100, frames=1)
    caught = []

    def take():
        try:
            next(stream, None)
        except vxcam.Error as error:
            caught.append(error)

    threads = [threading.Thread(target=take, daemon=True) for _ in range(2)]
    for thread in threads:
        thread.start()
    assert wait_until(lambda: caught)
    assert isinstance(caught[0], vxcam.UsageError)
    stream.stop()
    for thread in threads:
        thread.join()


def test_progress_tells_what_goes_on(camera):
    with camera.stream(exposure=100) as stream:
        assert wait_until(lambda: stream.progress.phase == "exposing")
        progress = stream.progress
    assert progress.frame == 1 and 0 <= progress.done <= 1 and progress.exposure == pytest.approx(2.0)


def test_asyncio_brings_the_same_frames(camera):
    async def numbers():
        stream = camera.astream(frames=5, buffers=4)
        return [frame.number async for frame in stream], stream.end

    assert asyncio.run(numbers()) == ([1, 2, 3, 4, 5], "complete")


def test_asyncio_goes_on_while_frames_are_waited_for(camera):
    async def both():
        beats = 0

        async def beat():
            nonlocal beats
            while True:
                await asyncio.sleep(0.01)
                beats += 1

        task = asyncio.create_task(beat())
        async for _ in camera.astream(frames=1, exposure=15):  # 0.3 s
            pass
        task.cancel()
        return beats

    assert asyncio.run(both()) > 5


def test_a_cancelled_task_ends_its_readout(camera):
    async def cancel():
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(camera.astream(exposure=500).__anext__(), 0.2)

    asyncio.run(cancel())
    assert camera.grab(exposure=0.01).complete


@pytest.mark.parametrize("given", [
    {"when_full": "sometimes"}, {"frames": -1}, {"frames": 10**12}, {"bits": 12}, {"area": (1, 2)},
    {"area": (0, 0, 1000, 1)}, {"exposure": -1}, {"exposure": "long"}, {"binning": (0, 1)},
    {"kind": "round"}, {"type": "twilight"}, {"buffers": -3},
])
def test_a_plan_that_cannot_be_is_refused(camera, given):
    with pytest.raises(vxcam.UsageError):
        camera.stream(**given)
    assert camera.grab().complete
