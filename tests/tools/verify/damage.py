"""Damages copies of records, each in one way, with the programs that others use: h5py, astropy,
and plain edits of bytes. What a way does, and which check has to find it, stands in one row."""
import json
import os
import shutil
import struct
import warnings

import h5py
import numpy as np
from astropy.io import fits

warnings.simplefilter("ignore")


class Copy:
    """A record in a folder of its own."""

    def __init__(self, source, folder):
        os.makedirs(folder)
        for path in source:
            shutil.copy(path, folder)
        self.paths = [os.path.join(folder, os.path.basename(path)) for path in source]
        self.files = [path for path in self.paths if not path.endswith(".jsonl")]
        self.path = self.files[0]

    def flip(self, at, bit=0):
        with open(self.path, "r+b") as file:
            file.seek(at)
            byte = file.read(1)[0]
            file.seek(at)
            file.write(bytes([byte ^ 1 << bit]))

    def size(self):
        return os.path.getsize(self.path)

    def cut(self, by):
        os.truncate(self.path, self.size() - by)

    def append(self, count):
        with open(self.path, "ab") as file:
            file.write(b"\x01" * count)

    def whole(self):
        with open(self.path, "rb") as file:
            return file.read()

    def save(self):
        pass


class Indexed(Copy):
    """raw, TIFF, SER: pixels, and an index in lines."""

    def __init__(self, source, folder):
        super().__init__(source, folder)
        with open(self.path + ".jsonl") as file:
            self.lines = [json.loads(line) for line in file]
        self.rows = [line for line in self.lines if "index" in line]
        self.shape = self.lines[0]["rows"], self.lines[0]["columns"]
        self.type = np.dtype(f"<u{self.lines[0]['bits'] // 8}")
        self.count = len(self.rows)

    def number(self, name, frame, change):
        self.rows[frame][name] = change(self.rows[frame][name])

    def missing(self, frame):
        return int(self.rows[frame]["missing_rows"].split("-")[0].split(",")[0])

    def get(self, frame):
        count = self.shape[0] * self.shape[1]
        return np.fromfile(self.path, self.type, count, offset=self.rows[frame]["offset"]).reshape(self.shape)

    def put(self, frame, pixels):
        with open(self.path, "r+b") as file:
            file.seek(self.rows[frame]["offset"])
            file.write(pixels.astype(self.type).tobytes())

    def card(self, word, value):
        self.lines[0]["header"][word] = value

    def ended(self, how):
        if how == "running":
            self.lines.pop()
        else:
            self.lines[-1]["ended"] = how

    def save(self):
        with open(self.path + ".jsonl", "w") as file:
            file.write("".join(json.dumps(line) + "\n" for line in self.lines))


class Hdf5(Copy):
    def __init__(self, source, folder):
        super().__init__(source, folder)
        self.file = h5py.File(self.path, "r+")
        self.detector = self.file["entry/instrument/detector"]
        self.data = self.file["entry/data/data"]
        self.count = len(self.data)

    def number(self, name, frame, change):
        self.detector[name][frame] = change(int(self.detector[name][frame]))

    def missing(self, frame):
        pairs = self.file["entry/record/missing_rows"]
        return int(pairs["row"][list(pairs["index"]).index(frame)])

    def get(self, frame):
        return self.data[frame]

    def put(self, frame, pixels):
        self.data[frame] = pixels

    def card(self, word, value):
        header = json.loads(self.file["entry/record/header"][()])
        header[word] = value
        self.replace("entry/record/header", np.bytes_(json.dumps(header).encode()))

    def replace(self, name, value):
        del self.file[name]
        self.file[name] = value

    def ended(self, how):
        self.file["entry/record/ended"][()] = how.encode()

    def chunk(self, frame):
        info = self.data.id.get_chunk_info(frame)
        return info.byte_offset, info.size

    def save(self):
        if self.file:
            self.file.close()


