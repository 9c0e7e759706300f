"""Follows the brightest star from frame to frame, and writes its flux over time as a table of astropy.

    python3 time_series.py [--target TARGET] [--frames N] [--exposure SECONDS] [--file series.ecsv]
"""

from __future__ import annotations

import argparse

from astropy.table import Table  # type: ignore[import]  # it has no types
from astropy.time import Time  # type: ignore[import]

import vxcam


def series(camera: vxcam.Camera, frames: int, exposure: float) -> Table:
    """A row for each frame in which the star was found: time, flux above the background, width."""
    rows: list[tuple[str, float, float, float, float, float]] = []
    place: tuple[float, float] | None = None
    for frame in camera.stream(frames=frames, exposure=exposure):
        stars = [star for star in frame.stars() if not star.saturated]
        if not frame.complete or not stars:
            continue
        if place is None:
            place = (stars[0].column, stars[0].row)
        column, row = place
        star = min(stars, key=lambda one: (one.column - column) ** 2 + (one.row - row) ** 2)
        place = (star.column, star.row)  # it may drift
        times = frame.times
        rows.append((times.middle.isoformat(), times.uncertainty.total_seconds(), star.flux, star.fwhm,
                     star.column, star.row))
    names = ["time", "uncertainty", "flux", "fwhm", "column", "row"]
    table = Table(rows=rows, names=names, dtype=["U32", float, float, float, float, float])
    table["time"] = Time([text[:26] for text in table["time"]], format="isot", scale="utc")
    return table


def main() -> None:
    parser = argparse.ArgumentParser(description="Follows the brightest star.")
    parser.add_argument("--target", default="sim?sensor=256x256")
    parser.add_argument("--frames", type=int, default=10)
    parser.add_argument("--exposure", type=float, default=0.1, help="seconds")
    parser.add_argument("--file", default="series.ecsv")
    given = parser.parse_args()
    with vxcam.Camera(given.target) as camera:
        table = series(camera, given.frames, given.exposure)
    table.write(given.file, format="ascii.ecsv", overwrite=True)
    print(table)


if __name__ == "__main__":
    main()
