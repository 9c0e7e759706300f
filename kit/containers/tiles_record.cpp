// A FITS file with an extension for each frame, whose rows are compressed one by one. The table of
// the frames grows in a file of its own beside it, and is put behind them at the end.
#include "containers/fits_table.h"
#include "containers/frame_table.h"
#include "fits/rice_tiles.h"

#include <vxcamkit/error.h>

#include <fitsio.h>
#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace vxcam {

namespace {

constexpr size_t kGrowth = size_t{1} << 20U;

class TilesRecord : public RecordFile
{
public:
    TilesRecord(const std::string& path, const RecordOptions& options, const RecordedFrame& first)
        : cards_(recordHeader(first.frame, options.header)),
          date_(utcText(std::chrono::system_clock::now(), 0)), file_(path, options.force),
          table_(path, options.force, first.measures.has_value())
    {
        file_.append(headerText({"running", 0}));
        file_.flush();
        end_ = file_.size();
    }

    void add(const RecordedFrame& frame) override
    {
        file_.append(frame.encoded.data(), frame.encoded.size());
        table_.add(frame);
        dropped_ = frame.frame.facts().dropped;
        ++added_;
    }
    void note(const Event& event) override { table_.note(event); }
    void flush() override
    {
        table_.flush();
        file_.flush();
        writeHeader({"running", dropped_});
        flushed_ = added_;
        end_ = file_.size();
    }
    void close(const RecordEnd& end) override
    {
        flush();
        table_.appendTo(&file_);
        file_.flush(kFitsBlock);
        writeHeader(end);
        file_.sync();
        table_.remove();
    }
    void salvage() override { file_.cut(end_); }
    uint64_t frames() const override { return flushed_; }
    uint64_t bytes() const override { return file_.size(); }
    uint64_t closingBytes() const override { return table_.closingBytes(); }

private:
    std::string headerText(const RecordEnd& end) const
    {
        FitsHeader header;
        header.logical("SIMPLE", true, "a FITS file");
        header.whole("BITPIX", 8, "the images are extensions");
        header.whole("NAXIS", 0, "");
        header.logical("EXTEND", true, "an extension for each frame");
        header.text("DATE", date_, "when the file was begun, UTC");
        for (const HeaderCard& card : cards_) {
            if (card.keyword != "BUNIT") header.add(card);
        }
        addRecordCards(end, added_, &header);
        return header.finish(0);
    }
    void writeHeader(const RecordEnd& end)
    {
        const std::string header = headerText(end);
        file_.rewrite(0, header.data(), header.size());
    }

    const std::vector<HeaderCard> cards_;
    const std::string date_;
    AppendFile file_;
    FrameTable table_;
    uint64_t added_ = 0, flushed_ = 0, dropped_ = 0, end_ = 0;
};

// As realloc(); what is new is 0, since the library reads what it has not written yet.
void* grown(void* memory, size_t count)
{
    const size_t before = memory != nullptr ? ::malloc_usable_size(memory) : 0;
    void* const larger = std::realloc(memory, count);
    const size_t after = larger != nullptr ? ::malloc_usable_size(larger) : 0;
    if (after > before) std::memset(static_cast<char*>(larger) + before, 0, after - before);
    return larger;
}

// A file in memory. The library's table of such files takes one thread at a time.
class MemoryFits
{
public:
    MemoryFits()
    {
        const std::lock_guard<std::mutex> guard(tableLock());
        check(fits_create_memfile(&file_, &memory_, &size_, kGrowth, grown, &status_));
    }
    ~MemoryFits()
    {
        const std::lock_guard<std::mutex> guard(tableLock());
        int ignored = 0;
        if (file_ != nullptr) fits_close_file(file_, &ignored);
        std::free(memory_);
    }
    MemoryFits(const MemoryFits&) = delete;
    MemoryFits& operator=(const MemoryFits&) = delete;

    void check(int status) const
    {
        if (status == 0) return;
        char text[FLEN_ERRMSG] = "";
        fits_get_errstatus(status, text);
        throw Error(ErrorKind::File, std::string("a frame cannot be compressed: ") + text, EIO);
    }
    fitsfile* file() const { return file_; }
    int* status() { return &status_; }
    // Also here one thread at a time: what it writes about the time goes through a buffer of the
    // process.
    void writeChecksum()
    {
        const std::lock_guard<std::mutex> guard(tableLock());
        check(fits_write_chksum(file_, &status_));
    }
    // The extension that is current, whole.
    FileBytes extension(FileBytes spare)
    {
        LONGLONG start = 0, data = 0, end = 0;
        check(fits_flush_file(file_, &status_));
        check(fits_get_hduaddrll(file_, &start, &data, &end, &status_));
        const auto count = static_cast<size_t>(end - start);
        FileBytes bytes(count, std::move(spare));
        std::memcpy(bytes.data(), static_cast<const char*>(memory_) + start, count);
        return bytes;
    }

private:
    static std::mutex& tableLock()
    {
        static std::mutex& lock = *new std::mutex;
        return lock;
    }

    void* memory_ = nullptr;
    size_t size_ = 0;
    fitsfile* file_ = nullptr;
    int status_ = 0;
};

// What the library calls pixels.
struct ImageKind {
    int image, pixel;
};

const ImageKind& kindOf(int bits)
{
    static constexpr ImageKind kinds[] = {
        {BYTE_IMG, TBYTE}, {USHORT_IMG, TUSHORT}, {ULONG_IMG, TUINT}};
    return bits == 8 ? kinds[0] : bits == 16 ? kinds[1] : kinds[2];
}

} // namespace

std::unique_ptr<RecordFile> makeTilesRecord(const std::string& path, const RecordOptions& options,
                                            const RecordedFrame& first)
{
    return std::make_unique<TilesRecord>(path, options, first);
}

FileBytes encodeForTiles(const RecordedFrame& frame, const RecordOptions& options, FileBytes spare)
{
    const Frame& image = frame.frame;
    const HeaderOptions header = headerOf(frame, options.header);
    const bool isRice = options.compression == Compression::Rice;
    if (isRice && fitsRiceTiles(image)) return riceTiles(image, header, std::move(spare));
    const ImageKind& kind = kindOf(image.bits());
    long axes[] = {image.columns(), image.rows()};
    MemoryFits fits;
    int* const status = fits.status();
    fits.check(fits_set_compression_type(fits.file(), isRice ? RICE_1 : GZIP_2, status));
    fits.check(fits_create_img(fits.file(), kind.image, 2, axes, status));
    for (const HeaderCard& card : makeHeader(image, header)) {
        for (const std::string& line : fitsCards(card, nullptr)) {
            fits.check(fits_write_record(fits.file(), line.c_str(), status));
        }
    }
    // It only reads them.
    void* const pixels = const_cast<void*>(image.data());
    long first[] = {1, 1};
    fits.check(fits_write_subset(fits.file(), kind.pixel, first, axes, pixels, status));
    fits.writeChecksum();
    return fits.extension(std::move(spare));
}

} // namespace vxcam
