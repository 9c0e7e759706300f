// Pixels as they lie in memory, frame behind frame, and an index beside them.
#include "containers/frame_index.h"

namespace vxcam {

namespace {

constexpr uint64_t kClosing = 4096;

class RawRecord : public RecordFile
{
public:
    RawRecord(const std::string& path, const RecordOptions& options, const Frame& first)
        : frameBytes_(first.bytes()), pixels_(path, options.force),
          index_(path, options, first, "raw")
    {}

    void add(const RecordedFrame& frame) override
    {
        const uint64_t offset = pixels_.size();
        pixels_.append(frame.frame.data(), frame.frame.bytes());
        index_.add(frame, offset);
        ++added_;
    }
    void note(const Event& event) override { index_.note(event); }
    void flush() override
    {
        pixels_.flush();
        index_.flush();
        flushed_ = added_;
    }
    void close(const RecordEnd& end) override
    {
        flush();
        pixels_.sync();
        index_.close(end);
    }
    void salvage() override { pixels_.cut(flushed_ * frameBytes_); }
    uint64_t frames() const override { return flushed_; }
    uint64_t bytes() const override { return pixels_.size() + index_.bytes(); }
    uint64_t closingBytes() const override { return kClosing; }

private:
    const uint64_t frameBytes_;
    AppendFile pixels_;
    FrameIndex index_;
    uint64_t added_ = 0, flushed_ = 0;
};

} // namespace

std::unique_ptr<RecordFile> makeRawRecord(const std::string& path, const RecordOptions& options,
                                          const RecordedFrame& first)
{
    return std::make_unique<RawRecord>(path, options, first.frame);
}

} // namespace vxcam
