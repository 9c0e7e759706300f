#include "containers/frame_table.h"

#include "containers/fits_table.h"
#include "fits/fits_header.h"
#include "fits/fits_words.h"

#include <unistd.h>

namespace vxcam {

namespace {

constexpr size_t kMostEvents = 10000; // that are kept
constexpr uint64_t kEventBytes = 256; // of one in the table, at most
constexpr size_t kPiece = size_t{1} << 20U;

} // namespace

void RunningSum::add(const void* bytes, size_t count)
{
    uint32_t sum = fitsSum(bytes, count);
    // What begins within a word has its bytes at other places there.
    const auto shift = static_cast<unsigned>(count_ % 4 * 8);
    if (shift > 0) sum = sum >> shift | sum << (32 - shift);
    sum_ = addFitsSums(sum_, sum);
    count_ += count;
}

FrameTable::FrameTable(const std::string& path, bool force, bool isMeasured)
    : file_(path + ".frames", force), isMeasured_(isMeasured)
{
    FitsHeader primary;
    primary.logical("SIMPLE", true, "a FITS file");
    primary.whole("BITPIX", 8, "without an image");
    primary.whole("NAXIS", 0, "");
    primary.logical("EXTEND", true, "a table follows");
    const std::string start = primary.finish(0);
    start_ = start.size();
    file_.append(start + frameTableHeader(0, isMeasured_, 0));
    file_.flush();
}

void FrameTable::add(const RecordedFrame& frame)
{
    const std::string row = frameTableRow(frame);
    sum_.add(row.data(), row.size());
    file_.append(row);
    ++rows_;
}

void FrameTable::note(const Event& event)
{
    if (events_.size() < kMostEvents) events_.push_back(event);
}

void FrameTable::flush()
{
    file_.flush(kFitsBlock);
    const std::string header = frameTableHeader(rows_, isMeasured_, sum_.sum());
    file_.rewrite(start_, header.data(), header.size());
}

void FrameTable::appendTo(AppendFile* record)
{
    flush();
    std::string piece(kPiece, '\0');
    uint64_t at = start_;
    while (const size_t count = file_.read(at, piece.data(), piece.size())) {
        record->append(piece.data(), count);
        at += count;
    }
    if (!events_.empty()) record->append(eventTable(events_));
}

void FrameTable::remove()
{
    ::unlink(file_.path().c_str());
}

uint64_t FrameTable::closingBytes() const
{
    return file_.size() + events_.size() * kEventBytes + 8 * kFitsBlock;
}

} // namespace vxcam
