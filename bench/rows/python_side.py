"""The side of the benchmarks that is Python: takes frames, or reads a property, when it is told to.

python_side.py TARGET; each line of standard input is "frames N" or "reads N", and each answer a
line: seconds for all, or the microseconds of half of the reads at most.
"""

import statistics
import sys
import time

import vxcam


def frames(camera: vxcam.Camera, count: int) -> float:
    begin = time.perf_counter()
    bytes_taken = 0
    for frame in camera.stream(frames=count, bits=16, settings=False):
        bytes_taken += frame.array.nbytes
        if not frame.complete:
            raise SystemExit("a frame is not complete")
    return time.perf_counter() - begin


def reads(camera: vxcam.Camera, count: int) -> float:
    times = []
    for _ in range(count):
        begin = time.perf_counter()
        camera.trigger
        times.append(time.perf_counter() - begin)
    return 1e6 * statistics.median(times)


with vxcam.Camera(sys.argv[1]) as opened:
    for line in sys.stdin:
        what, number = line.split()
        print({"frames": frames, "reads": reads}[what](opened, int(number)), flush=True)
