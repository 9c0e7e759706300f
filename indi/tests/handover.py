"""How long a frame of 8 MiB takes from its last packet to the BLOB that indiserver gets, beside INDI's own
CCD simulator, from the end of its picture. Both take frames in turn, so that what else the machine does
meets both. Plays indiserver itself: a pair of sockets to the driver, BLOBs attached as descriptors.

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
EXPOSURE = 0.3  # s

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


class Own:
    """The driver of this folder, with a simulated camera."""

    name = "indi_vxcam_ccd"

    def __init__(self, home):
        self.camera = indi_support.Camera(sensor=f"{SIDE}x{SIDE}")
        self.driver = Driver(indi_support.DRIVER, home)
        self.driver.wait("DEVICE_ADDRESS")
        self.driver.set("VX CCD", "Text", "DEVICE_ADDRESS",
                        {"ADDRESS": "127.0.0.1", "PORT": self.camera.port})
        self.driver.set("VX CCD", "Switch", "CONNECTION", {"CONNECT": "On"})
        self.driver.wait("TIMING_DATA.*?CCD_TEMPERATURE")

    def take(self):
        self.driver.set("VX CCD", "Number", "CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": EXPOSURE})
        self.camera.wait("frame")  # which it tells as the last packet leaves
        begin = time.monotonic()
        taken = self.driver.wait("<setBLOBVector.*?</setBLOBVector>") - begin
        self.driver.wait("CCD_EXPOSURE")
        return taken

    def close(self):
        self.driver.close()
        self.camera.close()


class Theirs:
    """INDI's simulator."""

    name = "indi_simulator_ccd"

    def __init__(self, home):
        shim = os.path.join(home, "shim.so")
        subprocess.run(["cc", "-shared", "-fPIC", "-xc", "-", "-o", shim], input=SHIM, text=True, check=True)
        self.driver = Driver(self.name, home, LD_PRELOAD=shim)
        self.driver.wait("SIMULATOR_SETTINGS")
        self.set("Number", "SIMULATOR_SETTINGS", {"SIM_XRES": SIDE, "SIM_YRES": SIDE})
        self.set("Switch", "CONNECTION", {"CONNECT": "On"})
        self.driver.wait("CCD_FAST_COUNT")

    def set(self, kind, name, values):
        self.driver.set("CCD Simulator", kind, name, values)

    def take(self):
        self.set("Number", "CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": EXPOSURE})
        end = self.driver.wait("<setBLOBVector.*?</setBLOBVector>")
        begin = ""
        while not begin.startswith("begin"):
            begin = self.driver.errors.queue.get(timeout=5)
        return end - float(begin.split()[1])

    def close(self):
        self.driver.close()


def main():
    frames = int(sys.argv[1]) if len(sys.argv) > 1 else 10
    with tempfile.TemporaryDirectory() as home:
        both = Own(home), Theirs(home)
        times = [[], []]
        try:
            for _ in range(frames):
                for one, taken in zip(both, times):
                    taken.append(one.take())
                    time.sleep(0.3)  # what it does behind the frame is over
        finally:
            for one in both:
                one.close()
    for one, taken in zip(both, times):
        print(f"{one.name:20} least {min(taken) * 1000:6.1f} ms, median "
              f"{statistics.median(taken) * 1000:6.1f} ms, most {max(taken) * 1000:6.1f} ms")
    print(f"ratio: least {min(times[0]) / min(times[1]):.2f}, median "
          f"{statistics.median(times[0]) / statistics.median(times[1]):.2f}")


if __name__ == "__main__":
    main()