class Fits(Copy):
    """A cube, or an extension for each frame. Sums are made anew, as a program that edits does."""

    def __init__(self, source, folder):
        super().__init__(source, folder)
        self.file = fits.open(self.path, memmap=False)
        self.isTiles = self.file[0].header["NAXIS"] == 0
        self.table = self.file["FRAMES"].data
        self.count = len(self.table)

    def number(self, name, frame, change):
        self.table[name][frame] = change(int(self.table[name][frame]))

    def missing(self, frame):
        return int(self.table["missing_rows"][frame].split("-")[0].split(",")[0])

    def get(self, frame):
        return (self.file[frame + 1].data if self.isTiles else self.file[0].data[frame]).copy()

    def put(self, frame, pixels):
        if self.isTiles:
            self.file[frame + 1].data = pixels
        else:
            self.file[0].data[frame] = pixels

    def card(self, word, value):
        self.file[0].header[word] = value

    def ended(self, how):
        self.file[0].header["RECEND"] = how

    def save(self):
        if self.file is None:
            return
        self.file.writeto(self.path + ".new", checksum=True)
        self.file.close()
        self.file = None
        os.replace(self.path + ".new", self.path)


class Files(Copy):
    """A FITS file for each frame."""
    cards = {"sum": "PIXSUM", "number": "FRAMENO", "readout": "READOUT", "sim_sum": "SIMSUM",
             "packets_missing": "NMISSING", "packets_damaged": "NDAMAGED", "dropped": "NDROPPED",
             "packets_misplaced": "NMISPLAC", "missing_rows_count": "NMISSROW"}

    def __init__(self, source, folder):
        super().__init__(source, folder)
        self.count = len(self.files)
        self.headers = {}

    def at(self, frame):
        if frame not in self.headers:
            self.headers[frame] = fits.open(self.files[frame], mode="update", memmap=False)
        return self.headers[frame][0]

    def number(self, name, frame, change):
        header = self.at(frame).header
        if name == "complete":
            header["COMPLETE"] = bool(change(int(header["COMPLETE"])))
        elif name in ("begin_ns", "middle_ns", "end_ns"):
            word = {"begin_ns": "DATE-OBS", "middle_ns": "DATE-AVG", "end_ns": "DATE-END"}[name]
            self.moment(frame, word, change(0))
        elif name == "uncertainty_ns":
            header["TIMRDER"] = change(0) / 1e9
        elif name == "exposure_us":
            header["XPOSURE"] = change(0) / 1e6
        else:
            header[self.cards[name]] = change(header.get(self.cards[name], 0))

    def moment(self, frame, word, by):
        header = self.at(frame).header
        moved = np.datetime64(header[word]) + np.timedelta64(by, "ns")
        for one in {"DATE-OBS": ("DATE-OBS", "DATE-BEG")}.get(word, (word,)):
            header[one] = str(moved)[:26]
            header[one.replace("DATE", "MJD")] += by / 86400e9

    def missing(self, frame):
        return int(self.at(frame).header["MISSROWS"].split("-")[0].split(",")[0])

    def get(self, frame):
        return self.at(frame).data.copy()

    def put(self, frame, pixels):
        self.at(frame).data = pixels

    def card(self, word, value):
        self.at(2).header[word] = value

    def save(self):
        for file in self.headers.values():
            file[0].add_checksum()
            file.close()
        self.headers = {}


def kind_of(name):
    if "%" in name:
        return Files
    return {"h5": Hdf5, "fits": Fits}.get(name.split(".")[-1], Indexed)


# ---- The ways --------------------------------------------------------------------------------


def change_pixels(change):
    def way(copy, random):
        frame = random.randrange(2, copy.count)
        pixels = copy.get(frame)
        change(pixels, random)
        copy.put(frame, pixels)
    return way


def bit(pixels, random):
    row, column = random.randrange(len(pixels)), random.randrange(len(pixels[0]))
    pixels[row, column] ^= 1 << random.randrange(8)


def swap(pixels, random):
    row = random.randrange(len(pixels))
    first, second = 0, next(i for i in range(len(pixels[0])) if pixels[row, i] != pixels[row, 0])
    pixels[row, first], pixels[row, second] = pixels[row, second], pixels[row, first]


