// What is known of the frames of a record, in a text file beside it: a JSON object a line.
#ifndef VXCAMKIT_FRAME_INDEX_H
#define VXCAMKIT_FRAME_INDEX_H

#include "containers/append_file.h"
#include "containers/record_file.h"

namespace vxcam {

// The index of a record: its name with ".jsonl" behind it.
std::string frameIndexPath(const std::string& path);

// Threads: one. Owns: the file. Errors: throws Error{File}.
class FrameIndex
{
public:
    // Starts it with what all frames have in common. `format` is what holds their pixels, "raw".
    FrameIndex(const std::string& path, const RecordOptions& options, const Frame& first,
               const char* format);

    void add(const RecordedFrame& frame, uint64_t offset); // of its pixels, in the record
    void note(const Event& event);
    void flush();
    void close(const RecordEnd& end); // on the disk then
    void remove();                    // when it is not needed any more

    uint64_t bytes() const { return file_.size(); }

private:
    AppendFile file_;
};

} // namespace vxcam

#endif
