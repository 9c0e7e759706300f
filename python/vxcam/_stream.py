"""Readouts under way: frames one after another."""

from __future__ import annotations

import asyncio
from collections.abc import AsyncIterator, Callable, Iterator
from types import TracebackType
from typing import TYPE_CHECKING, Any, NamedTuple, Optional

from . import _given, _vxcam
from ._cooler import Seconds
from ._frame import Frame
from ._scope import Scope


class Progress(NamedTuple):
    """Where the frame is that runs now.

    `phase` is "waiting" (for a trigger), "exposing", "exposed", "reading" or "ended", `done` how
    much of it has passed, 0 to 1, `elapsed` and `exposure` seconds by the clock on the wall.
    """

    phase: str
    frame: int
    done: float
    elapsed: float
    exposure: float


class Stream(Iterator[Frame], Scope):
    """The frames of a readout, in order: `for frame in camera.stream(frames=100): ...`.

    Frames that are incomplete come like others, see `frame.complete`. A failure is raised behind
    the frames that came before it. Leaving the loop or the with block, stop(), and letting the
    stream go end the readout. One thread takes the frames; the rest may be used by any.
    """

    __slots__ = ("_camera", "_core", "_timeout", "__weakref__")

    def __init__(self, camera: object, core: Any, timeout: Optional[Seconds]) -> None:
        if not isinstance(core, _vxcam.Stream):
            _given.refuse_type("stream", core, "nothing: streams come from cameras")
        self._camera = camera  # stays open meanwhile
        self._core = core
        self._timeout = timeout

    def __iter__(self) -> Stream:
        return self

    if TYPE_CHECKING:

        def __next__(self) -> Frame: ...
    else:
        __next__ = _vxcam.next_frame

    def _take(self) -> Optional[Frame]:
        core = self._core.next(self._timeout, None)
        return None if core is None else Frame(core)

    def stop(self) -> None:
        """Ends the readout, unless it has ended. Frames that came before can still be taken."""
        self._core.stop()

    close = stop

    @property
    def end(self) -> str:
        """How it ended: "running" (it has not), "complete", "incomplete", "timed-out", "aborted",
        "link-lost", "camera-error" or "closed"."""
        return str(self._core.end())

    @property
    def complete(self) -> int:
        """Frames that came with all their pixels."""
        return int(self._core.books()[0])

    @property
    def incomplete(self) -> int:
        """Frames that came, but not with all their pixels."""
        return int(self._core.books()[1])

    @property
    def dropped(self) -> int:
        """Frames that came when no buffer was free, with when_full="drop"."""
        return int(self._core.books()[2])

    @property
    def taken(self) -> int:
        """Frames that were taken from it."""
        return int(self._core.books()[3])

    @property
    def progress(self) -> Progress:
        """Where the frame is that runs now."""
        return Progress(*self._core.progress())

    def _leave(self, error: Optional[BaseException]) -> None:
        self.stop()

    def __repr__(self) -> str:
        return f"<vxcam.Stream: {self.taken} frames taken, {self.end}>"


class AsyncStream(AsyncIterator[Frame]):
    """The same for asyncio: `async for frame in camera.astream(frames=100): ...`.

    The readout starts with the first frame that is waited for. A task that is cancelled ends it.
    """

    __slots__ = ("_start", "_stream", "__weakref__")

    def __init__(self, start: Callable[[], Stream]) -> None:
        self._start = start
        self._stream: Optional[Stream] = None

    def __aiter__(self) -> AsyncStream:
        return self

    async def __anext__(self) -> Frame:
        starting = None
        try:
            if self._stream is None:
                starting = asyncio.ensure_future(asyncio.to_thread(self._start))
                self._stream = await asyncio.shield(starting)
            frame = await asyncio.to_thread(self._stream._take)
        except asyncio.CancelledError:
            if self._stream is not None:
                self._stream.stop()
            elif starting is not None:
                starting.add_done_callback(_stop_late)
            raise
        if frame is None:
            raise StopAsyncIteration
        return frame

    def stop(self) -> None:
        """Ends the readout, unless it has ended."""
        if self._stream is not None:
            self._stream.stop()

    async def aclose(self) -> None:
        """As stop()."""
        await asyncio.to_thread(self.stop)

    @property
    def end(self) -> str:
        """As Stream.end."""
        return "running" if self._stream is None else self._stream.end

    @property
    def complete(self) -> int:
        """As Stream.complete."""
        return 0 if self._stream is None else self._stream.complete

    @property
    def incomplete(self) -> int:
        """As Stream.incomplete."""
        return 0 if self._stream is None else self._stream.incomplete

    @property
    def dropped(self) -> int:
        """As Stream.dropped."""
        return 0 if self._stream is None else self._stream.dropped

    @property
    def taken(self) -> int:
        """As Stream.taken."""
        return 0 if self._stream is None else self._stream.taken

    async def __aenter__(self) -> AsyncStream:
        return self

    async def __aexit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        await self.aclose()


def _stop_late(starting: asyncio.Future[Stream]) -> None:
    if not starting.cancelled() and starting.exception() is None:
        starting.result().stop()
