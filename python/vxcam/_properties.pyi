"""The attributes of a camera: one for each property of the table."""

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

class ShutterParams(NamedTuple):
    """close delay of the shutter and two more parameters"""
    close_delay: int
    second: int
    third: int

class ShutterOverride(NamedTuple):
    """what the shutter does whatever the exposure"""
    first: int
    second: int

class ImageIntervals(NamedTuple):
    """that time, and the last, the shortest and the longest actual one"""
    set: float
    last: float
    shortest: float
    longest: float

class Mirroring(NamedTuple):
    """turns images left to right, top to bottom"""
    horizontal: bool
    vertical: bool

class Shearing(NamedTuple):
    """four parameters of the shearing of images"""
    first: int
    second: int
    third: int
    fourth: int

class TestPattern(NamedTuple):
    """a pattern instead of the picture; mode 0 is the picture"""
    mode: int
    values: tuple[int, ...]

class Offset(NamedTuple):
    """counts that every pixel gets (bias), and a flag"""
    counts: int
    flag: bool

class ReadoutNoise(NamedTuple):
    """noise of the readout, two figures of the camera"""
    first: float
    second: float

class Recording(NamedTuple):
    """recording on the camera's own storage: three words and a text"""
    first: int
    second: int
    third: int
    text: str

class SimpleBinning(NamedTuple):
    """rows and columns in a bin, and a factor for its sum"""
    rows: int
    columns: int
    factor: float

class BinningSequence(NamedTuple):
    """factors of up to 16 frames in turn"""
    vertical: int
    horizontal: int

class Pid(NamedTuple):
    """parameters of the cooler's controller"""
    p: float
    i: float
    d: float

class TriggerMode(NamedTuple):
    """what an external trigger does, and two parameters"""
    mode: str
    first: int
    second: int

class GainConfig(NamedTuple):
    """gain, and two more figures of the gain's configuration"""
    gain: int
    second: float
    third: int

class Filter(NamedTuple):
    """two image filters"""
    first: bool
    second: bool

class Dac(NamedTuple):
    """value of a converter, and a flag"""
    value: int
    flag: int

class NetworkConfig(NamedTuple):
    """network configuration, five words and a number"""
    first: int
    second: int
    third: int
    fourth: int
    fifth: int
    value: int

