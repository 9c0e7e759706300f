"""Measures a camera's gain and read noise from pairs of frames: the photon transfer curve.

The variance of the difference of two frames alike is twice that of one. Of bias frames that is the
read noise; of light it grows with the signal, by the gain: variance = noise + gain * signal.

    python3 photon_transfer.py [--target TARGET] [--gain N]
"""

from __future__ import annotations

import argparse
from typing import Any, NamedTuple

import numpy

import vxcam


class Transfer(NamedTuple):
    """What was measured, and the curve that it was found from."""

    gain: float  # counts per electron
    read_noise: float  # electrons
    signals: list[float]  # counts above the bias
    variances: list[float]  # counts squared, of one frame


def quiet(first: Any, second: Any) -> tuple[float, float]:
    """Mean and variance of a pixel of two frames alike, of those pixels that are like most others.

    Stars and hot pixels, and saturated ones, are left out.
    """
    mean = (first + second) / 2
    level, width = numpy.median(mean), 1.4826 * numpy.median(numpy.abs(mean - numpy.median(mean)))
    ordinary = numpy.abs(mean - level) < 4 * width
    return float(mean[ordinary].mean()), float((first - second)[ordinary].var() / 2)


def pair(camera: vxcam.Camera, exposure: float, kind: str = "light") -> tuple[float, float]:
    first, second = (frame.array.astype(float)
                     for frame in camera.stream(frames=2, exposure=exposure, type=kind))
    return quiet(first, second)


def measure(camera: vxcam.Camera, exposures: tuple[float, ...] = (0.5, 1, 2, 4, 8, 16)) -> Transfer:
    """The gain and the read noise of a camera as it is set."""
    bias, noise = numpy.mean([pair(camera, 0, "bias") for _ in range(4)], axis=0)
    curve = [pair(camera, exposure) for exposure in exposures]
    signals = numpy.array([mean - bias for mean, _ in curve])
    variances = numpy.array([variance for _, variance in curve])
    # A line through the read noise; each point counts by how well it is known.
    gain = float(numpy.sum((variances - noise) * signals / variances**2)
                 / numpy.sum(signals**2 / variances**2))
    return Transfer(gain, float(numpy.sqrt(noise)) / gain, signals.tolist(), variances.tolist())


def main() -> None:
    parser = argparse.ArgumentParser(description="Measures gain and read noise.")
    parser.add_argument("--target", default="sim?sensor=512x512&scale=20")
    parser.add_argument("--gain", type=int, default=0)
    given = parser.parse_args()
    with vxcam.Camera(given.target) as camera:
        camera.gain = given.gain
        found = measure(camera)
        print(f"gain {found.gain:.3f} counts per electron, read noise {found.read_noise:.2f} electrons")
        print(f"the camera says {camera.readout_noise.first:g} electrons")


if __name__ == "__main__":
    main()
