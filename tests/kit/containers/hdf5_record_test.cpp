// What HDF5 is asked while frames are recorded, and what a record is when it refuses.
#include "record_support.h"

#include <hdf5.h>

#include <dlfcn.h>

#include <atomic>

namespace {

std::atomic<int> gAsked{0};
std::atomic<bool> gRefuses{false};

template <class Function>
Function* nextOf(Function*, const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

// In front of the library's own.
extern "C" herr_t H5Dget_chunk_info_by_coord(hid_t dataset, const hsize_t* offset,
                                             unsigned* filters, haddr_t* place, hsize_t* room)
{
    static auto* const next = nextOf(&H5Dget_chunk_info_by_coord, "H5Dget_chunk_info_by_coord");
    ++gAsked;
    return next(dataset, offset, filters, place, room);
}

extern "C" herr_t H5Dwrite_chunk(hid_t dataset, hid_t how, uint32_t filters, const hsize_t* offset,
                                 size_t count, const void* bytes)
{
    static auto* const next = nextOf(&H5Dwrite_chunk, "H5Dwrite_chunk");
    return gRefuses ? -1 : next(dataset, how, filters, offset, count, bytes);
}

namespace vxcam {

// Each time it walks along all frames.
TEST(Hdf5Record, AsksForTheirPlacesOfFewFramesOnly)
{
    struct {
        int frames, rows, columns;
    } const cases[] = {{20'000, 8, 8}, {600, 192, 192}};
    const Folder folder;
    std::vector<std::string> names;
    std::string expected;
    for (const auto& one : cases) {
        gAsked = 0;
        names.push_back(std::to_string(one.frames) + ".h5");
        record<uint16_t>(folder.path(names.back()), one.frames, one.rows, one.columns);
        EXPECT_GT(gAsked, 5) << one.frames;
        EXPECT_LT(gAsked, one.frames / 10) << one.frames;
        expected += std::to_string(one.frames) + " complete\n";
    }
    EXPECT_EQ(readBack(folder, names), expected);
}

// What readers of NeXus go by, from the root to the frames.
TEST(Hdf5Record, IsLaidOutAsReadersOfNexusExpect)
{
    const Folder folder;
    record<uint16_t>(folder.path("a.h5"), 3, 16, 24);
    makeTextFile(folder.path("look.py"), R"(
import sys, h5py
word = lambda value: value.decode() if isinstance(value, bytes) else value
with h5py.File(sys.argv[1], 'r') as file:
    classes = {}
    file.visititems(lambda name, object: classes.update({name: word(object.attrs['NX_class'])})
                    if isinstance(object, h5py.Group) else None)
    print(word(file.attrs['NX_class']))
    for name in ('entry', 'entry/instrument', 'entry/instrument/detector', 'entry/data'):
        print(name, classes.pop(name))
    assert set(classes.values()) == {'NXcollection'}, classes
    entry = file[word(file.attrs['default'])]
    plot = entry[word(entry.attrs['default'])]
    signal = plot[word(plot.attrs['signal'])]
    print(entry.name, plot.name, signal.name, signal.shape)
    assert signal == file['entry/instrument/detector/data']
)");
    EXPECT_EQ(
        Output("/usr/bin/python3 " + folder.path("look.py") + " " + folder.path("a.h5") + " 2>&1"),
        "NXroot\nentry NXentry\nentry/instrument NXinstrument\n"
        "entry/instrument/detector NXdetector\nentry/data NXdata\n"
        "/entry /entry/data /entry/data/data (3, 16, 24)\n");
}

TEST(Hdf5Record, HasNoFrameThatCouldNotBeWritten)
{
    const Folder folder;
    RecordOptions options;
    options.compression = Compression::Gzip;
    Recorder recorder(folder.path("a.h5"), options);
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(recorder.write(numbered<uint16_t>(i, 32, 32)));
    }
    ASSERT_TRUE(waitUntil([&] { return recorder.books().flushed == 3; }));
    gRefuses = true;
    recorder.write(numbered<uint16_t>(4, 32, 32));
    EXPECT_THROW(recorder.finish(), Error);
    gRefuses = false;
    EXPECT_EQ(readBack(folder, {"a.h5"}), "3 failed\n");
    makeTextFile(folder.path("look.py"), R"(
import sys, h5py
print(len(h5py.File(sys.argv[1], 'r', swmr=True)['entry/data/data']))
)");
    EXPECT_EQ(
        Output("/usr/bin/python3 " + folder.path("look.py") + " " + folder.path("a.h5") + " 2>&1"),
        "3\n");
}

} // namespace vxcam
