"""What is known of a frame: records, times, settings, and the cards of its header."""

from __future__ import annotations

import math
from collections.abc import Iterator, Mapping
from datetime import datetime, timedelta, timezone
from typing import Any, NamedTuple, Optional, Union

from . import _vxcam
from ._errors import UsageError
from ._given import refuse_type
from ._table import shown, table_name

_EPOCH = datetime(1970, 1, 1, tzinfo=timezone.utc)

Header = Mapping[str, Union[bool, int, float, str, tuple[Union[bool, int, float, str], str]]]
"""Cards of a header: {"OBJECT": "M31", "AIRMASS": (1.2, "at the middle")}."""


def utc(nanoseconds: int) -> datetime:
    """A moment as an aware datetime; it has microseconds, the rest is cut."""
    return _EPOCH + timedelta(microseconds=nanoseconds // 1000)


def _moment(nanoseconds: Optional[int]) -> Optional[datetime]:
    return None if nanoseconds is None else utc(nanoseconds)


class Complaint(NamedTuple):
    """Something that the camera complained of while the frame's readout ran."""

    code: int
    sub_code: int
    text: str


class Star(NamedTuple):
    """A star in a frame.

    `column` and `row` are its centre, in pixels from 0: (0, 0) is the middle of the first pixel. `flux`
    and `peak`, which is that of its brightest pixel, are ADU above the background; `hfd` is the
    diameter in pixels of the circle that has half of its flux, `fwhm` the full width at half maximum of
    its core, `elongation` its long axis by its short one: 1 is round.
    """

    column: float
    row: float
    flux: float
    hfd: float
    fwhm: float
    saturated: bool
    elongation: float = 1.0
    peak: float = 0.0


class Measures(NamedTuple):
    """What is measured of a frame, as `vxcam grab --measure` tells it, of the rows that came whole.

    Values are ADU. `noise` is the standard deviation of the background, without its slopes and stars,
    `saturated` how many pixels are at full scale, `stars` how many there are; `hfd` and `fwhm`, in
    pixels, and `elongation` (1 is round) are medians over those that are not saturated, None without any.
    """

    min: int
    max: int
    mean: float
    median: float
    noise: float
    saturated: int
    stars: int
    hfd: Optional[float]
    fwhm: Optional[float]
    elongation: Optional[float]


class FrameStatistics(NamedTuple):
    """Figures of all pixels of a frame."""

    mean: float
    std: float
    min: int
    max: int
    saturated: int


class FrameTimes:
    """When a frame was exposed, and how well that is known.

    Each moment is an aware datetime in UTC; with `_ns` behind its name, nanoseconds since 1970.
    """

    __slots__ = ("_facts",)
    _facts: dict[str, Any]

    def __init__(self, facts: dict[str, Any]) -> None:
        object.__setattr__(self, "_facts", facts)

    def __setattr__(self, name: str, value: object) -> None:
        raise AttributeError("the times of a frame are read-only")

    def __reduce__(self) -> tuple[Any, ...]:
        return FrameTimes, (self._facts,)

    @property
    def begin(self) -> datetime:
        """When the exposure began."""
        return utc(self.begin_ns)

    @property
    def middle(self) -> datetime:
        """The middle of the exposure."""
        return utc(self.middle_ns)

    @property
    def end(self) -> datetime:
        """When the exposure ended."""
        return utc(self.end_ns)

    @property
    def begin_ns(self) -> int:
        """The same in nanoseconds since 1970, UTC."""
        return int(self._facts["begin_ns"])

    @property
    def middle_ns(self) -> int:
        """The same in nanoseconds since 1970, UTC."""
        return int(self._facts["middle_ns"])

    @property
    def end_ns(self) -> int:
        """The same in nanoseconds since 1970, UTC."""
        return int(self._facts["end_ns"])

    @property
    def uncertainty(self) -> timedelta:
        """The true begin lies within begin +/- uncertainty; rounded up to a microsecond."""
        return timedelta(microseconds=-(-self.uncertainty_ns // 1000))

    @property
    def uncertainty_ns(self) -> int:
        """The same in nanoseconds."""
        return int(self._facts["uncertainty_ns"])

    @property
    def how(self) -> str:
        """How they were found: "commanded", "interval", "triggered", or only "bounded"."""
        return str(self._facts["how"])

    @property
    def command_sent(self) -> Optional[datetime]:
        """When the readout's command had been sent; None when that was not seen."""
        return _moment(self._facts["command_sent_ns"])

    @property
    def first_packet(self) -> Optional[datetime]:
        """When the first packet of the frame came; None when it did not."""
        return _moment(self._facts["first_packet_ns"])

    @property
    def last_packet(self) -> Optional[datetime]:
        """When the last packet of the frame came; None when it did not."""
        return _moment(self._facts["last_packet_ns"])

    @property
    def clock_synchronised(self) -> bool:
        """Whether the clock of this host was synchronised when the frame came."""
        return bool(self._facts["clock_synchronised"])

    @property
    def clock_maximum_error(self) -> timedelta:
        """How wrong that clock can be, beyond the uncertainty, as the system tells it."""
        return timedelta(microseconds=self._facts["clock_maximum_error_us"])

    def __repr__(self) -> str:
        return (
            f"<vxcam.FrameTimes middle {self.middle.isoformat(timespec='milliseconds')}"
            f" +/- {self.uncertainty.total_seconds():g} s, {self.how}>"
        )


class Settings(Mapping[str, Any]):
    """The properties in force when a frame was taken: settings["gain"], settings["target_temp"].

    A value is None when the camera did not tell it.
    """

    def __init__(self, entries: tuple[tuple[str, Any, str], ...]) -> None:
        self._entries = entries
        self._values = {name: shown(name, value) for name, value, _ in entries}
        self._texts = {name: text for name, _, text in entries}

    def __reduce__(self) -> tuple[Any, ...]:
        return Settings, (self._entries,)

    def __getitem__(self, name: str) -> Any:
        return self._values[self._known(name)]

    def __iter__(self) -> Iterator[str]:
        return iter(self._values)

    def __len__(self) -> int:
        return len(self._values)

    def text(self, name: str) -> str:
        """The value as it is written to set it: "250ms"."""
        return self._texts[self._known(name)]

    def _known(self, name: str) -> str:
        known = table_name(name) if isinstance(name, str) and name else None
        if known not in self._values:
            raise KeyError(f"the frame has no property {name!r}; list(settings) has all")
        return known

    def __repr__(self) -> str:
        return "<vxcam.Settings " + ", ".join(f"{name}={text}" for name, text in self._texts.items()) + ">"


def _number(keyword: str, value: Any) -> str:
    try:
        number = float(value)
    except (TypeError, ValueError):
        raise UsageError(f"header: {keyword}: {value!r} is not possible, give a text, a number or a bool") from None
    except OverflowError:
        number = math.inf
    if not math.isfinite(number):
        raise UsageError(f"header: {keyword}: {value!r} is not possible, a card holds finite numbers")
    return repr(number)


def _whole(keyword: str, value: int) -> str:
    if abs(value) >= 10**18:
        raise UsageError(f"header: {keyword}: a whole number of more than 18 digits is not possible,"
                         " give a float or a text")
    return str(value)


def _card(keyword: str, value: Any) -> str:
    comment = ""
    if isinstance(value, tuple):
        if len(value) != 2:
            raise UsageError(f"header: {keyword}: {value!r} is not possible, give a value and a comment")
        value, comment = value
    if isinstance(value, bool):
        text = "T" if value else "F"
    elif isinstance(value, str):
        text = "'" + value.replace("'", "''") + "'"
    elif hasattr(value, "__index__"):
        text = _whole(keyword, int(value))
    else:
        text = _number(keyword, value)
    return f"{keyword}={text}" + (f"/{comment}" if comment else "")


def cards(header: Optional[Header]) -> list[str]:
    if header is None:
        return []
    if not hasattr(header, "items"):
        refuse_type("header", header, 'a dict: {"OBJECT": "M31"}')
    for keyword in header:
        if not isinstance(keyword, str):
            refuse_type("header", keyword, "texts as keywords")
    return [_card(keyword, value) for keyword, value in header.items()]


def software() -> str:
    return f"vxcam.py {_vxcam.kit_version}"
