"""Eight cameras behind one indiserver: frames a second, latency, processor time.

Run by hand: scale.py [CAMERAS [EXPOSURE [SECONDS [SIDE]]]]. VX_INDI_DRIVER and VX_SIMULATOR name the programs."""
import os
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time

import indi_support


class Counter:
    """A client that notes when each BLOB of one device has come whole, and looks no further."""

    def __init__(self, port, device):
        self.times, self.socket = [], socket.create_connection(("127.0.0.1", port))
        name = f"<getProperties version='1.7' device='{device}'/>"
        self.socket.sendall(f"{name}<enableBLOB device='{device}' name='CCD1'>Only</enableBLOB>".encode())
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        end, rest = b"</setBLOBVector>", b""
        while True:
            data = self.socket.recv(1 << 20)
            if not data:
                return
            text = rest + data
            self.times += [time.monotonic()] * text.count(end)
            rest = text[-len(end) + 1:]


def seconds_of(pid):
    with open(f"/proc/{pid}/stat") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def main():
    values = [float(word) for word in sys.argv[1:]] + [8, 0.25, 10, 1024][len(sys.argv) - 1:]
    count, exposure, seconds, side = int(values[0]), values[1], values[2], int(values[3])
    with tempfile.TemporaryDirectory() as home:
        cameras = [indi_support.Camera("--same-frame", sensor=f"{side}x{side}") for _ in range(count)]
        targets = ",".join(f"127.0.0.1:{camera.port}" for camera in cameras)
        server = indi_support.Server(indi_support.DRIVER, home=home,
                                     environment={"VXCAM_TARGETS": targets, "DBGD_DISABLE": "1"})
        names = ["VX CCD"] + [f"VX CCD {number}" for number in range(2, count + 1)]
        clients = [indi_support.Client(server.port, name) for name in names]
        counters = []
        for client in clients:
            client.change("CONNECTION", {"CONNECT": True})
            client.change("CCD_FAST_TOGGLE", {"INDI_ENABLED": True})
            client.change("CCD_FAST_COUNT", {"FRAMES": 30000})
            counters.append(Counter(server.port, client.device))
        driver = subprocess.run(["pgrep", "-P", str(server.process.pid)], capture_output=True,
                                text=True).stdout.strip()
        for client in clients:
            client.set("CCD_EXPOSURE", {"CCD_EXPOSURE_VALUE": exposure})
        time.sleep(1)
        before = [seconds_of(driver), seconds_of(server.process.pid)]
        first = sum(len(counter.times) for counter in counters)
        begin = time.monotonic()
        while time.monotonic() < begin + seconds:
            for client in clients:
                client.pump(0.01)
        taken = time.monotonic() - begin
        frames = sum(len(counter.times) for counter in counters) - first
        after = [seconds_of(driver), seconds_of(server.process.pid)]
        late = []
        for camera, counter in zip(cameras, counters):
            told = camera.frames()
            # When its exposure ended, the camera began to send it.
            for frame, arrival in zip(told, list(counter.times)):
                late.append(arrival - frame["endMonotonic"] / 1e9)
        late.sort()
        mib = side * side * 2 / (1 << 20)
        print(f"{count} cameras, {mib:.0f} MiB, {exposure} s: {frames / taken:.1f} frames/s, "
              f"{frames / taken * mib:.0f} MiB/s; exposure's end to client's BLOB: median "
              f"{statistics.median(late) * 1000:.0f} ms, 95 % {late[int(len(late) * 0.95)] * 1000:.0f} ms; "
              f"processor: driver {(after[0] - before[0]) / taken * 100:.0f} %, "
              f"indiserver {(after[1] - before[1]) / taken * 100:.0f} %")
        for camera in cameras:
            camera.close()
        server.close()


if __name__ == "__main__":
    main()