def clear(pixels, random):
    pixels[random.randrange(len(pixels))] = 0


def shift(pixels, random):
    row = random.randrange(len(pixels) - 1)
    pixels[row + 1:] = pixels[row:-1].copy()


def swap_frames(copy, random):
    first = random.randrange(2, copy.count - 1)
    one, other = copy.get(first), copy.get(first + 1)
    copy.put(first, other)
    copy.put(first + 1, one)


def twice(copy, random):
    frame = random.randrange(3, copy.count)
    copy.put(frame, copy.get(frame - 1))


def fill_missing(copy, random):
    pixels = copy.get(0)
    pixels[copy.missing(0)] = random.randrange(1, 200)
    copy.put(0, pixels)


def number(name, least, most, frame=None):
    """Adds something between these to a number of a frame."""
    def way(copy, random):
        at = random.randrange(2, copy.count - 1) if frame is None else frame
        by = random.randint(least, most)
        copy.number(name, at, lambda old: old + by)
    return way


def set_number(name, value):
    def way(copy, random):
        copy.number(name, random.randrange(2, copy.count - 1), lambda old: value)
    return way


def card(word, value):
    return lambda copy, random: copy.card(word, value)


def bytes_way(way):
    """On a file that nobody has open."""
    def run(copy, random):
        copy.save()
        way(copy, random)
        copy.save = lambda: None
    return run


def overwrite(path, data):
    with open(path, "wb") as file:
        file.write(data)


