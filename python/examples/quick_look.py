"""Takes a frame, saves it as FITS and as a picture, and says what it shows.

    python3 quick_look.py [--target TARGET] [--exposure SECONDS] [--name NAME]
"""

from __future__ import annotations

import argparse

import vxcam


def main() -> None:
    parser = argparse.ArgumentParser(description="Takes a frame and saves it.")
    parser.add_argument("--target", default="sim", help="host:port, serial:17, or sim")
    parser.add_argument("--exposure", type=float, default=1.0, help="seconds")
    parser.add_argument("--name", default="frame", help="of the files, without an ending")
    given = parser.parse_args()

    with vxcam.Camera(given.target) as camera:
        frame = camera.grab(exposure=given.exposure)
    frame.to_fits(f"{given.name}.fits", overwrite=True, header={"OBSERVER": "quick look"})
    frame.to_png(f"{given.name}.png", overwrite=True)

    stars = frame.stars()
    print(f"{given.name}.fits, {given.name}.png: {frame.columns} x {frame.rows} pixels of {frame.bits} bits")
    print(f"middle of the exposure {frame.times.middle.isoformat(timespec='milliseconds')}", end=" ")
    print(f"+/- {frame.times.uncertainty.total_seconds() * 1000:.1f} ms")
    print(f"mean {frame.statistics.mean:.1f}, {frame.statistics.saturated} saturated, {len(stars)} stars", end="")
    print(f", the brightest {stars[0].fwhm:.1f} pixels wide" if stars else "")


if __name__ == "__main__":
    main()
