"""The simulated camera, and cameras of the local networks."""

from __future__ import annotations

from collections.abc import Iterable
from datetime import datetime
from typing import NamedTuple, Optional

from . import _given, _vxcam
from ._facts import utc
from ._scope import Scope


_MOST_SEED = 2**64 - 1


class SentFrame(NamedTuple):
    """What the simulated camera knows of a frame that it sent.

    `sum` and `crc` (that of zlib.crc32) are of the pixels that it meant to send, `sent_sum` and
    `sent_crc` of those that went out, where a fault made them others.
    """

    readout: int
    frame: int
    rows: int
    columns: int
    bits: int
    sum: int
    crc: int
    sent_sum: int
    sent_crc: int
    complete: bool
    intact: bool
    begin_ns: int
    end_ns: int

    @property
    def begin(self) -> datetime:
        """When its exposure began."""
        return utc(self.begin_ns)

    @property
    def end(self) -> datetime:
        """When its exposure ended."""
        return utc(self.end_ns)


class Simulator(Scope):
    """A simulated camera in this process, to open again and again: Camera(simulator).

    It goes on while a camera that was opened so is open, and ends when close() is called, or nothing
    holds it any more: of Camera(Simulator().target) it has ended before it is opened.

    `sensor` is (columns, rows). `faults` are what goes wrong, as docs/simulator.md has them:
    "missing-packet:readout=1,packet=20". `scale` is how much faster than the clock camera time
    goes by, which a camera of this process knows, `heartbeat` the seconds between heartbeats. The same
    `seed` makes the same pixels.
    """

    __slots__ = ("_core", "__weakref__")

    def __init__(
        self,
        sensor: tuple[int, int] = (2048, 2048),
        faults: Iterable[str] = (),
        *,
        seed: int = 1,
        scale: float = 1.0,
        heartbeat: float = 0.2,
        fault_seed: int = 1,
    ) -> None:
        if isinstance(faults, str):
            faults = (faults,)
        columns, rows = _given.wholes("sensor", sensor, 2, "two whole numbers: columns, rows")
        self._core = _vxcam.Simulator(
            (columns, rows),
            [_given.text("faults", fault) for fault in _given.items("faults", faults, "a list of texts")],
            _given.whole("seed", seed, 0, _MOST_SEED),
            _given.real("scale", scale),
            _given.real("heartbeat", heartbeat, "seconds as a number"),
            _given.whole("fault_seed", fault_seed, 0, _MOST_SEED),
        )

    @property
    def target(self) -> str:
        """Where it is: "127.0.0.1:40123"."""
        return str(self._core.target())

    def inject(self, fault: str) -> None:
        """One more fault, for what it sends from now on."""
        self._core.inject(_given.text("fault", fault))

    @property
    def frames(self) -> tuple[SentFrame, ...]:
        """The last 64 frames that it sent, the oldest first."""
        return tuple(SentFrame(*frame) for frame in self._core.frames())

    def close(self) -> None:
        """Ends it; who is connected loses the connection."""
        self._core.close()

    def _leave(self, error: Optional[BaseException]) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<vxcam.Simulator at {self.target}>"


class Found(NamedTuple):
    """A camera that answered on the local networks. `interfaces` are this host's addresses on the way."""

    address: str
    port: int
    serial: int
    interfaces: tuple[str, ...]

    @property
    def target(self) -> str:
        """To open it: Camera(found.target)."""
        return f"{self.address}:{self.port}"


def discover() -> list[Found]:
    """Looks for cameras on the local networks, for a little over half a second."""
    return [Found(*camera) for camera in _vxcam.discover()]
