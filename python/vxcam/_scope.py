"""What the end of a `with` block ends."""

from __future__ import annotations

from types import TracebackType
from typing import Optional, TypeVar

_Self = TypeVar("_Self", bound="Scope")


class Scope:
    """An object that a `with` block ends."""

    __slots__ = ()

    def _leave(self, error: Optional[BaseException]) -> None:
        """Ends it; `error` is what the block raised."""
        raise NotImplementedError

    def __enter__(self: _Self) -> _Self:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self._leave(error)
