"""Everything that waits for a peer that says nothing, side by side: what each is told, and when.

Prints {"open": ["CameraTimeout", 10.1], ...}: the exception, and after how many seconds it was raised.
"""

import json
import threading
import time

import vxcam
from conftest import Silent


def tried(outcomes, name, wait):
    start = time.monotonic()
    try:
        wait()
        told = "nothing"
    except Exception as error:
        told = type(error).__name__
    outcomes[name] = (told, time.monotonic() - start)


def main():
    outcomes = {}
    silent = Silent()
    simulators = [vxcam.Simulator((64, 48)) for _ in range(4)]
    cameras = [vxcam.Camera(one) for one in simulators]
    cameras[2].grab(exposure=0)
    stream = cameras[3].stream(exposure=0.5)
    next(stream)
    for one in simulators:
        one.inject("half-open")
    threads = [threading.Thread(target=tried, args=(outcomes, *given)) for given in (
        ("open", lambda: vxcam.Camera(silent.target)),
        ("read", lambda: cameras[0].gain),
        ("read twice", lambda: cameras[0].target_temp),
        ("first grab", lambda: cameras[1].grab(exposure=0)),
        ("second grab", lambda: cameras[2].grab(exposure=0)),
        ("stream", lambda: [frame for frame in stream]),
    )]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    print(json.dumps(outcomes))


if __name__ == "__main__":
    main()
