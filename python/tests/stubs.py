"""Makes vxcam/_properties.pyi of the table of properties: `python stubs.py > _properties.pyi`."""

import vxcam
from vxcam._table import record_name, records

TOLD = {"switch": "bool", "whole": "int", "hex": "int", "real": "float", "time": "float", "choice": "str",
        "text": "str", "bytes": "bytes"}
TAKEN = {"time": "Union[float, timedelta, str]", "choice": "Union[str, int]", "real": "Union[float, str]",
         "switch": "Union[bool, str]", "whole": "Union[int, str]", "hex": "Union[int, str]",
         "text": "Union[str, bytes]", "bytes": "Union[bytes, bytearray, memoryview, str, HasBytes]"}

HEAD = '''"""The attributes of a camera: one for each property of the table."""

from collections.abc import Sequence
from datetime import timedelta
from typing import Any, Generic, NamedTuple, NoReturn, Optional, Protocol, TypeVar, Union, overload

from ._table import Area as Area, Property

Told = TypeVar("Told")
Taken = TypeVar("Taken")

class HasBytes(Protocol):
    def tobytes(self) -> bytes: ...

class Attribute(Generic[Told, Taken]):
    def __init__(self, row: Property) -> None: ...
    @overload
    def __get__(self, camera: None, owner: Any = ...) -> Attribute[Told, Taken]: ...
    @overload
    def __get__(self, camera: object, owner: Any = ...) -> Told: ...
    def __set__(self, camera: object, value: Taken) -> None: ...

class Keyed(Generic[Told, Taken]):
    def __init__(self, camera: Any, row: Property) -> None: ...
    def __getitem__(self, key: int) -> Told: ...
    def __setitem__(self, key: int, value: Taken) -> None: ...

class KeyedAttribute(Generic[Told, Taken]):
    def __init__(self, row: Property) -> None: ...
    @overload
    def __get__(self, camera: None, owner: Any = ...) -> KeyedAttribute[Told, Taken]: ...
    @overload
    def __get__(self, camera: object, owner: Any = ...) -> Keyed[Told, Taken]: ...
    def __set__(self, camera: object, value: NoReturn) -> None: ...

class Pins(int):
    def __getitem__(self, pin: int) -> str: ...
    def __setitem__(self, pin: int, value: Union[str, int]) -> None: ...

class PinsAttribute:
    def __init__(self, row: Property, pin: Property) -> None: ...
    @overload
    def __get__(self, camera: None, owner: Any = ...) -> PinsAttribute: ...
    @overload
    def __get__(self, camera: object, owner: Any = ...) -> Pins: ...
    def __set__(self, camera: object, value: NoReturn) -> None: ...
'''


def field_type(field):
    told = TOLD[field["kind"]]
    return f"tuple[{told}, ...]" if field["repeats"] > 1 else told


def record_text(row):
    lines = [f"class {record_name(row)}(NamedTuple):", f'    """{row.help}"""']
    lines += [f"    {field['name']}: {field_type(field)}" for field in row.fields]
    return "\n".join(lines)


def types_of(row):
    if row.name in records:
        name = records[row.name].__name__
        told, taken = name, f"Union[{name}, Sequence[Any], str]"
        if row._row["groups"] > 1:
            told = f"tuple[{name}, ...]"
            taken = "Union[Sequence[Sequence[int]], str]"
    else:
        told, taken = TOLD[row.fields[0]["kind"]], TAKEN[row.fields[0]["kind"]]
    if row._row["may_be_none"]:
        taken = f"Optional[{taken}]"
        if row._row["groups"] == 1:
            told = f"Optional[{told}]"
    return (told if row.readable else "NoReturn", taken if row.writable else "NoReturn")


def attribute_text(name, rows):
    if len(rows) > 1:
        return f"    {name}: PinsAttribute"
    told, taken = types_of(rows[0])
    kind = "Attribute" if rows[0].key is None else "KeyedAttribute"
    return f"    {name}: {kind}[{told}, {taken}]"


def text():
    rows = list(vxcam.properties.values())
    parts = [HEAD]
    parts += [record_text(row) + "\n" for row in rows if row.name in records and not row.name.startswith("area")]
    parts.append("class CameraProperties:\n    __slots__ = ()")
    body = []
    for name in dict.fromkeys(row.python_name for row in rows):
        same = [row for row in rows if row.python_name == name]
        body.append(attribute_text(name, same))
        body.append(f'    """{"; ".join(row.help for row in same)}"""')
    return "\n".join(parts) + "\n" + "\n".join(body) + "\n"


if __name__ == "__main__":
    print(text(), end="")
