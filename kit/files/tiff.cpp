#include "files/tiff_image.h"

#include <vxcamkit/error.h>

#include <tiffio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vxcam {

namespace {

constexpr size_t kStrip = size_t{1} << 20U; // bytes, about
constexpr size_t kTags = 4096;              // bytes that tags take, at most, beside what they hold
constexpr size_t kStripTags = 16;           // that a strip adds to them: its place and its length

// A file in memory that has room for all of it, as the library wants to see it.
struct Memory {
    FileBytes bytes;
    toff_t at = 0, end = 0;

    static Memory* of(thandle_t handle) { return static_cast<Memory*>(handle); }

    static tmsize_t read(thandle_t handle, void* to, tmsize_t count)
    {
        Memory& self = *of(handle);
        const toff_t left = self.at < self.end ? self.end - self.at : 0;
        const auto taken = static_cast<size_t>(std::min<toff_t>(left, static_cast<toff_t>(count)));
        std::memcpy(to, self.bytes.data() + self.at, taken);
        self.at += taken;
        return static_cast<tmsize_t>(taken);
    }
    static tmsize_t write(thandle_t handle, void* from, tmsize_t count)
    {
        Memory& self = *of(handle);
        const auto wanted = static_cast<size_t>(count);
        if (self.at > self.bytes.size() || wanted > self.bytes.size() - self.at) return -1;
        std::memcpy(self.bytes.data() + self.at, from, wanted);
        self.at += wanted;
        self.end = std::max(self.end, self.at);
        return count;
    }
    static toff_t seek(thandle_t handle, toff_t offset, int from)
    {
        Memory& self = *of(handle);
        if (from == SEEK_CUR) offset += self.at;
        if (from == SEEK_END) offset += self.end;
        return self.at = offset;
    }
    static toff_t size(thandle_t handle) { return of(handle)->end; }
    static int close(thandle_t /*handle*/) { return 0; }
};

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

void require(bool isDone)
{
    if (!isDone) throw Error(ErrorKind::File, "the TIFF file cannot be made", EIO);
}

uint32_t rowsOfStrip(const Frame& frame)
{
    const size_t row = frame.bytes() / static_cast<size_t>(frame.rows());
    return static_cast<uint32_t>(
        std::clamp<size_t>(kStrip / row, 1, static_cast<size_t>(frame.rows())));
}

void setTags(TIFF* tiff, const Frame& frame, const HeaderOptions& options,
             const std::string& description)
{
    const auto number = [&](uint32_t tag, uint32_t value) {
        require(TIFFSetField(tiff, tag, value) != 0);
    };
    const auto text = [&](uint32_t tag, const std::string& value) {
        require(TIFFSetField(tiff, tag, value.c_str()) != 0);
    };
    number(TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(frame.columns()));
    number(TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(frame.rows()));
    number(TIFFTAG_BITSPERSAMPLE, static_cast<uint32_t>(frame.bits()));
    number(TIFFTAG_SAMPLESPERPIXEL, 1);
    number(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    number(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    number(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    number(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    number(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    number(TIFFTAG_ROWSPERSTRIP, rowsOfStrip(frame));
    text(TIFFTAG_IMAGEDESCRIPTION, description);
    text(TIFFTAG_SOFTWARE, options.software.empty() ? "vxcamkit" : options.software);
}

void writeStrips(TIFF* tiff, const Frame& frame)
{
    const size_t row = frame.bytes() / static_cast<size_t>(frame.rows());
    const size_t strip = row * rowsOfStrip(frame);
    const auto* const pixels = static_cast<const char*>(frame.data());
    uint32_t number = 0;
    for (size_t at = 0; at < frame.bytes(); at += strip) {
        const size_t count = std::min(strip, frame.bytes() - at);
        // It only reads them.
        void* const from = const_cast<char*>(pixels + at);
        require(TIFFWriteRawStrip(tiff, number++, from, static_cast<tmsize_t>(count)) ==
                static_cast<tmsize_t>(count));
    }
}

} // namespace

FileBytes tiffImage(const Frame& frame, const HeaderOptions& options, size_t mostClassic)
{
    const std::string description = headerJson(makeHeader(frame, options));
    const size_t strips = frame.bytes() / kStrip + static_cast<size_t>(frame.rows());
    const size_t size =
        frame.bytes() + description.size() + options.software.size() + kTags + strips * kStripTags;
    Memory memory{FileBytes(size), 0, 0};
    const char* const mode = size > mostClassic ? "w8" : "w4";
    std::unique_ptr<TIFF, CloseTiff> tiff(TIFFClientOpen("frame", mode, &memory, Memory::read,
                                                         Memory::write, Memory::seek, Memory::close,
                                                         Memory::size, nullptr, nullptr));
    require(tiff != nullptr);
    setTags(tiff.get(), frame, options, description);
    writeStrips(tiff.get(), frame);
    require(TIFFFlush(tiff.get()) != 0);
    tiff.reset();
    memory.bytes.shrink(static_cast<size_t>(memory.end));
    std::memset(memory.bytes.data() + memory.bytes.size(), 0,
                memory.bytes.room() - memory.bytes.size());
    return std::move(memory.bytes);
}

FileBytes makeTiff(const Frame& frame, const HeaderOptions& options)
{
    return tiffImage(frame, options, kMostClassicTiff);
}

} // namespace vxcam