PIXELS = [
    ("a bit of a pixel", "crc", change_pixels(bit)),
    ("two pixels change places", "crc", change_pixels(swap)),
    ("a row of zeros", "crc", change_pixels(clear)),
    ("rows moved by one", "crc", change_pixels(shift)),
    ("two frames change places", "crc", swap_frames),
    ("a frame twice", "crc", twice),
    ("a missing row filled", "rows", fill_missing),
]
NUMBERS = [
    ("sum", "sum", number("sum", 1, 9)),
    ("sum that the camera told", "sum", number("sim_sum", 1, 9)),
    ("number of a frame", "number", number("number", 1, 9)),
    ("number goes back", "number", number("number", -9, -1)),
    ("readout goes back", "number", number("readout", -1, -1)),
    ("begin goes back", "times", number("begin_ns", -10**12, -10**11)),
    ("begin behind the middle", "times", number("begin_ns", 10**11, 10**12)),
    ("middle behind the end", "times", number("middle_ns", 10**11, 10**12)),
    ("end before the begin", "times", number("end_ns", -10**12, -10**11)),
    ("uncertainty below zero", "times", number("uncertainty_ns", -10**13, -10**12)),
    ("complete, and is not", "complete", number("complete", 1, 1, 0)),
    ("incomplete, and is not", "complete", set_number("complete", 0)),
    ("packets missing", "complete", number("packets_missing", 1, 3)),
    ("packets misplaced", "complete", number("packets_misplaced", 1, 3)),
    ("packets damaged", "complete", number("packets_damaged", 1, 3)),
    ("count of missing rows", "rows", number("missing_rows_count", 1, 5)),
    ("dropped between", "number", number("dropped", 1, 9)),
    ("exposure time", "header", number("exposure_us", 1000, 9000)),
    ("EXPTIME", "header", card("EXPTIME", 7.5)),
]
IN_RECORDS = [
    ("check value", "crc", number("crc32", 1, 9)),
    ("a gap in the index", "index", number("index", 1, 9)),
    ("an index twice", "index", number("index", -1, -1)),
    ("dropped goes back", "dropped", number("dropped", -9, -1)),
    ("GAIN", "header", card("GAIN", 3)),
    ("its end taken away", "ended", lambda copy, random: copy.ended("running")),
    ("an end that failed", "ended", lambda copy, random: copy.ended("failed")),
]
BYTES = [
    ("nothing in the file", "", bytes_way(lambda c, r: overwrite(c.path, b""))),
    ("cut in the middle", "file", bytes_way(lambda c, r: c.cut(c.size() // 2 + r.randrange(9)))),
]


@bytes_way
def torn_line(copy, random):
    with open(copy.path + ".jsonl") as file:
        lines = file.readlines()
    at = random.randrange(2, len(lines) - 2)
    lines[at] = lines[at][:random.randrange(1, len(lines[at]) - 2)] + "\n"
    overwrite(copy.path + ".jsonl", "".join(lines).encode())


def lost_line(copy, random):
    copy.lines.remove(copy.rows[random.randrange(2, copy.count - 1)])


INDEXED = [
    ("a torn line of the index", "file", torn_line),
    ("a lost line of the index", "index", lost_line),
    ("an offset", "file", number("offset", 1, 9)),
    ("rows of the index", "file", lambda c, r: c.lines[0].update(rows=c.lines[0]["rows"] + 1)),
]
LONGER = ("bytes behind its end", "file", bytes_way(lambda c, r: c.append(r.randrange(1, 9000))))
CUT = ("its last bytes", "file", bytes_way(lambda c, r: c.cut(r.randrange(1, 8))))


def put_whole(at, width, by):
    def way(copy, random):
        with open(copy.path, "r+b") as file:
            file.seek(at(copy, random))
            place, value = file.tell(), int.from_bytes(file.read(width), "little")
            file.seek(place)
            file.write((value + by).to_bytes(width, "little"))
    return bytes_way(way)


SER = [
    ("frames in the head", "file", put_whole(lambda c, r: 38, 4, 1)),
    ("columns in the head", "file", put_whole(lambda c, r: 26, 4, 1)),
    ("rows in the head", "file", put_whole(lambda c, r: 30, 4, 1)),
    ("bits in the head", "file", put_whole(lambda c, r: 34, 4, 8)),
    ("order of bytes in the head", "file", put_whole(lambda c, r: 22, 4, 1)),
    ("colours in the head", "file", put_whole(lambda c, r: 18, 4, 8)),
    ("how it begins", "file", bytes_way(lambda c, r: c.flip(r.randrange(14)))),
    ("a time behind the frames", "times", put_whole(
        lambda c, r: c.size() - 8 * r.randrange(1, c.count), 8, 10**7)),
]


def page_of(copy, random):
    """Where the first tags of a page lie, and how many."""
    data = copy.whole()
    at = struct.unpack_from("<Q", data, 8)[0]
    for _ in range(random.randrange(2, copy.count)):
        count = struct.unpack_from("<Q", data, at)[0]
        at = struct.unpack_from("<Q", data, at + 8 + 20 * count)[0]
    return data, at, struct.unpack_from("<Q", data, at)[0]


def tag(code):
    def at(copy, random):
        data, page, count = page_of(copy, random)
        places = range(page + 8, page + 8 + 20 * count, 20)
        return 12 + next(p for p in places if struct.unpack_from("<H", data, p)[0] == code)
    return at


def link(copy, random):
    data, page, count = page_of(copy, random)
    return page + 8 + 20 * count


@bytes_way
def loop(copy, random):
    data, page, count = page_of(copy, random)
    with open(copy.path, "r+b") as file:
        file.seek(page + 8 + 20 * count)
        file.write(data[8:16])


def word_of_page(word, other):
    """In the description of a page, as long as it was."""
    @bytes_way
    def way(copy, random):
        assert len(word) == len(other)
        data = bytearray(copy.whole())
        places = [at for at in range(len(data)) if data.startswith(word, at)]
        at = random.choice(places)
        data[at:at + len(word)] = other
        overwrite(copy.path, bytes(data))
    return way


TIFF = [
    ("a description that is none", "file", word_of_page(b'{"IMAGETYP"', b'["IMAGETYP"')),
    ("a page without its mark", "file", word_of_page(b'"COMPLETE"', b'"COMPLETT"')),
    ("a page without its time", "file", word_of_page(b'"DATE-OBS"', b'"DATE-OBT"')),
    ("mark of a page", "header", word_of_page(b'"COMPLETE":false,', b'"COMPLETE":true ,')),
    ("exposure of a page", "header", word_of_page(b'"EXPTIME":0.002', b'"EXPTIME":0.003')),
    ("time of a page", "header", word_of_page(b'"DATE-OBS":"20', b'"DATE-OBS":"19')),
    ("packets of a page", "header", word_of_page(b'"NMISSING":0', b'"NMISSING":3')),
    ("columns of a page", "file", put_whole(tag(256), 4, 1)),
    ("rows of a page", "file", put_whole(tag(257), 4, 1)),
    ("bits of a page", "file", put_whole(tag(258), 2, 8)),
    ("colours of a page", "file", put_whole(tag(262), 2, 1)),
    ("where the pixels of a page are", "file", put_whole(tag(273), 8, 2)),
    ("how long they are", "file", put_whole(tag(279), 8, 2)),
    ("a link to nowhere", "file", put_whole(link, 8, 10**9)),
    ("pages in a circle", "file", loop),
    ("how it begins", "file", bytes_way(lambda c, r: c.flip(r.randrange(4)))),
]


@bytes_way
def stored_bit(copy, random):
    with h5py.File(copy.path) as file:
        info = file["entry/data/data"].id.get_chunk_info(random.randrange(2, copy.count))
    copy.flip(info.byte_offset + random.randrange(info.size), random.randrange(8))


def resize(copy, random):
    copy.data.resize(copy.count - 1, 0)


def remove(name):
    return lambda copy, random: copy.file.pop(name)


def shorter(name):
    return lambda copy, random: copy.file[name].resize(len(copy.file[name]) - 1, 0)


def event_more(copy, random):
    codes = copy.file["entry/record/events/code"]
    codes.resize(len(codes) + 1, 0)


def header_bit(name):
    """In what the library keeps of an object, behind the mark that it begins with."""
    @bytes_way
    def way(copy, random):
        with h5py.File(copy.path) as file:
            at = h5py.h5o.get_info(file[name].id).addr
        copy.flip(at + random.randrange(5, 40), random.randrange(8))
    return way


def other_missing(copy, random):
    copy.file["entry/record/missing_rows/row"][0] = 99


HDF5 = [
    ("a stored bit", "crc", stored_bit),
    ("a frame less", "file", resize),
    ("a dataset that is gone", "", remove("entry/instrument/detector/crc32")),
    ("pixels that are gone", "", remove("entry/instrument/detector/data")),
    ("a row that is none", "rows", other_missing),
    ("temperatures that are gone", "file", remove("entry/instrument/detector/sensor_temperature")),
    ("a temperature less", "file", shorter("entry/instrument/detector/board_temperature")),
    ("a check value less", "file", shorter("entry/instrument/detector/crc32")),
    ("settings that are gone", "file", remove("entry/instrument/detector/settings")),
    ("events that are gone", "file", remove("entry/record/events")),
    ("codes of events that are gone", "file", remove("entry/record/events/code")),
    ("an event more", "file", event_more),
    ("a link that is gone", "file", remove("entry/data/data")),
    ("a bit of a setting's header", "file", header_bit("entry/instrument/detector/settings/gain")),
    ("a bit of the settings' header", "file", header_bit("entry/instrument/detector/settings")),
    ("a bit of a column's header", "file", header_bit("entry/instrument/detector/begin_ns")),
    ("a bit of the temperatures' header", "file", header_bit("entry/instrument/detector/sensor_temperature")),
    ("a bit of the name's header", "file", header_bit("entry/instrument/detector/description")),
    ("a bit of the events' header", "file", header_bit("entry/record/events/text")),
    ("how it begins", "", bytes_way(lambda c, r: c.flip(r.randrange(8)))),
    ("its last bytes", "", bytes_way(lambda c, r: c.cut(r.randrange(1, 900)))),
]


@bytes_way
def any_bit(copy, random):
    copy.flip(random.randrange(copy.size()), random.randrange(8))


@bytes_way
def stored_pixel(copy, random):
    with fits.open(copy.path, disable_image_compression=True) as file:
        part = next(part for part in file if part.header["NAXIS"] > 0)
        start, size = part.fileinfo()["datLoc"], part.fileinfo()["datSpan"]
    copy.flip(start + random.randrange(min(size, 900)), random.randrange(8))


def word_bytes(word, other):
    """Other bytes of the same length, once."""
    def way(copy, random):
        data = copy.whole()
        assert word in data
        overwrite(copy.path, data.replace(word, other, 1))
    return bytes_way(way)


FITS = [
    ("a bit anywhere", "file", any_bit),
    ("a bit of the pixels as they lie", "file", stored_pixel),
    ("a block less", "file", bytes_way(lambda c, r: c.cut(2880))),
    ("a block more", "file", bytes_way(lambda c, r: c.append(2880))),
    ("how it begins", "", bytes_way(lambda c, r: c.flip(r.randrange(9)))),
    ("a header without an end", "", word_bytes(b"END     ", b"ENDE    ")),
    ("the sum of a part", "file", word_bytes(b"DATASUM = '", b"DATASUM = '1")),
]
TABLE = [
    ("a table that is gone", "file", lambda c, r: c.file.pop("FRAMES")),
    ("a row less in the table", "file", lambda c, r: setattr(c.file["FRAMES"], "data", c.table[:-1])),
    ("a list of rows that is none", "rows", lambda c, r: c.table["missing_rows"].__setitem__(0, "x")),
]
TILES = [
    ("an extension that is gone", "file", lambda c, r: c.file.pop(r.randrange(2, c.count))),
    ("number in an extension", "header", lambda c, r: c.file[3].header.set("FRAMENO", 77)),
    ("sum in an extension", "header", lambda c, r: c.file[3].header.set("PIXSUM", 77)),
    ("time in an extension", "header", lambda c, r: c.file[3].header.set(
        "DATE-OBS", "2020-01-01T00:00:00.000000")),
]


def exchange_files(copy, random):
    first = random.randrange(1, copy.count - 2)
    one, other = copy.files[first:first + 2]
    os.rename(one, one + ".x")
    os.rename(other, one)
    os.rename(one + ".x", other)


def copy_file(copy, random):
    first = random.randrange(1, copy.count - 2)
    shutil.copy(copy.files[first], copy.files[first + 1])


FILES = [
    ("two files change places", "number", exchange_files),
    ("a file twice", "number", copy_file),
    ("a day of the Julian date", "times", lambda c, r: c.card("MJD-OBS", 61000.5)),
    ("how long it took", "times", lambda c, r: c.card("TELAPSE", 99.5)),
    ("rows that are not missing", "rows", lambda c, r: c.card("MISSROWS", "1-2")),
]
# Without a check value, a FITS file of a frame has only its sums.
IN_FILES = {"crc": "sum"}


def without_checks(rows, check):
    return [(name, IN_FILES.get(found, found), way) for name, found, way in rows if name not in check]


RECORD = PIXELS + NUMBERS + IN_RECORDS + BYTES
# Without the settings, there is nothing to compare a gain with.
IN_FITS = [row for row in RECORD if row[0] != "GAIN"]
# By the name of the record: each way with the check that finds it; "" for any, or an error.
WAYS = {
    "a.raw": RECORD + INDEXED + [LONGER, CUT],
    "a.tif": RECORD + INDEXED + TIFF,
    "a.ser": RECORD + INDEXED + [LONGER, CUT] + SER,
    "a.h5": RECORD + HDF5,
    "gzip.h5": RECORD + [("a stored bit", "", stored_bit)] + HDF5[1:],
    "a.fits": IN_FITS + FITS + TABLE + [LONGER, CUT],
    "rice.fits": IN_FITS + FITS + TABLE + TILES + [LONGER, CUT],
    "gzip.fits": IN_FITS + FITS + TABLE + TILES + [LONGER, CUT],
    "a-%02d.fits": without_checks(PIXELS, ("two pixels change places",)) + NUMBERS + BYTES + FITS +
                   FILES + [LONGER, CUT],
}
