// A FITS cube, a plane for each frame. The table of the frames grows in a file of its own beside
// it, and is put behind the cube when that is whole.
#include "containers/append_file.h"
#include "containers/fits_table.h"
#include "files/ascii.h"
#include "files/fits_header.h"
#include "files/fits_pixels.h"

#include <unistd.h>

#include <cstring>
#include <fstream>

namespace vxcam {

namespace {

constexpr size_t kMostEvents = 10000; // that are kept
constexpr uint64_t kEventBytes = 256; // of one in the table, at most
constexpr size_t kMostHow = 30;       // characters, which one card has room for
constexpr size_t kPiece = size_t{1} << 20U;

// All planes have the same numbers for the same pixels.
FitsPixels cubePixels(int bits)
{
    FitsPixels how;
    how.bits = bits;
    if (bits > 8) how.zero = int64_t{1} << static_cast<unsigned>(bits - 1);
    return how;
}

// The sum of bytes that come in pieces of any length.
class RunningSum
{
public:
    void add(const void* bytes, size_t count)
    {
        const size_t whole = count / 4 * 4;
        uint32_t sum = fitsSum(bytes, whole);
        if (whole < count) {
            unsigned char last[4] = {0, 0, 0, 0};
            std::memcpy(last, static_cast<const char*>(bytes) + whole, count - whole);
            sum = addFitsSums(sum, fitsSum(last, sizeof last));
        }
        // What begins within a word has its bytes at other places there.
        const auto shift = static_cast<unsigned>(count_ % 4 * 8);
        if (shift > 0) sum = sum >> shift | sum << (32 - shift);
        sum_ = addFitsSums(sum_, sum);
        count_ += count;
    }
    uint32_t sum() const { return sum_; }

private:
    uint32_t sum_ = 0;
    uint64_t count_ = 0;
};

// What is written of the frames beside the cube: a FITS file with the table alone.
class FrameTable
{
public:
    FrameTable(const std::string& path, bool force) : file_(path, force)
    {
        FitsHeader primary;
        primary.logical("SIMPLE", true, "a FITS file");
        primary.whole("BITPIX", 8, "without an image");
        primary.whole("NAXIS", 0, "");
        primary.logical("EXTEND", true, "a table follows");
        const std::string start = primary.finish(0);
        start_ = start.size();
        const std::string header = frameTableHeader(0, 0);
        data_ = start_ + header.size();
        file_.append(start + header);
        file_.flush();
    }
    void add(const RecordedFrame& frame)
    {
        const std::string row = frameTableRow(frame);
        sum_.add(row.data(), row.size());
        file_.append(row);
        ++rows_;
    }
    void flush()
    {
        file_.flush(kFitsBlock);
        const std::string header = frameTableHeader(rows_, sum_.sum());
        file_.rewrite(start_, header.data(), header.size());
    }
    void appendTo(AppendFile* cube)
    {
        flush();
        std::ifstream in(file_.path(), std::ios::binary);
        in.seekg(static_cast<std::streamoff>(start_));
        std::string piece(kPiece, '\0');
        while (in.read(piece.data(), static_cast<std::streamsize>(piece.size())) ||
               in.gcount() > 0) {
            cube->append(piece.data(), static_cast<size_t>(in.gcount()));
        }
    }
    void remove() { ::unlink(file_.path().c_str()); }
    uint64_t bytes() const { return file_.size(); }

private:
    AppendFile file_;
    uint64_t start_ = 0, data_ = 0; // where the table and its rows begin
    uint64_t rows_ = 0;
    RunningSum sum_;
};

class CubeRecord : public RecordFile
{
public:
    CubeRecord(const std::string& path, const RecordOptions& options, const Frame& first)
        : cards_(recordHeader(first, options.header)), rows_(first.rows()),
          columns_(first.columns()), pixels_(cubePixels(first.bits())),
          date_(utcText(std::chrono::system_clock::now(), 0)), cube_(path, options.force),
          table_(path + ".frames", options.force)
    {
        const std::string header = headerText({"running", 0});
        start_ = header.size();
        cube_.append(header);
        flush();
    }

