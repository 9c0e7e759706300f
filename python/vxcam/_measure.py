"""What frames show, in figures: of one, of pairs, and of a camera under a steady light."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Sequence
from typing import Any, NamedTuple, Optional

from . import _given, _vxcam
from ._cooler import Seconds
from ._frame import Frame


class FlatExposure(NamedTuple):
    """An exposure in seconds at which flat frames have the level, and all that were tried for it:
    of each exposure the median of its frame, in ADU."""

    exposure: float
    tries: tuple[tuple[float, float], ...]


class TransferPair(NamedTuple):
    """Two frames of the same light.

    `exposure` is in seconds, `level` the median of all pixels in ADU; `signal` (ADU above the offset)
    and `variance` (ADU squared, of one frame) are of pixels that are not saturated, None where there
    are none. `used` is which part of the frame these are, `saturated` which part is at full scale,
    both 0 to 1. `fitted`: the gain is also from this one.
    """

    exposure: float
    level: float
    signal: Optional[float]
    variance: Optional[float]
    used: float
    saturated: float
    fitted: bool


class PhotonTransfer(NamedTuple):
    """What a camera is, by photon transfer.

    `gain` is electrons in an ADU, with the standard deviation `gain_uncertainty` by how far the pairs
    lie off their line (None with fewer than three); `read_noise` electrons, `offset` ADU of frames
    without light. `full_well` is electrons, None where no pair was as bright, and `full_well_limit`
    what it ends at: "pixel" or "converter".
    """

    gain: float
    gain_uncertainty: Optional[float]
    read_noise: float
    full_well: Optional[float]
    full_well_limit: Optional[str]
    offset: float
    pairs: tuple[TransferPair, ...]


def transfer_of(told: tuple[Any, ...]) -> PhotonTransfer:
    return PhotonTransfer._make((*told[:-1], tuple(TransferPair(*pair) for pair in told[-1])))


_FEWEST_PAIRS = 6  # where exposures are found: two are too bright, and three are needed for an uncertainty
_PAIR = "two frames: (first, second)"


def _pair(name: str, value: Any) -> tuple[Any, Any]:
    frames = _given.items(name, value, _PAIR)
    if len(frames) != 2 or not all(isinstance(frame, Frame) for frame in frames):
        _given.refuse_type(name, value, _PAIR)
    return frames[0]._core, frames[1]._core


def photon_transfer(bias: Sequence[Frame], flats: Iterable[Sequence[Frame]]) -> PhotonTransfer:
    """Gain, read noise and full well from frames that were taken before.

    bias: two frames without light and exposure; flats: pairs of frames of the same light, two or more.
    All are of 8 or 16 bits, and of one size.

    What differs between the frames of a pair is noise: stars, dust and hot pixels do not count. Raises
    UsageError for frames that are not alike, and when fewer than two pairs are of use.
    """
    pairs = _given.items("flats", flats, "pairs of frames")
    return transfer_of(_vxcam.photon_transfer(_pair("bias", bias), [_pair("flats", pair) for pair in pairs]))


class Measuring:
    """The part of a camera that measures it."""

    __slots__ = ()
    _core: Any

    def flat_exposure(
        self,
        level: float = 0.5,
        *,
        tolerance: float = 0.02,
        first: Seconds = 1.0,
        longest: Seconds = 60.0,
        bits: int = 16,
        area: Optional[Sequence[int]] = None,
        timeout: Optional[Seconds] = None,
    ) -> FlatExposure:
        """Finds the exposure at which flat frames have a level: `camera.flat_exposure(0.5).exposure`.

        level: of the median of the pixels: a part of full scale up to 0.95, or above 1, ADU.
        tolerance: part of the light that is near enough.
        first, longest: seconds: the exposure that is tried first, and the longest one.
        bits, area, timeout: of each frame, as in grab().

        It takes a bias frame and some flat frames, and changes no setting. Raises CameraError where no
        exposure does it, since there is too little light, too much, or it changes; UsageError for a
        level that cannot be, and all that grab() raises. Ctrl-C ends it as it ends grab().
        """
        full = 255 if bits == 8 else 65535
        wanted = _given.real("level", level)
        wanted *= full if wanted <= 1 else 1
        if not 0 < wanted <= 0.95 * full:
            _given.refuse("level", level, f"a part of full scale up to 0.95, or up to {0.95 * full:.0f} ADU")
        near = _given.real("tolerance", tolerance)
        if not 0 < near <= 1:
            _given.refuse("tolerance", tolerance, "a part of the light, above 0 and up to 1")
        plan = {"bits": _given.whole("bits", bits), "area": _given.area(area)}
        return FlatExposure(*self._core.flat_exposure(plan, wanted, near, first, longest, timeout))

    def photon_transfer(
        self,
        pairs: int = 16,
        exposures: Optional[Sequence[Seconds]] = None,
        *,
        longest: Seconds = 600.0,
        area: Optional[Sequence[int]] = None,
        timeout: Optional[Seconds] = None,
        on_progress: Optional[Callable[[str], object]] = None,
    ) -> PhotonTransfer:
        """Measures gain, read noise and full well, with a steady light before the sensor.

        pairs: exposures, of two frames each, 6 to 200; 4 to 200 where `exposures` are given.
        exposures: seconds: (shortest, longest); not given, from a hundredth of what fills the scale to
            beyond that, which is found by trying up to `longest` seconds. Two pairs are brighter than
            the scale then, and do not count for the gain.
        area, timeout: of each frame, as in grab().
        on_progress: called on this thread with what is taken next: "bias", "level", "pair 3/16".

        By default it takes some 14 times the exposure that fills the scale, and the readouts of 40 frames.

        vxcam.photon_transfer() does the same with frames that there are. Raises CameraError where the
        light is of no use, UsageError for what cannot be, before anything is taken, and all that grab()
        raises. Ctrl-C ends it as it ends grab(), or when the figures of two frames are computed.
        """
        wanted = "two times in seconds: the shortest exposure, and the longest one"
        count = _given.whole("pairs", pairs)
        ends: tuple[Any, ...] = (0, 0)
        if exposures is not None:
            ends = tuple(_given.seconds("exposures", end) for end in _given.items("exposures", exposures, wanted))
            if len(ends) != 2 or ends[1] == 0:
                _given.refuse("exposures", exposures, wanted)
        elif count < _FEWEST_PAIRS:
            _given.refuse("pairs", pairs, f"{_FEWEST_PAIRS} to 200, or exposures= with 4 and more")
        if on_progress is not None:
            _given.handler("on_progress", on_progress)
        return transfer_of(self._core.photon_transfer(
            {"area": _given.area(area)}, count, *ends, longest, timeout, on_progress))
