// What the tests of records share: frames that are told apart, and readers of others.
#ifndef RECORD_SUPPORT_H
#define RECORD_SUPPORT_H

#include "files_support.h"
#include "within.h"

#include <vxcamkit/recorder.h>

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <thread>

namespace vxcam {

inline constexpr std::chrono::seconds kPatience = Within(std::chrono::seconds(30));

inline bool waitUntil(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Pixel i of frame n is (n * 31 + i * 7) mod 65536, and of 8 and 32 bits likewise.
template <class Pixel>
Frame numbered(int number, int rows, int columns, FrameFacts facts = {})
{
    std::vector<Pixel> pixels(static_cast<size_t>(rows) * static_cast<size_t>(columns));
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<Pixel>(static_cast<size_t>(number) * 31 + i * 7);
    }
    facts.rows = rows;
    facts.columns = columns;
    facts.number = number;
    facts.times.begin = UtcTime(std::chrono::seconds(1'700'000'000 + number));
    facts.times.middle = facts.times.begin + std::chrono::milliseconds(5);
    facts.times.end = facts.times.begin + std::chrono::milliseconds(10);
    facts.times.uncertainty = std::chrono::microseconds(20);
    facts.sensorTemperature = -10.5;
    return frameOf(facts, pixels);
}

inline constexpr const char* kReader = R"(
import sys, json, zlib, warnings
import numpy as np, h5py
from astropy.io import fits
warnings.simplefilter('ignore')
def pixels(frames, columns):
    bits = frames[0].dtype.itemsize * 8
    for n, frame in enumerate(frames):
        want = ((n + 1) * 31 + np.arange(frame.size, dtype='u8') * 7) % (1 << bits)
        assert (frame.ravel() == want).all(), ('pixels', n)
        assert columns['index'][n] == n and columns['number'][n] == n + 1
        assert columns['crc32'][n] == zlib.crc32(frame.tobytes())
        assert columns['sum'][n] == want.sum()
        assert columns['begin_ns'][n] == (1700000001 + n) * 10**9
        assert columns['end_ns'][n] - columns['begin_ns'][n] == 10**7
        assert columns['sensor_temperature'][n] == -10.5
def h5(path):
    with h5py.File(path, 'r', swmr=True) as file:
        detector = file['entry/instrument/detector']
        count = min(detector[name].shape[0] for name in
                    ('index', 'number', 'crc32', 'sum', 'begin_ns', 'end_ns', 'sensor_temperature'))
        if count: pixels(detector['data'][:count], {name: detector[name][:count] for name in detector
            if isinstance(detector[name], h5py.Dataset) and detector[name].ndim == 1})
        return count, file['entry/record/ended'][()].decode()
def cube(path):
    with fits.open(path, memmap=False) as file:
        ended = file[0].header['RECEND']
        table = file['FRAMES'].data if ended != 'running' else fits.open(path + '.frames')[1].data
        if file[0].header['NAXIS'] == 0: # an extension for each frame
            data = [file[i + 1].data for i in range(file[0].header['RECFRAME'])]
            if data: pixels([frame.astype({1: '<u1', 2: '<u2', 4: '<u4'}[frame.dtype.itemsize])
                             for frame in data], table)
            return len(data), ended
        data = file[0].data
        if data is None: return 0, ended
        kind = {8: '<u1', 16: '<u2', 32: '<u4'}[file[0].header['BITPIX']]
        pixels([frame.astype(kind) for frame in data], table)
        return len(data), ended
def raw(path):
    lines = [json.loads(line) for line in open(path + '.jsonl').read().split('\n')[:-1]]
    first, ended = lines[0], lines[-1].get('ended', 'running')
    rows = [line for line in lines if 'index' in line]
    kind = {8: '<u1', 16: '<u2', 32: '<u4'}[first['bits']]
    size = first['rows'] * first['columns']
    if rows: pixels([np.fromfile(path, kind, size, offset=row['offset']) for row in rows],
                    {name: [row[name] for row in rows] for name in rows[0]})
    return len(rows), ended
def tif(path):
    from PIL import Image
    count, ended = raw(path)
    with Image.open(path) as image:
        lines = [json.loads(line) for line in open(path + '.jsonl').read().split('\n')[:-1]]
        rows = [line for line in lines if 'index' in line]
        assert count <= image.n_frames
        for n in range(count if image.mode in ('L', 'I;16') else 0):
            image.seek(n)
            kind = '<u1' if image.mode == 'L' else '<u2'
            assert zlib.crc32(np.array(image).astype(kind).tobytes()) == rows[n]['crc32']
    return count, ended
def ser(path):
    rows, ended = raw(path)
    with open(path, 'rb') as file:
        head = np.frombuffer(file.read(178), dtype=[('id', 'S14'), ('', '<i4', 3), ('columns', '<i4'),
            ('rows', '<i4'), ('bits', '<i4'), ('frames', '<i4'), ('names', 'S40', 3), ('begin', '<i8', 2)])[0]
        assert head['frames'] >= rows and head['begin'][1] == 621355968000000000 + 17000000010000000
        pixels = int(head['columns']) * int(head['rows'])
        file.seek(178 + rows * pixels * (int(head['bits']) // 8))
        if ended != 'running': # else a part of another frame may be there
            times = np.frombuffer(file.read(), '<i8')
            assert list(times) == [621355968000000000 + 17000000000000000 + (n + 1) * 10**7 for n in range(rows)]
    return rows, ended
for path in sys.argv[1:]:
    print(*{'h5': h5, 'fits': cube, 'raw': raw, 'tif': tif, 'ser': ser}[path.split('.')[-1]](path))
)";

// For each file: frames that it has, which are as they should be, and how the record ended.
inline std::string readBack(const Folder& folder, const std::vector<std::string>& names)
{
    makeTextFile(folder.path("read.py"), kReader);
    std::string command = "timeout 100 /usr/bin/python3 " + folder.path("read.py");
    for (const std::string& name : names) {
        command += " " + folder.path(name);
    }
    return Output(command + " 2>&1");
}

template <class Pixel>
void record(const std::string& path, int frames, int rows, int columns,
            const RecordOptions& options = {})
{
    Recorder recorder(path, options);
    for (int i = 1; i <= frames; ++i) {
        ASSERT_TRUE(recorder.write(numbered<Pixel>(i, rows, columns)));
    }
    recorder.finish();
    EXPECT_EQ(recorder.books().frames, static_cast<uint64_t>(frames));
    EXPECT_EQ(recorder.books().held, 0u);
}

inline std::string verified(const std::string& path)
{
    return Output("fitsverify -q " + path + " 2>&1");
}

} // namespace vxcam

#endif
