"""A record at a fixed rate; scripts/recordrate tells what for."""
import argparse
import glob
import json
import os
import subprocess
import sys
import tempfile
import time

SIDE, BYTES = 2048, 2  # rows and columns of a frame, bytes of a pixel
MEGA = 1e6
SPLIT = "1GB"
KEPT = 2  # files behind the newest one
LITTLE = 64 << 20  # what the program needs besides the buffer


def status_of(process, name):
    with open(f"/proc/{process.pid}/status") as file:
        for line in file:
            if line.startswith(name + ":"):
                return int(line.split()[1]) * 1024
    return 0


def bytes_of(text):
    units = {"MiB": 1 << 20, "GiB": 1 << 30, "MB": 10**6, "GB": 10**9}
    unit = next(one for one in units if text.endswith(one))
    return int(text[:-len(unit)]) * units[unit]


def numbered(folder, ending):
    return sorted(glob.glob(os.path.join(folder, f"a-*.{ending}")))


class Watch:
    """What the record takes while it runs."""

    def __init__(self):
        self.memory = self.disk = self.deleted = 0

    def look(self, process, folder, ending):
        try:
            self.memory = max(self.memory, status_of(process, "VmHWM"))
        except OSError:
            pass
        files = numbered(folder, ending)
        self.disk = max(self.disk, sum(os.path.getsize(one) for one in files))
        for old in files[:-KEPT - 1]:
            os.unlink(old)
            self.deleted += 1


def frames_that_are_wrong(folder):
    """Of the indexes of raw files, which stay."""
    count, wrong, last, dropped = 0, [], 0, 0
    for path in sorted(glob.glob(os.path.join(folder, "*.jsonl"))):
        with open(path) as file:
            for row in map(json.loads, file):
                if "index" not in row:
                    continue
                follows = row["number"] == last + 1 + row["dropped"] - dropped
                if not follows or not row["complete"]:
                    wrong.append(row["index"])
                last, dropped = row["number"], row["dropped"]
                count += 1
    return count, wrong


def main():
    line = argparse.ArgumentParser()
    line.add_argument("--seconds", type=int, default=600)
    line.add_argument("--rate", type=float, default=400)
    line.add_argument("--ending", default="raw")
    line.add_argument("--buffer", default="2GiB")
    line.add_argument("--folder", default=None)
    asked = line.parse_args()
    rows = asked.rate * MEGA / (SIDE * BYTES)
    camera = subprocess.Popen(
        [os.environ["VXCAMSIM"], "--same-frame", "--line-rate", f"{rows:.0f}", "--quiet"],
        stdout=subprocess.PIPE, text=True)
    try:
        port = camera.stdout.readline().rsplit(":", 1)[1].split()[0]
        with tempfile.TemporaryDirectory(dir=asked.folder) as folder:
            return record(asked, port, folder)
    finally:
        camera.terminate()
        camera.wait()


def record(asked, port, folder):
    path = os.path.join(folder, "a." + asked.ending)
    process = subprocess.Popen(
        [os.environ["VXCAM"], "record", f"127.0.0.1:{port}", "-e", "0", "--for", f"{asked.seconds}s",
         "--when-full", "drop", "--split", SPLIT, "--buffer", asked.buffer, "-o", path, "-q",
         "--json"], stdout=subprocess.PIPE, text=True)
    watch = Watch()
    while process.poll() is None:
        watch.look(process, folder, asked.ending)
        time.sleep(0.1)
    document = json.loads(process.stdout.read())
    good = process.returncode == 0
    print(f"{document['frames']} frames in {document['seconds']:.1f} s, "
          f"{document['mb_per_s']:.1f} MB/s of {asked.rate:.0f}; {document['dropped']} dropped, "
          f"{document['incomplete']} incomplete; {watch.deleted} files deleted behind it, "
          f"{watch.disk / 1e9:.1f} GB of disk at most")
    print(f"memory: {watch.memory / 2**20:.0f} MiB at most, with --buffer {asked.buffer}")
    good &= document["dropped"] == 0 and document["incomplete"] == 0
    good &= document["mb_per_s"] > 0.98 * asked.rate
    good &= watch.memory < bytes_of(asked.buffer) + LITTLE
    if asked.ending == "raw":
        count, wrong = frames_that_are_wrong(folder)
        print(f"{count} frames in the indexes, {len(wrong)} out of place")
        good &= not wrong and count == document["frames"]
    last = numbered(folder, asked.ending)[-1]
    print(subprocess.run([os.environ["VXCAM"], "verify", last], stdout=subprocess.PIPE,
                         text=True).stdout.strip().replace(folder + "/", ""))
    print("held" if good else "NOT held")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
