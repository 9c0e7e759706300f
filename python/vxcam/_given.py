"""What callers give: each refusal says what was given, and what is possible."""

from __future__ import annotations

import operator
import os
from collections.abc import Iterable, Iterator
from contextlib import contextmanager
from datetime import timedelta
from typing import Any, NoReturn, Optional, Union

from ._errors import UsageError, WrongTypeError

Path = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]

_MOST_SHOWN = 80  # characters of what was given
_MOST_INT = 2**31 - 1
_MOST_SECONDS = 4e9  # more than a century


def shown(value: object) -> str:
    """As messages have it."""
    try:
        text = repr(value)
    except Exception:
        text = f"a {type(value).__name__}"
    return text if len(text) <= _MOST_SHOWN else text[:_MOST_SHOWN] + "..."


def refuse(name: str, value: object, wanted: str) -> NoReturn:
    raise UsageError(f"{name}: {shown(value)} is not possible, give {wanted}")


def refuse_type(name: str, value: object, wanted: str) -> NoReturn:
    raise WrongTypeError(f"{name}: {shown(value)} is not possible, give {wanted}")


@contextmanager
def told_as_given(target: str, name: str, value: object, fields: int) -> Iterator[None]:
    """With the camera. The kit tells values as they are written, None and bools as "none", "on" and "off"."""
    try:
        yield
    except UsageError as error:
        kind, text = type(error), str(error)
        if kind is UsageError and (value is None or isinstance(value, bool)):
            text = f"{name}: {value} is not possible: {text}"
        if kind is UsageError and not _may_be(value, fields):
            kind = WrongTypeError
        if kind is type(error) and text.startswith(target):
            raise
        raise kind(text if text.startswith(target) else f"{target}: {text}") from None


def _may_be(value: object, fields: int) -> bool:
    """Whether a value of so many fields can be of that type at all: a number, a text, or a tuple for several."""
    if value is None or isinstance(value, (bool, bytes, bytearray, dict, set)):
        return False
    return fields > 1 or isinstance(value, str) or not isinstance(value, Iterable)


def whole(
    name: str, value: Any, least: int = -_MOST_INT, most: int = _MOST_INT, wanted: str = "a whole number"
) -> int:
    """A whole number, also one of NumPy, but no bool."""
    number = None
    if not isinstance(value, bool):
        try:
            number = operator.index(value)
        except TypeError:
            pass
    if number is None:
        refuse_type(name, value, wanted)
    if number < least:
        refuse(name, value, f"a number from {least} on")
    if number > most:
        refuse(name, value, f"a number up to {most}")
    return number


def real(name: str, value: Any, wanted: str = "a number") -> float:
    """Any number, but no bool and no text."""
    if not isinstance(value, (bool, str, bytes)):
        try:
            return float(value)
        except OverflowError:
            refuse(name, value, "a number nearer to 0")
        except (TypeError, ValueError):
            pass
    refuse_type(name, value, wanted)


def seconds(name: str, value: Any) -> float:
    """A time from 0 on, as a number or a timedelta."""
    number = value.total_seconds() if isinstance(value, timedelta) else real(name, value, "seconds as a number or a timedelta")
    if not 0 <= number <= _MOST_SECONDS:
        refuse(name, value, "seconds from 0 on, as a number or a timedelta")
    return number


def no_exposure_of_bias(type: Any, exposure: Any) -> None:
    if type == "bias" and exposure is not None and seconds("exposure", exposure) > 0:
        refuse("exposure", exposure, 'none with type="bias", or take type="dark"')


def flag(name: str, value: Any) -> bool:
    """True or False, also that of NumPy."""
    if not isinstance(value, bool) and getattr(value, "dtype", None) != bool:
        refuse_type(name, value, "True or False")
    return bool(value)


def text(name: str, value: Any, wanted: str = "a text") -> str:
    if not isinstance(value, str):
        refuse_type(name, value, wanted)
    try:
        value.encode("utf-8", "surrogateescape")
    except UnicodeEncodeError:
        refuse(name, value, wanted + " that can be written in UTF-8")
    return value


def word(name: str, value: Any, words: tuple[str, ...]) -> str:
    """One of these words."""
    if value not in words:
        wanted = "one of " + ", ".join(words)
        text(name, value, wanted)
        refuse(name, value, wanted)
    return str(value)


def path(name: str, value: Any) -> str:
    """The name of a file or a folder."""
    try:
        told = os.fsdecode(value)
    except TypeError:
        refuse_type(name, value, "a path: a text, bytes, or a pathlib.Path")
    if "\0" in told:
        refuse(name, value, "a path without zero bytes")
    return told


def handler(name: str, value: Any) -> None:
    if not callable(value):
        refuse_type(name, value, "a function: it cannot be called")


def wholes(name: str, value: Any, count: int, wanted: str) -> tuple[int, ...]:
    """So many whole numbers."""
    numbers = tuple(whole(name, number, wanted=wanted) for number in items(name, value, wanted))
    if len(numbers) != count:
        refuse(name, value, wanted)
    return numbers


def items(name: str, value: Any, wanted: str) -> list[Any]:
    """Of a list or the like; no text is one."""
    if isinstance(value, (str, bytes)) or not isinstance(value, Iterable):
        refuse_type(name, value, wanted)
    return list(value)


_AREA = "four whole numbers: column, row, columns, rows"


def area(value: Any) -> Optional[tuple[int, ...]]:
    return None if value is None else wholes("area", value, 4, _AREA)


def regions(value: Any) -> Optional[list[tuple[int, ...]]]:
    if value is None:
        return None
    wanted = f"a list of areas, each of {_AREA}"
    return [wholes("regions", region, 4, wanted) for region in items("regions", value, wanted)]


def binning(value: Any) -> Optional[tuple[int, ...]]:
    wanted = "a whole number, or two: columns, rows"
    if value is None:
        return None
    if isinstance(value, Iterable):
        return wholes("binning", value, 2, wanted)
    return (whole("binning", value, wanted=wanted),) * 2
