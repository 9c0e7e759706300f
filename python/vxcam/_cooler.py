"""Cooling a sensor, and warming it up again, slowly."""

from __future__ import annotations

from datetime import timedelta
from typing import Any, NamedTuple, Optional, Union

from ._errors import Aborted, CameraError, CameraTimeout, UsageError
from ._given import real

Seconds = Union[float, timedelta]


class CoolingState(NamedTuple):
    """How far the cooler is."""

    phase: str
    temperature: Optional[float]
    set_point: float
    target: float
    done: float
    text: str
    is_over: bool


class Cooler:
    """The cooler of a camera. Temperatures are degrees Celsius, rates degrees a minute.

    It goes on in the background; wait() waits until it is there.
    """

    __slots__ = ("_camera",)

    def __init__(self, camera: Any) -> None:
        self._camera = camera

    def _core(self) -> Any:
        if self._camera.closed:
            raise Aborted(f"{self._camera.target}: the camera is closed, nothing is cooled any more; open it anew")
        return self._camera._core

    def ramp_to(
        self,
        target: float,
        rate: float = 0,
        *,
        tolerance: float = 0.5,
        settle: Seconds = 10,
        patience: Seconds = 120,
    ) -> None:
        """Cools the sensor to `target`, by `rate` degrees a minute (0: at once), and returns.

        It is settled when it was within `tolerance` degrees for `settle` seconds; it has failed
        when it came no nearer for `patience` seconds. What was under way before ends.
        """
        self._core().cool(real("target", target, "degrees Celsius"), real("rate", rate, "degrees a minute"),
                          real("tolerance", tolerance, "degrees"), settle, patience)

    def warm_up(self, target: float = 20, rate: float = 0, *, patience: Seconds = 120) -> None:
        """Warms the sensor up by `rate` degrees a minute (0: at once), switches cooling off, and returns."""
        self._core().warm_up(real("target", target, "degrees Celsius"),
                             real("rate", rate, "degrees a minute"), patience)

    def stop(self) -> None:
        """Leaves everything as it is, and no longer watches."""
        self._core().stop_cooler()

    @property
    def state(self) -> CoolingState:
        """How far it is: phase, temperature, set_point, target, done (0 to 1), text."""
        return CoolingState(*self._core().cooling_state())

    def wait(self, timeout: Optional[Seconds] = None) -> CoolingState:
        """Waits until the sensor has settled, or is warm, and returns the state.

        Raises CameraTimeout after `timeout` seconds (it goes on then), and CameraError when the
        temperature is out of reach. A camera that is gone, or tells no temperature any more, is one of
        these when the `patience` that was given has passed, 120 s, and up to 45 s more: give a `timeout`
        where that is too long. Raises UsageError when nothing was begun, or it was stopped before,
        and Aborted when the camera is closed.
        """
        if self.state.phase == "idle":
            raise UsageError(f"{self._camera.target}: there is nothing to wait for, begin with ramp_to() or warm_up()")
        told = self._core().wait_for_cooler(timeout)
        if told is None:
            seconds = timeout.total_seconds() if isinstance(timeout, timedelta) else timeout
            raise CameraTimeout(
                f"{self._camera.target}: the sensor is not there after {seconds:g} s: {self.state.text}; it goes on, wait() again"
            )
        state = CoolingState(*told)
        if state.phase == "failed":
            advice = "is it still there?" if "tells no temperature" in state.text else "give a target nearer to the surroundings, or more patience"
            raise CameraError(f"{self._camera.target}: cooling failed: {state.text}; {advice}")
        return state

    def __repr__(self) -> str:
        if self._camera.closed:
            return f"<vxcam.Cooler of {self._camera.target}, closed>"
        state = self.state
        return f"<vxcam.Cooler of {self._camera.target}: {state.phase}{', ' if state.text else ''}{state.text}>"
