"""Finds the best focus: measures the stars at several positions of the focuser, and fits a curve.

The focuser is moved by a command, in which {} is the position. With the simulated camera:

    vxcamsim --port 5000 --item-port 5001 --sensor 512x512 &
    python3 focus.py --target 127.0.0.1:5000 --move "vxcam items 127.0.0.1:5001 set defocus {}" -8 8
"""

from __future__ import annotations

import argparse
import shlex
import statistics
import subprocess
from collections.abc import Callable

import numpy

import vxcam


def half_flux_diameter(camera: vxcam.Camera, exposure: float) -> float:
    """The median over the stars of a frame."""
    sizes = [star.hfd for star in camera.grab(exposure=exposure).stars() if not star.saturated]
    if not sizes:
        raise SystemExit("no stars in the frame: expose longer, or begin nearer to the focus")
    return statistics.median(sizes)


def best_focus(
    camera: vxcam.Camera, move: Callable[[float], None], first: float, last: float, steps: int, exposure: float
) -> tuple[float, float]:
    """The position where the stars are smallest, and how large they are there."""
    positions = numpy.linspace(first, last, steps)
    sizes = []
    for position in positions:
        move(float(position))
        sizes.append(half_flux_diameter(camera, exposure))
        print(f"position {position:8.2f}: {sizes[-1]:.2f} pixels")
    # Far from the focus sizes follow a V, near it a hyperbola: their squares are a parabola.
    a, b, c = (float(factor) for factor in numpy.polyfit(positions, numpy.square(sizes), 2))
    if a <= 0:
        raise SystemExit("the stars grow nowhere: the best position lies outside")
    best = -b / (2 * a)
    return best, max(c - b * b / (4 * a), 0.0) ** 0.5


def main() -> None:
    parser = argparse.ArgumentParser(description="Finds the best focus.")
    parser.add_argument("--target", default="sim")
    parser.add_argument("--move", required=True, help="the command that moves the focuser; {} is the position")
    parser.add_argument("--steps", type=int, default=9)
    parser.add_argument("--exposure", type=float, default=0.5, help="seconds")
    parser.add_argument("first", type=float)
    parser.add_argument("last", type=float)
    given = parser.parse_args()

    def move(position: float) -> None:
        subprocess.run(shlex.split(given.move.format(position)), check=True, stdout=subprocess.DEVNULL)

    with vxcam.Camera(given.target) as camera:
        best, size = best_focus(camera, move, given.first, given.last, given.steps, given.exposure)
    move(best)
    print(f"best focus at {best:.2f}, {size:.2f} pixels")


if __name__ == "__main__":
    main()