class CameraProperties:
    __slots__ = ()
    exposure: Attribute[float, Union[float, timedelta, str]]
    """exposure time"""
    exposure_ex: Attribute[int, Union[int, str]]
    """exposure by the extended command, in the camera's units"""
    shutter_params: Attribute[ShutterParams, Union[ShutterParams, Sequence[Any], str]]
    """close delay of the shutter and two more parameters"""
    shutter_override: Attribute[NoReturn, Union[ShutterOverride, Sequence[Any], str]]
    """what the shutter does whatever the exposure"""
    area: Attribute[Optional[Area], Optional[Union[Area, Sequence[Any], str]]]
    """part of the sensor to read, as this run has set it; none is the whole"""
    area_regions: Attribute[tuple[Area, ...], Optional[Union[Sequence[Sequence[int]], str]]]
    """up to 16 parts of the sensor, read as one frame"""
    image_interval: Attribute[float, Union[float, timedelta, str]]
    """least time between frames"""
    image_intervals: Attribute[ImageIntervals, NoReturn]
    """that time, and the last, the shortest and the longest actual one"""
    mirroring: Attribute[Mirroring, Union[Mirroring, Sequence[Any], str]]
    """turns images left to right, top to bottom"""
    shearing: Attribute[NoReturn, Union[Shearing, Sequence[Any], str]]
    """four parameters of the shearing of images"""
    test_pattern: Attribute[NoReturn, Union[TestPattern, Sequence[Any], str]]
    """a pattern instead of the picture; mode 0 is the picture"""
    offset: Attribute[NoReturn, Union[Offset, Sequence[Any], str]]
    """counts that every pixel gets (bias), and a flag"""
    readout_noise: Attribute[ReadoutNoise, NoReturn]
    """noise of the readout, two figures of the camera"""
    recording: Attribute[NoReturn, Union[Recording, Sequence[Any], str]]
    """recording on the camera's own storage: three words and a text"""
    simple_binning: Attribute[SimpleBinning, Union[SimpleBinning, Sequence[Any], str]]
    """rows and columns in a bin, and a factor for its sum"""
    binning_sequence: Attribute[tuple[BinningSequence, ...], Optional[Union[Sequence[Sequence[int]], str]]]
    """factors of up to 16 frames in turn"""
    bin_table: KeyedAttribute[bytes, Union[bytes, bytearray, memoryview, str, HasBytes]]
    """vertical binning table, a byte a row"""
    hor_bin_table: KeyedAttribute[bytes, Union[bytes, bytearray, memoryview, str, HasBytes]]
    """horizontal binning table, a byte a column"""
    bin_mask: Attribute[bytes, Union[bytes, bytearray, memoryview, str, HasBytes]]
    """the bin of each pixel, row by row; 2 ms a row to send"""
    cooling: Attribute[bool, Union[bool, str]]
    """whether the sensor is cooled"""
    target_temp: Attribute[float, Union[float, str]]
    """temperature to cool the sensor to, in steps of 0.1"""
    ccd_temp: Attribute[float, NoReturn]
    """temperature of the sensor"""
    board_temp: Attribute[float, NoReturn]
    """temperature of the board"""
    fan: Attribute[NoReturn, Union[bool, str]]
    """whether the fan runs"""
    pid: Attribute[Pid, Union[Pid, Sequence[Any], str]]
    """parameters of the cooler's controller"""
    trigger: Attribute[int, Union[int, str]]
    """state of the software trigger; other than 0 is active"""
    trigger_mode: Attribute[TriggerMode, Union[TriggerMode, Sequence[Any], str]]
    """what an external trigger does, and two parameters"""
    auto_rearm: Attribute[bool, Union[bool, str]]
    """whether the trigger is armed again by itself"""
    gpio: PinsAttribute
    """all pins, a bit each; one pin; setting drives it"""
    gain: Attribute[int, Union[int, str]]
    """gain of the readout"""
    gain_config: Attribute[GainConfig, NoReturn]
    """gain, and two more figures of the gain's configuration"""
    filter: Attribute[NoReturn, Union[Filter, Sequence[Any], str]]
    """two image filters"""
    dac: KeyedAttribute[NoReturn, Union[Dac, Sequence[Any], str]]
    """value of a converter, and a flag"""
    cis_shutter_mode: Attribute[NoReturn, Union[str, int]]
    """shutter of a CIS sensor"""
    cis_channel: Attribute[NoReturn, Union[str, int]]
    """gain channel that is read of a CIS sensor"""
    cis_calibrate: Attribute[NoReturn, Union[int, str]]
    """calibration of a CIS sensor: 1 loads, 2 clears it"""
    cis_calibration_state: Attribute[int, NoReturn]
    """how far that is"""
    parameter: KeyedAttribute[int, Union[int, str]]
    """parameter of the camera, a number without a sign"""
    parameter_int: KeyedAttribute[int, Union[int, str]]
    """the same, with a sign"""
    parameter_float: KeyedAttribute[float, Union[float, str]]
    """the same, a float"""
    parameter_text: KeyedAttribute[str, Union[str, bytes]]
    """the same, a text; its size is found by trying"""
    parameter_bytes: KeyedAttribute[bytes, Union[bytes, bytearray, memoryview, str, HasBytes]]
    """the same, as bytes; its size is found by trying"""
    register: KeyedAttribute[int, Union[int, str]]
    """a register of the camera"""
    network_config: Attribute[NetworkConfig, Union[NetworkConfig, Sequence[Any], str]]
    """network configuration, five words and a number"""
    hardware_info: Attribute[bytes, Union[bytes, bytearray, memoryview, str, HasBytes]]
    """hardware information; the sensor's size is at bytes 42 and 46"""
    timing_data: Attribute[bytes, Union[bytes, bytearray, memoryview, str, HasBytes]]
    """timing data of the readout"""
