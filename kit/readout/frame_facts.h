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

// Copies the pixels out of the buffer, row after row. Rows that are known not to have come whole
// are made 0: what an earlier frame left in them is not this frame's.
void copyPixels(const tsFrameRecord& record, void* pixels);

// "the camera reports error 3-54: area outside the sensor"
std::string complaintText(const Complaint& complaint);

} // namespace vxcam

#endif
