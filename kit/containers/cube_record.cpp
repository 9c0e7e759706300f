// A FITS cube, a plane for each frame. The table of the frames grows in a file of its own beside
// it, and is put behind the cube when that is whole.
#include "containers/append_file.h"
#include "containers/fits_table.h"
#include "containers/frame_table.h"
#include "fits/fits_header.h"
#include "fits/fits_pixels.h"

namespace vxcam {

namespace {

// All planes have the same numbers for the same pixels.
FitsPixels cubePixels(int bits)
{
    FitsPixels how;
    how.bits = bits;
    if (bits > 8) how.zero = int64_t{1} << static_cast<unsigned>(bits - 1);
    return how;
}

class CubeRecord : public RecordFile
{
public:
    CubeRecord(const std::string& path, const RecordOptions& options, const RecordedFrame& first)
        : cards_(recordHeader(first.frame, options.header)), rows_(first.frame.rows()),
          columns_(first.frame.columns()), pixels_(cubePixels(first.frame.bits())),
          date_(utcText(std::chrono::system_clock::now(), 0)), cube_(path, options.force),
          table_(path, options.force, first.measures.has_value())
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
    void note(const Event& event) override { table_.note(event); }
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
    uint64_t closingBytes() const override { return table_.closingBytes(); }

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
    addRecordCards(end, added_, &header);
    return header.finish(sum_.sum());
}

} // namespace

std::unique_ptr<RecordFile> makeCubeRecord(const std::string& path, const RecordOptions& options,
                                           const RecordedFrame& first)
{
    return std::make_unique<CubeRecord>(path, options, first);
}

FileBytes encodeForCube(const RecordedFrame& recorded, const RecordOptions& /*options*/,
                        FileBytes spare)
{
    const Frame& frame = recorded.frame;
    FileBytes encoded(frame.bytes(), std::move(spare));
    encodePixels(frame, cubePixels(frame.bits()), encoded.data());
    return encoded;
}

} // namespace vxcam
