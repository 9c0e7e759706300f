// A FITS file for each frame, with all that is known of it. Each appears when it is whole.
#include "containers/record_columns.h"

#include <vxcamkit/fits.h>
#include <vxcamkit/frame_file.h>
#include <vxcamkit/new_file.h>

namespace vxcam {

namespace {

class FitsFilesRecord : public RecordFile
{
public:
    FitsFilesRecord(std::string pattern, bool force) : pattern_(std::move(pattern)), force_(force)
    {}

    void add(const RecordedFrame& frame) override
    {
        NewFile file(fileName(pattern_, static_cast<int>(frame.index) + 1, 1), force_);
        file.write(frame.encoded);
        file.keep();
        bytes_ += frame.encoded.size();
        ++frames_;
    }
    void flush() override {}
    void close(const RecordEnd& /*end*/) override {}
    uint64_t frames() const override { return frames_; }
    uint64_t bytes() const override { return bytes_; }

private:
    const std::string pattern_;
    const bool force_;
    uint64_t frames_ = 0, bytes_ = 0;
};

} // namespace

std::unique_ptr<RecordFile> makeFitsFilesRecord(const std::string& path,
                                                const RecordOptions& options,
                                                const RecordedFrame& /*first*/)
{
    return std::make_unique<FitsFilesRecord>(path, options.force);
}

FileBytes encodeForFitsFiles(const RecordedFrame& frame, const RecordOptions& options,
                             FileBytes spare)
{
    return makeFits(frame.frame, headerOf(frame, options.header), nullptr, std::move(spare));
}

} // namespace vxcam
