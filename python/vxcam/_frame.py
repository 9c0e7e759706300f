"""Frames, and everything that is known of them."""

from __future__ import annotations

import base64
import html
import json
from typing import TYPE_CHECKING, Any, Optional

from . import _given, _vxcam
from ._facts import Complaint, FrameStatistics, FrameTimes, Header, Measures, Settings, Star, cards, software
from ._given import Path
from ._table import Area

if TYPE_CHECKING:
    from numpy.typing import NDArray


class Frame:
    """One frame. It owns its pixels, knows what is missing of it, and may outlive its camera.

    All facts are read-only. `numpy.asarray(frame)` is the same as `frame.array`.
    """

    # What is asked for is kept in `_kept`: most frames of a fast stream are asked for little.
    __slots__ = ("_core", "_kept", "__weakref__")
    _core: Any
    _kept: dict[str, Any]

    def __init__(self, core: Any) -> None:
        if type(core) is not _vxcam.Frame:
            _given.refuse_type("frame", core, "nothing: frames come from cameras")
        _set_core(self, core)
        _set_kept(self, {})

    def __setattr__(self, name: str, value: object) -> None:
        raise AttributeError(f"a frame is read-only: '{name}' cannot be set")

    def __delattr__(self, name: str) -> None:
        raise AttributeError(f"a frame is read-only: '{name}' cannot be deleted")

    def __copy__(self) -> Frame:
        return self  # nothing of it changes

    def __deepcopy__(self, memo: Any) -> Frame:
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        core = self._core
        return _frame_of, (core.pixels(), core.facts(), core.times(), core.settings())

    @property
    def _facts(self) -> dict[str, Any]:
        kept = self._kept
        if "facts" not in kept:
            kept["facts"] = self._core.facts()
        facts: dict[str, Any] = kept["facts"]
        return facts

    # ---- Pixels

    if TYPE_CHECKING:

        @property
        def array(self) -> NDArray[Any]: ...
    else:
        array = property(
            _vxcam.array_of,
            doc="""The pixels: a read-only numpy array of shape (rows, columns).

        Of 8 bits it is uint8, of 16 bits uint16, of binned frames int32. Nothing is copied: the
        array has the very memory that the pixels came to, and that lives as long as it does. A
        sum of bins above 2147483647 shows in `array.view("uint32")`.
        """,
        )

    def __array__(self, dtype: Any = None, copy: Optional[bool] = None) -> NDArray[Any]:
        array = self.array if dtype is None else self.array.astype(dtype, copy=False)
        return array.copy() if copy and array is self.array else array

    @property
    def rows(self) -> int:
        """Rows of pixels."""
        return int(self._core.rows)

    @property
    def columns(self) -> int:
        """Columns of pixels."""
        return int(self._core.columns)

    @property
    def shape(self) -> tuple[int, int]:
        """(rows, columns), as that of the array."""
        return (self.rows, self.columns)

    @property
    def bits(self) -> int:
        """Bits a pixel: 8, 16 or 32."""
        return int(self._core.bits)

    @property
    def sum(self) -> int:
        """The sum of all pixels."""
        return int(self._core.sum())

    @property
    def statistics(self) -> FrameStatistics:
        """Mean, std, min and max of all pixels, and how many have the highest value that there is."""
        if "statistics" not in self._kept:
            self._kept["statistics"] = FrameStatistics(*self._core.figures())
        statistics: FrameStatistics = self._kept["statistics"]
        return statistics

    @property
    def measures(self) -> Measures:
        """Median, noise of the background, and how sharp and round stars are: `frame.measures.hfd`.

        Measured when it is asked for the first time, without the interpreter lock.
        """
        if "measures" not in self._kept:
            self._kept["measures"] = Measures(*self._core.measures())
        measures: Measures = self._kept["measures"]
        return measures

    def stars(self) -> tuple[Star, ...]:
        """The stars in the frame, the brightest one first, a thousand at most.

        Stars that reach beyond the frame, or into rows that did not come, are left out.
        """
        return tuple(Star(*star) for star in self._core.stars())

    # ---- What is missing

    if TYPE_CHECKING:

        @property
        def complete(self) -> bool: ...
    else:
        complete = property(_vxcam.is_complete, doc="Whether nothing is missing, damaged or misplaced.")

    @property
    def missing_rows(self) -> tuple[int, ...]:
        """The rows that did not come whole, from 0, ascending; all their pixels are 0."""
        return tuple(self._facts["missing_rows"])

    @property
    def missing_rows_known(self) -> bool:
        """False: something is missing, and it is not known which rows."""
        return bool(self._facts["missing_rows_known"])

    @property
    def packets_expected(self) -> int:
        """Packets that the frame consists of."""
        return int(self._facts["packets_expected"])

    @property
    def packets_missing(self) -> int:
        """Packets of these that did not come."""
        return int(self._facts["packets_missing"])

    @property
    def packets_misplaced(self) -> int:
        """Packets with pixels outside the image."""
        return int(self._facts["packets_misplaced"])

    @property
    def packets_damaged(self) -> int:
        """Packets that came, but not whole."""
        return int(self._facts["packets_damaged"])

    @property
    def dropped(self) -> int:
        """Frames of its stream before it that were dropped, since nobody took them in time."""
        return int(self._facts["dropped"])

    @property
    def complaints(self) -> tuple[Complaint, ...]:
        """What the camera complained of while the frame's readout ran."""
        return tuple(Complaint(*complaint) for complaint in self._facts["complaints"])

    @property
    def true_sum(self) -> Optional[int]:
        """The sum of the pixels that were sent, as a simulated camera in this process knows it."""
        return _optional_int(self._facts["true_sum"])

    # ---- What it shows, and how it was taken

    @property
    def times(self) -> FrameTimes:
        """When it was exposed: times.begin, .middle, .end, .uncertainty, .how."""
        if "times" not in self._kept:
            self._kept["times"] = FrameTimes(self._core.times())
        times: FrameTimes = self._kept["times"]
        return times

    @property
    def settings(self) -> Settings:
        """The properties in force: settings["gain"]."""
        if "settings" not in self._kept:
            self._kept["settings"] = Settings(self._core.settings())
        settings: Settings = self._kept["settings"]
        return settings

    @property
    def number(self) -> int:
        """Within its readout, from 1."""
        return int(self._facts["number"])

    @property
    def readout(self) -> int:
        """Which readout of the camera it belongs to, from 1."""
        return int(self._facts["readout"])

    @property
    def kind(self) -> str:
        """"area", "binned" or "mask-binned"."""
        return str(self._facts["kind"])

    @property
    def type(self) -> str:
        """"light", "dark", "bias" or "flat"."""
        return str(self._facts["type"])

    @property
    def exposure(self) -> float:
        """Exposure time in seconds."""
        return float(self._facts["exposure"])

    @property
    def area(self) -> Area:
        """The part of the sensor that it shows."""
        return Area(*self._facts["area"])

    @property
    def regions(self) -> tuple[Area, ...]:
        """Where several parts were read, these, one below the other; else empty."""
        return tuple(Area(*region) for region in self._facts["regions"])

    @property
    def binning(self) -> tuple[int, int]:
        """Columns and rows of the sensor in a pixel; (0, 0) where these are not all alike."""
        x, y = self._facts["binning"]
        return (int(x), int(y))

    @property
    def sensor(self) -> tuple[int, int]:
        """Columns and rows of the sensor."""
        columns, rows = self._facts["sensor"]
        return (int(columns), int(rows))

    @property
    def ccd_temp(self) -> Optional[float]:
        """Temperature of the sensor when it came, in degrees Celsius; None when nobody told it."""
        return _optional_float(self._facts["ccd_temp"])

    @property
    def board_temp(self) -> Optional[float]:
        """Temperature of the board, likewise."""
        return _optional_float(self._facts["board_temp"])

    @property
    def target_temp(self) -> Optional[float]:
        """The temperature that the sensor was to be cooled to, likewise."""
        return _optional_float(self._facts["target_temp"])

    @property
    def camera_name(self) -> str:
        """What the camera is called; empty when it does not tell."""
        return str(self._facts["camera_name"])

    @property
    def serial(self) -> str:
        """The camera's serial number; empty when it does not tell."""
        return str(self._facts["serial"])

    @property
    def target(self) -> str:
        """The camera, as it was opened."""
        return str(self._facts["target"])

    # ---- Files and other forms

    @property
    def header(self) -> dict[str, Any]:
        """What is written down of the frame: {"EXPTIME": 0.5, ...}."""
        header: dict[str, Any] = json.loads(self._core.header_json(software(), []))
        return header

    def to_fits(
        self,
        path: Path,
        overwrite: bool = False,
        header: Optional[Header] = None,
    ) -> None:
        """Writes a FITS file with all that is known of the frame.

        `header` has further cards: {"OBJECT": "M31", "AIRMASS": (1.2, "at the middle")}. The file
        appears under its name when it is whole. Raises FileExistsError for one that is there,
        unless `overwrite`, other OSErrors as they come, and UsageError for a name that ends as those
        of another kind of file do, or in .gz: nothing is compressed here. HISTORY and COMMENT are cards
        for astropy: to_hdu().header.add_history().
        """
        self._write("FITS", path, overwrite, header)

    def to_tiff(
        self,
        path: Path,
        overwrite: bool = False,
        header: Optional[Header] = None,
    ) -> None:
        """Writes a TIFF file, with the header as JSON in its description; as to_fits()."""
        self._write("TIFF", path, overwrite, header)

    def to_png(self, path: Path, overwrite: bool = False) -> None:
        """Writes a picture to look at, stretched to 8 bits; as to_fits()."""
        self._write("PNG", path, overwrite, None)

    def _write(self, format: str, path: Path, overwrite: bool, header: Optional[Header]) -> None:
        name = _given.path("path", path)
        if name.lower().endswith(".gz"):
            _given.refuse("path", name, f"a name without .gz: {format} is written as it is, and may be compressed later")
        self._core.write(format, name, _given.flag("overwrite", overwrite), software(),
                         cards(header))

    def to_hdu(self, header: Optional[Header] = None) -> Any:
        """An astropy.io.fits.PrimaryHDU with pixels and header, as to_fits() writes them."""
        fits = _astropy("astropy.io.fits")
        hdus = fits.HDUList.fromstring(self._core.fits(software(), cards(header)))
        hdus[0].data  # is read now, while its bytes are there
        return hdus[0]

    def to_ccddata(self, header: Optional[Header] = None) -> Any:
        """An astropy.nddata.CCDData in adu, with the header as `meta` and the missing rows masked."""
        import numpy

        nddata = _astropy("astropy.nddata")
        mask = None
        if not self.complete:
            mask = numpy.zeros(self.shape, dtype=bool)
            mask[list(self.missing_rows)] = True
            if not self.missing_rows_known:
                mask[:] = True
        meta = self.to_hdu(header).header
        for keyword in ("BZERO", "BSCALE", "BLANK", "CHECKSUM", "DATASUM"):
            meta.remove(keyword, ignore_missing=True)
        pixels = self.array.view("uint32") if self.bits == 32 else self.array
        return nddata.CCDData(pixels.copy(), unit="adu", mask=mask, meta=meta)

    def _repr_png_(self) -> bytes:
        picture: bytes = self._core.png(1024)
        return picture

    def _repr_html_(self) -> str:
        picture = base64.b64encode(self._repr_png_()).decode()
        facts = "".join(
            f"<tr><th style='text-align:left'>{html.escape(name)}</th>"
            f"<td style='text-align:left'>{html.escape(text)}</td></tr>"
            for name, text in self._told()
        )
        return (
            f"<div><img style='max-width:100%' src='data:image/png;base64,{picture}'/>"
            f"<table>{facts}</table></div>"
        )

    def _told(self) -> list[tuple[str, str]]:
        times, figures = self.times, self.statistics
        facts = [
            ("frame", f"{self.number} of readout {self.readout}, {self.kind}, {self.type}"),
            ("size", f"{self.columns} x {self.rows} pixels of {self.bits} bits"),
            ("exposure", f"{self.exposure:g} s"),
            ("middle", f"{times.middle.isoformat(sep=' ', timespec='milliseconds')}"
                       f" \N{PLUS-MINUS SIGN} {times.uncertainty.total_seconds():g} s, {times.how}"),
            ("pixels", f"mean {figures.mean:.1f}, std {figures.std:.1f}, {figures.min} to {figures.max},"
                       f" {figures.saturated} saturated"),
            ("camera", f"{self.camera_name} {self.serial} at {self.target}".strip()),
        ]
        if self.ccd_temp is not None:
            facts.append(("sensor", f"{self.ccd_temp:.1f} \N{DEGREE SIGN}C"))
        if not self.complete:
            facts.append(("incomplete", self._gap()))
        return facts

    def _gap(self) -> str:
        text = f"{self.packets_missing} of {self.packets_expected} packets missing"
        if self.missing_rows:
            text += f", {len(self.missing_rows)} rows not whole"
        return text

    def __repr__(self) -> str:
        text = f"<vxcam.Frame {self.number}: {self.columns} x {self.rows}, {self.bits} bits, {self.exposure:g} s"
        return text + (">" if self.complete else f", incomplete: {self._gap()}>")


_set_core = Frame.__dict__["_core"].__set__  # past __setattr__
_set_kept = Frame.__dict__["_kept"].__set__


def _frame_of(*parts: Any) -> Frame:
    """A frame that was pickled."""
    return Frame(_vxcam.Frame.of(*parts))


def _optional_int(value: Optional[int]) -> Optional[int]:
    return None if value is None else int(value)


def _optional_float(value: Optional[float]) -> Optional[float]:
    return None if value is None else float(value)


def _astropy(name: str) -> Any:
    import importlib

    try:
        return importlib.import_module(name)
    except ImportError as error:
        raise ImportError(f"this needs astropy (Debian: python3-astropy): {error}") from error
