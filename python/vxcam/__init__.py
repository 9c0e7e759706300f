"""Scientific cameras over TCP: take frames, set properties, cool, and know what came and when.

    import vxcam
    with vxcam.Camera("sim") as camera:       # or "192.168.1.20:2000", "serial:17"
        camera.exposure = 0.5
        frame = camera.grab()
        print(frame.array.mean(), frame.times.middle)

help(vxcam.Camera), help(vxcam.Camera.grab) and print(camera.properties["gain"]) say more.
"""

from __future__ import annotations

from typing import TYPE_CHECKING

from . import _vxcam
from ._camera import Camera, process_statistics as _process_statistics
from ._cooler import Cooler, CoolingState
from ._errors import (
    Aborted,
    AccessError,
    BusyError,
    CameraError,
    CameraTimeout,
    Error,
    HookError,
    IncompleteFrame,
    LinkLost,
    NotFoundError,
    PlanError,
    UsageError,
    WrongTypeError,
)
from ._events import Event, Subscription, log
from ._facts import Complaint, FrameStatistics, FrameTimes, Measures, Settings, Star
from ._frame import Frame
from ._measure import FlatExposure, PhotonTransfer, TransferPair, photon_transfer
from ._recording import Finding, Record, RecordedFile, Recorder, Verdict, verify
from ._records import Identity, LinkCheck, Outcome, Setting, Statistics
from ._sequence import (
    Sequence,
    SequenceFailure,
    SequenceFile,
    SequenceNeeds,
    SequenceProgress,
    SequenceReport,
    SequenceStep,
)
from ._simulator import Found, SentFrame, Simulator, discover
from ._stream import AsyncStream, Progress, Stream
from ._table import Area, Properties, Property, properties
from ._wire import Capture, CaptureBooks, Replay, ReplayBooks, WireCondition, WireEvent, WireEvents, decode

__version__: str = _vxcam.kit_version
"""Version of this package and of the kit."""
library_version: str = _vxcam.library_version
"""Version of the library that both stand on."""

if TYPE_CHECKING:
    statistics: Statistics
    """What all cameras of this process have done together; camera.statistics is of one."""


def __getattr__(name: str) -> Statistics:
    if name == "statistics":
        return _process_statistics()
    raise AttributeError(f"module 'vxcam' has no attribute '{name}'")


def __dir__() -> list[str]:
    return sorted(__all__)


__all__ = [
    "Aborted", "AccessError", "Area", "AsyncStream", "BusyError", "Camera", "CameraError",
    "CameraTimeout", "Capture", "CaptureBooks", "Complaint", "Cooler", "CoolingState", "Error", "Event", "Finding", "FlatExposure", "Found",
    "Frame",
    "FrameStatistics", "FrameTimes", "HookError", "Identity", "IncompleteFrame", "LinkCheck", "LinkLost",
    "Measures", "NotFoundError", "Outcome", "PhotonTransfer", "PlanError", "Progress", "Properties", "Property", "Record", "RecordedFile",
    "Replay", "ReplayBooks",
    "Recorder", "SentFrame", "Sequence", "SequenceFailure", "SequenceFile", "SequenceNeeds", "SequenceProgress",
    "SequenceReport", "SequenceStep", "Setting", "Settings", "Simulator", "Star", "Statistics", "Stream", "Subscription", "TransferPair", "UsageError", "Verdict",
    "WireCondition", "WireEvent", "WireEvents", "WrongTypeError", "__version__", "decode", "discover", "library_version", "log", "photon_transfer", "properties", "statistics", "verify",
]

for _name in __all__:
    _thing = globals().get(_name)
    if isinstance(_thing, type):
        _thing.__module__ = "vxcam"
