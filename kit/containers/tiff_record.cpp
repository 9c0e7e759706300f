// A BigTIFF, a page for each frame, and an index beside it.
#include "containers/frame_index.h"
#include "containers/record_columns.h"

#include <vxcamkit/header.h>

#include <utility>
#include <vector>

namespace vxcam {

namespace {

constexpr uint64_t kClosing = 4096;
constexpr uint64_t kFirstLink = 8; // where the header says where the first page is
constexpr size_t kAlignment = 8;

enum TagType : uint16_t { eText = 2, eShort = 3, eLong = 4, eLong8 = 16 };

void put(uint64_t number, size_t bytes, std::string* to)
{
    for (size_t i = 0; i < bytes; ++i) {
        to->push_back(static_cast<char>(number >> (8 * i) & 0xFFU));
    }
}

// The tags of a page. Tags ascend.
class TiffPage
{
public:
    void number(uint16_t tag, TagType type, uint64_t value) { add(tag, type, 1, value); }
    // A text of so many characters, its end included, that lies at that place.
    void text(uint16_t tag, uint64_t characters, uint64_t at) { add(tag, eText, characters, at); }
    // Without the link to the next page, which follows.
    std::string finish() const
    {
        std::string page;
        put(count_, 8, &page);
        return page + tags_;
    }

private:
    void add(uint16_t tag, TagType type, uint64_t count, uint64_t value)
    {
        put(tag, 2, &tags_);
        put(type, 2, &tags_);
        put(count, 8, &tags_);
        put(value, 8, &tags_);
        ++count_;
    }

    std::string tags_;
    uint64_t count_ = 0;
};

class TiffRecord : public RecordFile
{
public:
    TiffRecord(const std::string& path, const RecordOptions& options, const Frame& first)
        : header_(options.header), file_(path, options.force), index_(path, options, first, "tiff")
    {
        std::string start = "II";
        put(43, 2, &start); // a BigTIFF, whose offsets have
        put(8, 2, &start);  // so many bytes
        put(0, 2, &start);
        put(0, 8, &start);
        file_.append(start);
        file_.flush();
    }

    void add(const RecordedFrame& frame) override;
    void note(const Event& event) override { index_.note(event); }
    void flush() override;
    void close(const RecordEnd& end) override
    {
        flush();
        file_.sync();
        index_.close(end);
    }
    void salvage() override { file_.cut(end_); }
    uint64_t frames() const override { return flushed_; }
    uint64_t bytes() const override { return file_.size() + index_.bytes(); }
    uint64_t closingBytes() const override { return kClosing; }

private:
    const HeaderOptions header_;
    AppendFile file_;
    FrameIndex index_;
    uint64_t link_ = kFirstLink;                       // that leads to the next page
    uint64_t end_ = 0;                                 // of what was flushed
    std::vector<std::pair<uint64_t, uint64_t>> links_; // that are to be set, and to what
    uint64_t added_ = 0, flushed_ = 0;
};

void TiffRecord::add(const RecordedFrame& frame)
{
    const Frame& image = frame.frame;
    const uint64_t pixels = file_.size();
    file_.append(image.data(), image.bytes());
    const std::string description = headerJson(makeHeader(image, headerOf(frame, header_)));
    const uint64_t text = file_.size();
    file_.append(description.c_str(), description.size() + 1);
    file_.append(std::string((kAlignment - file_.size() % kAlignment) % kAlignment, '\0'));
    TiffPage page;
    page.number(256, eLong, static_cast<uint64_t>(image.columns()));
    page.number(257, eLong, static_cast<uint64_t>(image.rows()));
    page.number(258, eShort, static_cast<uint64_t>(image.bits()));
    page.number(259, eShort, 1); // not compressed
    page.number(262, eShort, 1); // 0 is black
    page.text(270, description.size() + 1, text);
    page.number(273, eLong8, pixels);
    page.number(274, eShort, 1); // the first row is on top
    page.number(277, eShort, 1); // gray
    page.number(278, eLong, static_cast<uint64_t>(image.rows()));
    page.number(279, eLong8, image.bytes());
    page.number(339, eShort, 1); // without a sign
    links_.emplace_back(link_, file_.size());
    file_.append(page.finish());
    link_ = file_.size();
    file_.append(std::string(kAlignment, '\0'));
    index_.add(frame, pixels);
    ++added_;
}

// The link to the first of the pages that are new comes last: what can be reached is whole.
void TiffRecord::flush()
{
    file_.flush();
    for (size_t i = links_.size(); i-- > 0;) {
        std::string bytes;
        put(links_[i].second, 8, &bytes);
        file_.rewrite(links_[i].first, bytes.data(), bytes.size());
    }
    links_.clear();
    end_ = file_.size();
    index_.flush();
    flushed_ = added_;
}

} // namespace

std::unique_ptr<RecordFile> makeTiffRecord(const std::string& path, const RecordOptions& options,
                                           const RecordedFrame& first)
{
    return std::make_unique<TiffRecord>(path, options, first.frame);
}

} // namespace vxcam
