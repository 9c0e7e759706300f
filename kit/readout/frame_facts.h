// From the library's record of a frame to the kit's.
#ifndef VXCAMKIT_FRAME_FACTS_H
#define VXCAMKIT_FRAME_FACTS_H

#include <vxcamkit/frame.h>

#include "vxcamext.h"

namespace vxcam {

inline constexpr size_t kMostComplaints = 100; // of a readout, that are kept

Moment momentOf(const tsMoment& moment);

size_t frameBytes(const tsFrameRecord& record); // of its pixels, contiguous

// Fills in what the record tells.
void fillFacts(const tsFrameRecord& record, FrameFacts* facts);

// Makes a frame of what lies in its buffer: row follows row without a gap. What an earlier frame
// left there is not this frame's: rows that are known not to have come whole, and what is right of
// regions that are narrower than the widest, are made 0.
void arrangePixels(const tsFrameRecord& record, const std::vector<Area>& regions);

// "the camera reports error 3-54: area outside the sensor"
std::string complaintText(const Complaint& complaint);

} // namespace vxcam

#endif
