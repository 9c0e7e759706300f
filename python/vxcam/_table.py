"""The table of properties: every value of a camera that can be read or set."""

from __future__ import annotations

import difflib
from collections import namedtuple
from collections.abc import Iterator, Mapping
from typing import Any, NamedTuple, Optional

from . import _vxcam
from ._errors import UsageError


class Area(NamedTuple):
    """Part of the sensor, in sensor pixels."""

    column: int
    row: int
    columns: int
    rows: int


class Property:
    """One row of the table. `print(property)` shows what it is."""

    __slots__ = ("_row",)
    _row: dict[str, Any]

    def __init__(self, row: dict[str, Any]) -> None:
        object.__setattr__(self, "_row", row)

    def __setattr__(self, name: str, value: object) -> None:
        raise AttributeError("the table of properties is read-only")

    @property
    def name(self) -> str:
        """As it is called everywhere: "target-temp"; with a key: "register"."""
        return str(self._row["name"])

    @property
    def python_name(self) -> str:
        """The attribute of a camera: "target_temp"."""
        return str(self._row["python_name"])

    @property
    def help(self) -> str:
        """One line that says what it is."""
        return str(self._row["help"])

    @property
    def unit(self) -> str:
        """Of its value, or of the first field: "s", "C"; empty without one."""
        return str(self.fields[0]["unit"])

    @property
    def range(self) -> Optional[tuple[float, float]]:
        """The least and the most of its value, or of the first field; None for what is no number."""
        bounds: Optional[tuple[float, float]] = self.fields[0]["range"]
        return bounds

    @property
    def choices(self) -> tuple[str, ...]:
        """The words that its value, or the first field, can be; empty when it is none."""
        return tuple(self.fields[0]["choices"])

    @property
    def fields(self) -> tuple[dict[str, Any], ...]:
        """What a value consists of: of each part name, kind, range, unit and choices."""
        return tuple(self._row["fields"])

    @property
    def syntax(self) -> str:
        """How a value is written as a text: "on|off,on|off"."""
        return str(self._row["syntax"])

    @property
    def readable(self) -> bool:
        """Whether the camera can be asked for it."""
        return bool(self._row["readable"])

    @property
    def writable(self) -> bool:
        """Whether it can be set."""
        return bool(self._row["writable"])

    @property
    def group(self) -> str:
        """What it belongs to: "exposure", "cooling", ..."""
        return str(self._row["group"])

    @property
    def nature(self) -> str:
        """What kind of thing it is: "setting", "action", "state", "derived" or "identity"."""
        return str(self._row["nature"])

    @property
    def cost(self) -> str:
        """What reading it costs: "none", "answer" (a question to the camera), "many" of them."""
        return str(self._row["cost"])

    @property
    def key(self) -> Optional[str]:
        """What its number is called, where there are several: camera.register[0x10]; else None."""
        return None if self._row["key"] is None else str(self._row["key"])

    @property
    def most_key(self) -> int:
        """The highest such number."""
        return int(self._row["most_key"])

    @property
    def names(self) -> dict[str, str]:
        """What it is called elsewhere: by "tango", "indi", "fits" and "alpaca"."""
        return dict(self._row["names"])

    def __repr__(self) -> str:
        return f"<vxcam.Property {self.name}: {self.help}>"

    def __str__(self) -> str:
        access = {(True, True): "read and set", (True, False): "read only"}
        lines = [f"{self.name}: {self.help}", f"    {access.get((self.readable, self.writable), 'set only')}"]
        if self.unit:
            lines.append(f"    unit {self.unit}")
        if self.range is not None:
            lines.append(f"    {self.range[0]:.15g} to {self.range[1]:.15g}")
        lines.append(f"    written as {self.syntax}")
        return "\n".join(lines)


class Properties(Mapping[str, Property]):
    """All properties, by their names; "target_temp" is the same as "target-temp".

    Of `gpio`, which is there twice, ["gpio"] is all pins and ["gpio:"] one of them.
    """

    def __init__(self, rows: list[Property]) -> None:
        self._rows: dict[str, Property] = {}
        for row in rows:
            name = row.name + ":" if row.name in self._rows else row.name
            self._rows[name] = row

    def __getitem__(self, name: str) -> Property:
        try:
            return self._rows[name.replace("_", "-")]
        except (KeyError, AttributeError):
            raise KeyError(f"no property is called {name!r}; list(properties) has all") from None

    def __iter__(self) -> Iterator[str]:
        return iter(self._rows)

    def __len__(self) -> int:
        return len(self._rows)

    def __repr__(self) -> str:
        return f"<vxcam.Properties: {', '.join(self._rows)}>"


properties = Properties([Property(row) for row in _vxcam.properties()])
"""The table of properties."""


def record_name(row: Property) -> str:
    """What the record of its values is called: "ShutterParams"."""
    return "".join(word.capitalize() for word in row.python_name.split("_"))


def _record_of(row: Property) -> Any:
    if row.name in ("area", "area-regions"):
        return Area
    names = [field["name"] for field in row.fields]
    record = namedtuple(record_name(row), names)  # type: ignore[misc]
    record.__doc__ = f"{row.help}: {', '.join(names)}"
    record.__module__ = "vxcam._properties"
    return record


# By the property's name, of those with several fields.
records: dict[str, Any] = {}
for _row in properties.values():
    if len(_row.fields) > 1 and _row.name not in records:
        records[_row.name] = _record_of(_row)


def shown(name: str, value: Any) -> Any:
    """A value of the core as users see it: with names for its fields."""
    if not isinstance(value, tuple):
        return value
    base = name.partition(":")[0]
    record = records.get(base)
    if record is None:
        return value
    if properties[base]._row["groups"] > 1:
        return tuple(record._make(group) for group in value)
    missing = len(record._fields) - len(value)
    return record._make(value + (None,) * missing) if missing >= 0 else value


def table_name(name: str) -> str:
    """The name as the table has it: "target-temp" of "target_temp"."""
    base, colon, key = name.partition(":") if isinstance(name, str) else ("", "", "")
    if not base:
        raise UsageError(f"{name!r} is not the name of a property")
    return base.replace("_", "-") + colon + key


def known_name(name: str, target: str) -> str:
    """The same of a name that the table has; raises UsageError, which names the camera, for another one."""
    name = table_name(name)
    base = name.partition(":")[0]
    if base not in properties:
        near = difflib.get_close_matches(base, properties)
        hint = f", did you mean {', '.join(near)}?" if near else ": list(camera.properties) has all"
        raise UsageError(f"{target}: unknown property '{name}'{hint}")
    return name


def fields_of(name: str) -> int:
    """How many parts a value of it has."""
    row = properties[name.partition(":")[0]]
    return len(row.fields) * int(row._row["groups"])
