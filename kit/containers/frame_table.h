// What is written of the frames of a FITS record beside it, until it is whole.
#ifndef VXCAMKIT_FRAME_TABLE_H
#define VXCAMKIT_FRAME_TABLE_H

#include "containers/append_file.h"
#include "containers/record_file.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

// The fitsSum() of bytes that come in pieces of any length.
class RunningSum
{
public:
    void add(const void* bytes, size_t count);
    uint32_t sum() const { return sum_; }

private:
    uint32_t sum_ = 0;
    uint64_t count_ = 0;
};

// A FITS file with the table FRAMES alone, that grows; and the events, in memory.
//
// Threads: one. Owns: the file. Errors: throws Error{File}.
class FrameTable
{
public:
    // Beside the record of that name, with ".frames" behind it.
    FrameTable(const std::string& path, bool force, bool isMeasured);

    void add(const RecordedFrame& frame);
    void note(const Event& event);
    void flush();
    // FRAMES, and EVENTS if there are some.
    void appendTo(AppendFile* record);
    void remove();

    uint64_t closingBytes() const; // that appendTo() adds, at most

private:
    AppendFile file_;
    const bool isMeasured_;
    uint64_t start_ = 0; // where the table begins
    uint64_t rows_ = 0;
    RunningSum sum_;
    std::vector<Event> events_;
};

} // namespace vxcam

#endif
