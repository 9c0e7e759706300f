"""Takes frames through ctypes: what a Python program needs of the library's extension.

frames.py LIBRARY ADDRESS PORT prints the sum of each frame's pixels.
"""
import ctypes
import sys

library = ctypes.CDLL(sys.argv[1])


class Moment(ctypes.Structure):
    _fields_ = [("Monotonic", ctypes.c_int64), ("Realtime", ctypes.c_int64)]


class FrameRecord(ctypes.Structure):
    _fields_ = (
        [(name, ctypes.c_uint32) for name in (
            "Size", "Kind", "Bits", "Outcome", "Readout", "Frame", "IsLast", "ImageType")]
        + [("Buffer", ctypes.c_void_p), ("Room", ctypes.c_uint64)]
        + [(name, ctypes.c_uint32) for name in (
            "Rows", "Columns", "FirstRow", "FirstColumn", "Stride", "Statistic")]
        + [("Area", ctypes.c_int32 * 4)]
        + [(name, ctypes.c_uint32) for name in (
            "SensorRows", "SensorColumns", "PacketsExpected", "PacketsReceived", "PacketsMissing",
            "PacketsMisplaced", "PacketsDamaged", "Extra1", "Extra2", "Reserved")]
        + [("MissingBits", ctypes.POINTER(ctypes.c_uint8)),
           ("MissingRows", ctypes.POINTER(ctypes.c_uint32)),
           ("MissingRowCount", ctypes.c_uint32), ("Exposure", ctypes.c_uint32)]
        + [(name, Moment) for name in (
            "CommandBegun", "CommandSent", "FirstPacket", "LastPacket", "FirstPacketAfter")])


FrameCallback = ctypes.CFUNCTYPE(
    None, ctypes.c_int, ctypes.POINTER(FrameRecord), ctypes.py_object)


def keep(camera, frame, sums):
    frame = frame.contents
    assert frame.Size == ctypes.sizeof(FrameRecord)
    assert frame.Outcome == 0 and frame.PacketsReceived == frame.PacketsExpected == frame.Rows
    assert frame.CommandBegun.Monotonic < frame.FirstPacket.Monotonic
    assert frame.FirstPacketAfter.Monotonic < frame.FirstPacket.Monotonic
    pixels = (ctypes.c_uint16 * (frame.Rows * frame.Stride)).from_address(frame.Buffer)
    sums.append(sum(pixels))
    assert library.VXReturnImageBuffer(camera, ctypes.c_void_p(frame.Buffer)) == 0


camera = library.VXOpenENetCamera(sys.argv[2].encode(), int(sys.argv[3]))
assert camera >= 0
sums = []
callback = FrameCallback(keep)
library.VXSetFrameCallback.argtypes = [ctypes.c_int, FrameCallback, ctypes.py_object]
assert library.VXSetFrameCallback(camera, callback, sums) == 0
rows, columns = 30, 40
memory = [ctypes.create_string_buffer(rows * columns * 2) for _ in range(3)]
buffers = (ctypes.c_void_p * 3)(*(ctypes.addressof(one) for one in memory))
assert library.VXSetCCDArea(camera, 10, 5, columns, rows) == 0
assert library.VXSetImageBuffers(camera, buffers, 3, ctypes.c_size_t(rows * columns * 2)) == 0
assert library.VXReadCCDArea(camera, None, 5, 0) == 0
assert library.VXWaitCompletion(camera, 20000) == 0
assert library.VXReadoutResult(camera) == 2
assert library.VXCloseCamera(camera) == 0
print(*sums)
