"""`python -m vxcam [TARGET]`: prints versions and takes a frame, of a simulated camera by default."""

from __future__ import annotations

import argparse
import platform
import sys

import numpy

import vxcam


def main(arguments: list[str]) -> int:
    """The exit code."""
    parser = argparse.ArgumentParser(
        prog="python -m vxcam", description="Prints versions and takes a frame of 0.1 s.",
        epilog="Exit code 1: no camera, or no frame. All else is in help(vxcam).")
    parser.add_argument("target", nargs="?", default="sim?sensor=512x512", metavar="TARGET",
                        help='"192.168.1.20:2000", "serial:17", or "sim", which is simulated: the default')
    target = parser.parse_args(arguments).target
    print(f"vxcam {vxcam.__version__}, library {vxcam.library_version},", end=" ")
    print(f"Python {platform.python_version()}, numpy {numpy.__version__}")
    try:
        with vxcam.Camera(target) as camera:
            frame = camera.grab(exposure=0.1)
    except vxcam.Error as error:
        print(f"{type(error).__name__}: {error}", file=sys.stderr)
        return 1
    print(f"{frame!r} of {target}")
    print(f"middle {frame.times.middle.isoformat()} +/- {frame.times.uncertainty.total_seconds():g} s")
    print(f"mean {frame.statistics.mean:.1f}, std {frame.statistics.std:.1f}, sum {frame.sum}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