    void add(const RecordedFrame& frame) override
    {
        cube_.append(frame.encoded.data(), frame.encoded.size());
        sum_.add(frame.encoded.data(), frame.encoded.size());
        table_.add(frame);
        dropped_ = frame.frame.facts().dropped;
        ++added_;
    }
    void note(const Event& event) override
    {
        if (events_.size() < kMostEvents) events_.push_back(event);
    }
    void flush() override
    {
        cube_.flush(kFitsBlock);
        table_.flush();
        writeHeader({"running", dropped_});
        flushed_ = added_;
    }
    void close(const RecordEnd& end) override
    {
        flush();
        const uint64_t data = cube_.size() - start_;
        cube_.append(std::string(fitsBlocks(data) - data, '\0'));
        table_.appendTo(&cube_);
        if (!events_.empty()) cube_.append(eventTable(events_));
        cube_.flush(kFitsBlock);
        writeHeader(end);
        cube_.sync();
        table_.remove();
    }
    void salvage() override
    {
        const uint64_t plane = uint64_t(rows_) * uint64_t(columns_) * uint64_t(pixels_.bits / 8);
        cube_.cut(fitsBlocks(start_ + flushed_ * plane));
    }
    uint64_t frames() const override { return flushed_; }
    uint64_t bytes() const override { return cube_.size(); }
    uint64_t closingBytes() const override
    {
        return table_.bytes() + events_.size() * kEventBytes + 8 * kFitsBlock;
    }

private:
    std::string headerText(const RecordEnd& end) const;
    void writeHeader(const RecordEnd& end)
    {
        const std::string header = headerText(end);
        cube_.rewrite(0, header.data(), header.size());
    }

    const std::vector<HeaderCard> cards_;
    const int rows_, columns_;
    const FitsPixels pixels_;
    const std::string date_;
    AppendFile cube_;
    FrameTable table_;
    uint64_t start_ = 0; // of the pixels
    uint64_t added_ = 0, flushed_ = 0, dropped_ = 0;
    RunningSum sum_;
    std::vector<Event> events_;
};

// As long whatever the numbers are: the pixels lie behind it.
std::string CubeRecord::headerText(const RecordEnd& end) const
{
    FitsHeader header;
    header.logical("SIMPLE", true, "a FITS file");
    header.whole("BITPIX", pixels_.bits, "bits of a pixel");
    header.whole("NAXIS", 3, "a cube");
    header.whole("NAXIS1", columns_, "columns");
    header.whole("NAXIS2", rows_, "rows");
    header.whole("NAXIS3", static_cast<int64_t>(added_), "frames");
    header.logical("EXTEND", true, "tables may follow");
    if (pixels_.zero != 0) {
        header.whole("BZERO", pixels_.zero, "numbers in the file + this are the pixels");
        header.whole("BSCALE", 1, "as they are");
    }
    header.text("DATE", date_, "when the file was begun, UTC");
    for (const HeaderCard& card : cards_) {
        header.add(card);
    }
    header.text("RECEND", asciiOf(end.how).substr(0, kMostHow), "how the record ended");
    header.whole("RECDROP", static_cast<int64_t>(end.dropped), "frames that were dropped");
    return header.finish(sum_.sum());
}

} // namespace

std::unique_ptr<RecordFile> makeCubeRecord(const std::string& path, const RecordOptions& options,
                                           const RecordedFrame& first)
{
    return std::make_unique<CubeRecord>(path, options, first.frame);
}

FileBytes encodeForCube(const Frame& frame, const RecordOptions& /*options*/, FileBytes spare)
{
    FileBytes encoded(frame.bytes(), std::move(spare));
    encodePixels(frame, cubePixels(frame.bits()), encoded.data());
    return encoded;
}

} // namespace vxcam
