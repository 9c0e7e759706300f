"""The attributes of a camera: one for each property of the table."""

from __future__ import annotations

import operator
from typing import Any, Generic, NoReturn, TypeVar

from ._errors import AccessError
from ._given import refuse_type
from ._table import Property, properties, records, shown

Told = TypeVar("Told")
Taken = TypeVar("Taken")


def _refuse(camera: Any, name: str, why: str) -> NoReturn:
    raise AccessError(f"{camera.target}: '{name}' {why}")


class Attribute(Generic[Told, Taken]):
    """A property of a camera: reading asks the camera, setting waits until it has taken the value."""

    def __init__(self, row: Property) -> None:
        self._name = row.name
        self._readable = row.readable
        self._writable = row.writable
        self.__doc__ = str(row)

    def __get__(self, camera: Any, owner: Any = None) -> Any:
        if camera is None:
            return self
        if not self._readable:
            _refuse(camera, self._name, "can only be set, the camera does not tell it")
        value = camera._core.get(self._name)  # the table's own name
        return shown(self._name, value) if isinstance(value, tuple) else value

    def __set__(self, camera: Any, value: Any) -> None:
        if not self._writable:
            _refuse(camera, self._name, "can only be read")
        camera.set(self._name, value)


class Keyed(Generic[Told, Taken]):
    """Properties of a camera that are told apart by a number: camera.register[0x10]."""

    __slots__ = ("_camera", "_row")

    def __init__(self, camera: Any, row: Property) -> None:
        self._camera = camera
        self._row = row

    def _name(self, key: int) -> str:
        if isinstance(key, bool) or not hasattr(key, "__index__"):
            refuse_type(f"{self._row.python_name}[{self._row.key}]", key, f"a whole number up to {self._row.most_key}")
        return f"{self._row.name}:{operator.index(key)}"

    def __getitem__(self, key: int) -> Any:
        if not self._row.readable:
            _refuse(self._camera, self._name(key), "can only be set, the camera does not tell it")
        return self._camera.get(self._name(key))

    def __setitem__(self, key: int, value: Any) -> None:
        if not self._row.writable:
            _refuse(self._camera, self._name(key), "can only be read")
        self._camera.set(self._name(key), value)

    def __repr__(self) -> str:
        return f"<{self._row.name}[{self._row.key}] of {self._camera.target}: {self._row.help}>"


class KeyedAttribute(Generic[Told, Taken]):
    """Where a camera has those."""

    def __init__(self, row: Property) -> None:
        self._row = row
        self.__doc__ = str(row)

    def __get__(self, camera: Any, owner: Any = None) -> Any:
        return self if camera is None else Keyed(camera, self._row)

    def __set__(self, camera: Any, value: Any) -> None:
        _refuse(camera, self._row.name, f"is told apart by a number: camera.{self._row.python_name}[0] = ...")


class Pins(int):
    """All pins, a bit each; pins[3] is one of them: camera.gpio[3] = "high"."""

    _pins: Keyed[str, str]

    def __getitem__(self, pin: int) -> Any:
        return self._pins[pin]

    def __setitem__(self, pin: int, value: Any) -> None:
        self._pins[pin] = value


class PinsAttribute:
    """Where a camera has those."""

    def __init__(self, row: Property, pin: Property) -> None:
        self._row = row
        self._pin = pin
        self.__doc__ = f"{row}\n{pin}"

    def __get__(self, camera: Any, owner: Any = None) -> Any:
        if camera is None:
            return self
        pins = Pins(camera.get(self._row.name))
        pins._pins = Keyed(camera, self._pin)
        return pins

    def __set__(self, camera: Any, value: Any) -> None:
        _refuse(camera, self._row.name, "can only be read: set one pin, camera.gpio[3] = 'high'")


class CameraProperties:
    """The attributes of a camera, made from the table."""

    __slots__ = ()


def _attribute_of(rows: list[Property]) -> Any:
    if len(rows) > 1:
        return PinsAttribute(*rows)
    return Attribute(rows[0]) if rows[0].key is None else KeyedAttribute(rows[0])


for _name in dict.fromkeys(_row.python_name for _row in properties.values()):
    _rows = [_row for _row in properties.values() if _row.python_name == _name]
    setattr(CameraProperties, _name, _attribute_of(_rows))

for _record in records.values():
    globals()[_record.__name__] = _record
