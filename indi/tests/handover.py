"""How long a frame of 8 MiB takes from its last packet to the BLOB that indiserver gets, beside INDI's own
CCD simulator. Plays indiserver itself: a pair of sockets to the driver, BLOBs attached as descriptors.

Run by hand: handover.py [FRAMES]. VX_INDI_DRIVER and VX_SIMULATOR name the programs."""
import array
import os
import re
import socket
import statistics
import subprocess
import sys
import tempfile
import time

import indi_support

SIDE = 2048


# Tells when the base class of INDI's drivers begins to make a file of a frame that is complete.
SHIM = r"""
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <time.h>
typedef int make(void**, void**, size_t*, size_t, void* (*)(void*, size_t), int*);
int ffimem(void** a, void** b, size_t* c, size_t d, void* (*e)(void*, size_t), int* f)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    fprintf(stderr, "begin %ld.%09ld\n", (long)now.tv_sec, now.tv_nsec);
    return ((make*)dlsym(RTLD_NEXT, "ffimem"))(a, b, c, d, e, f);
}
"""


class Driver:
    """A driver at the other end of a pair of sockets."""

    def __init__(self, command, home, **environment):
        self.near, far = socket.socketpair()
        self.process = subprocess.Popen(
            [command], stdin=far, stdout=far, stderr=subprocess.PIPE, text=True,
            env=dict(os.environ, HOME=home, DBGD_DISABLE="1", **environment))
        self.errors = indi_support.Lines(self.process.stderr)
        far.close()
        self.text, self.blobs = "", []
        self.send("<getProperties version='1.7'/>")

    def send(self, text):
        self.near.sendall(text.encode())

    def set(self, device, kind, name, values):
        ones = "".join(f"<one{kind} name='{key}'>{value}</one{kind}>" for key, value in values.items())
        self.send(f"<new{kind}Vector device='{device}' name='{name}'>{ones}</new{kind}Vector>")

    def wait(self, pattern, seconds=30):
        """When what matches came; what came before it is forgotten."""
        deadline = time.monotonic() + seconds
        while True:
            found = re.search(pattern, self.text, re.DOTALL)
            if found:
                self.text = self.text[found.end():]
                return time.monotonic()
            self.near.settimeout(max(deadline - time.monotonic(), 0.001))
            try:
                data, extra, _, _ = self.near.recvmsg(1 << 16, 1024)
            except TimeoutError:
                raise SystemExit(f"{pattern} did not come; told last: {self.text[-2000:]}") from None
            for _, _, content in extra:
                numbers = array.array("i")
                numbers.frombytes(content[:len(content) // 4 * 4])
                for number in numbers:
                    os.close(number)
            self.text += data.decode(errors="replace")
            for uid in re.findall(r"<pingRequest[^>]*uid=['\"]([^'\"]+)", data.decode(errors="replace")):
                self.send(f"<pingReply uid='{uid}'/>")

    def close(self):
        self.near.close()
        self.process.kill()
        self.process.wait()


def own(frames, home):
    camera = indi_support.Camera(sensor=f"{SIDE}x{SIDE}")
    driver = Driver(indi_support.DRIVER, home)
    try:
        driver.wait("DEVICE_ADDRESS")
        driver.set("VX CCD", "Text", "DEVICE_ADDRESS", {"ADDRESS": "127.0.0.1", "PORT": camera.port})
        driver.set("VX CCD", "Switch", "CONNECTION", {"CONNECT": "On"})
        driver.wait("TIMING_DATA.*?CCD_TEMPERATURE")
        times = []
        for _ in range(frames):
            driver.set("VX CCD", "Number", "CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.3})
            camera.wait("frame")
            begin = time.monotonic()
            times.append(driver.wait("<setBLOBVector.*?</setBLOBVector>") - begin)
            driver.wait("CCD_EXPOSURE")
            time.sleep(0.3)
        return times
    finally:
        driver.close()
        camera.close()


def theirs(frames, home):
    name = "CCD Simulator"
    shim = os.path.join(home, "shim.so")
    subprocess.run(["cc", "-shared", "-fPIC", "-xc", "-", "-o", shim], input=SHIM, text=True, check=True)
    driver = Driver("indi_simulator_ccd", home, LD_PRELOAD=shim)
    try:
        driver.wait("SIMULATOR_SETTINGS")
        driver.set(name, "Number", "SIMULATOR_SETTINGS", {"SIM_XRES": SIDE, "SIM_YRES": SIDE})
        driver.set(name, "Switch", "CONNECTION", {"CONNECT": "On"})
        driver.wait("CCD_FAST_COUNT")
        times = []
        for _ in range(frames):
            driver.set(name, "Number", "CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": 0.3})
            end = driver.wait("<setBLOBVector.*?</setBLOBVector>")
            begin = ""
            while not begin.startswith("begin"):
                begin = driver.errors.queue.get(timeout=5)
            times.append(end - float(begin.split()[1]))
            time.sleep(0.3)
        return times
    finally:
        driver.close()


def main():
    frames = int(sys.argv[1]) if len(sys.argv) > 1 else 10
    with tempfile.TemporaryDirectory() as home:
        for name, taken in (("indi_vxcam_ccd", own(frames, home)),
                            ("indi_simulator_ccd", theirs(frames, home))):
            print(f"{name:20} least {min(taken) * 1000:6.1f} ms, median "
                  f"{statistics.median(taken) * 1000:6.1f} ms, most {max(taken) * 1000:6.1f} ms")


if __name__ == "__main__":
    main()
